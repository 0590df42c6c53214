// limit_logger.h: what no logger undercuts: a call that says no, and one write(2) of a line that
// is there already.

#ifndef BENCHMARKS_LOGGERS_LIMIT_LOGGER_H
#define BENCHMARKS_LOGGERS_LIMIT_LOGGER_H

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <string_view>

#include "bare_call.h"
#include "loggers/line_settings.h"
#include "support/rows.h"

namespace bench {

class LimitLogger {
public:
    static constexpr const char* kName = kLimit;

    LimitLogger(Prefix, Flush) {}
    ~LimitLogger() { (void)close(m_file); }

    LimitLogger(const LimitLogger&) = delete;
    LimitLogger& operator=(const LimitLogger&) = delete;

    void on(int) const { benchmark::DoNotOptimize(write(m_file, kLine.data(), kLine.size())); }
    void off(int) const { benchmark::DoNotOptimize(bareCall(&m_file)); }

private:
    static constexpr std::string_view kLine =
        "[B-LOG] limit_logger.h:30:on(): timer launch fired 12345 times\n";

    const int m_file = open("/dev/null", O_WRONLY | O_APPEND | O_CLOEXEC);
};

}  // namespace bench

#endif  // BENCHMARKS_LOGGERS_LIMIT_LOGGER_H
