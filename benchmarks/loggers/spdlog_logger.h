// spdlog_logger.h: spdlog's macros and its file sink for several threads.

#ifndef BENCHMARKS_LOGGERS_SPDLOG_LOGGER_H
#define BENCHMARKS_LOGGERS_SPDLOG_LOGGER_H

#undef SPDLOG_ACTIVE_LEVEL
#define SPDLOG_ACTIVE_LEVEL SPDLOG_LEVEL_TRACE
#include <spdlog/fmt/bin_to_hex.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <memory>
#include <vector>

#include "loggers/line_settings.h"

namespace bench {

class SpdlogLogger {
public:
    static constexpr const char* kName = "spdlog";

    SpdlogLogger(Prefix prefix, Flush flush)
        : m_logger("B-LOG", std::make_shared<spdlog::sinks::basic_file_sink_mt>("/dev/null")) {
        // The line that BLOG writes; the time in seconds, as in the log of a set.
        m_logger.set_pattern(prefix == Prefix::None ? "[%n] %s:%#:%!(): %v"
                                                    : "[%E.%f] [%t] [%n] %s:%#:%!(): %v");
        m_logger.set_level(spdlog::level::err);
        if (flush == Flush::EachLine) m_logger.flush_on(spdlog::level::trace);
    }

    void on(int number) {
        SPDLOG_LOGGER_ERROR(&m_logger, "timer {} fired {} times", "launch", number);
    }
    void off(int number) {
        SPDLOG_LOGGER_DEBUG(&m_logger, "timer {} fired {} times", "launch", number);
    }
    void dump(const std::vector<unsigned char>& bytes) {
        SPDLOG_LOGGER_ERROR(&m_logger, "dump {:Xp}", spdlog::to_hex(bytes, 16));
    }

private:
    spdlog::logger m_logger;
};

}  // namespace bench

#endif  // BENCHMARKS_LOGGERS_SPDLOG_LOGGER_H
