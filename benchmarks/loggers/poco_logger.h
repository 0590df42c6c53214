// poco_logger.h: a POCO Logger with a pattern and a file.

#ifndef BENCHMARKS_LOGGERS_POCO_LOGGER_H
#define BENCHMARKS_LOGGERS_POCO_LOGGER_H

#include <Poco/AutoPtr.h>
#include <Poco/FileChannel.h>
#include <Poco/Format.h>
#include <Poco/FormattingChannel.h>
#include <Poco/Logger.h>
#include <Poco/PatternFormatter.h>

#include <string>

#include "loggers/line_settings.h"

namespace bench {

class PocoLogger {
public:
    static constexpr const char* kName = "POCO";

    PocoLogger(Prefix prefix, Flush flush) : m_logger(Poco::Logger::get("B-LOG")) {
        Poco::AutoPtr<Poco::FileChannel> channel = new Poco::FileChannel("/dev/null");
        channel->setProperty("flush", flush == Flush::EachLine ? "true" : "false");
        Poco::AutoPtr<Poco::PatternFormatter> formatter = new Poco::PatternFormatter(
            prefix == Prefix::None ? "[%s] %U:%u: %t" : "[%E.%F] [%I %T] [%s] %U:%u: %t");
        Poco::AutoPtr<Poco::Channel> lines = new Poco::FormattingChannel(formatter, channel);
        m_logger.setChannel(lines);
        m_logger.setLevel(Poco::Message::PRIO_ERROR);
    }

    void on(int number) const {
        m_logger.error(Poco::format("timer %s fired %d times", kTimer, number), __FILE__, __LINE__);
    }
    void off(int number) const {
        if (!m_logger.debug()) return;
        m_logger.debug(Poco::format("timer %s fired %d times", kTimer, number), __FILE__, __LINE__);
    }

private:
    inline static const std::string kTimer = "launch";

    Poco::Logger& m_logger;
};

}  // namespace bench

#endif  // BENCHMARKS_LOGGERS_POCO_LOGGER_H
