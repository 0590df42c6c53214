// our_logger.h: BLOG, through the substitute for the platform's debug library.

#ifndef BENCHMARKS_LOGGERS_OUR_LOGGER_H
#define BENCHMARKS_LOGGERS_OUR_LOGGER_H

#include "base/logging.h"
#include "loggers/line_settings.h"
#include "support/rows.h"
#include "zor_debug/zor_debug_control.h"

namespace bench {

/// Each line goes to the system at once, whatever is asked for.
class OurLogger {
public:
    static constexpr const char* kName = kOurs;

    OurLogger(Prefix prefix, Flush, const char* levels = "error") {
        (void)zorDebugSetFile("/dev/null");
        (void)zorDebugSetLevels(levels);
        (void)zorDebugSetPrefix(prefix == Prefix::None ? "" : "time,thread");
    }
    ~OurLogger() {
        (void)zorDebugSetPrefix("");
        (void)zorDebugSetLevels("off");
        (void)zorDebugSetFile("");
    }

    OurLogger(const OurLogger&) = delete;
    OurLogger& operator=(const OurLogger&) = delete;

    void on(int number) const {
        BLOG(tevalon::base::kLogError, "timer %s fired %d times\n", "launch", number);
    }
    void off(int number) const {
        BLOG(tevalon::base::kLogDebug, "timer %s fired %d times\n", "launch", number);
    }
};

}  // namespace bench

#endif  // BENCHMARKS_LOGGERS_OUR_LOGGER_H
