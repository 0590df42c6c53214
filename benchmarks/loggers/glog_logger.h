// glog_logger.h: glog's streams, into a stdio file of their own.

#ifndef BENCHMARKS_LOGGERS_GLOG_LOGGER_H
#define BENCHMARKS_LOGGERS_GLOG_LOGGER_H

#include <glog/logging.h>

#include <cstdio>

#include "loggers/line_settings.h"

namespace bench {

class GlogLogger {
public:
    static constexpr const char* kName = "glog";

    GlogLogger(Prefix prefix, Flush flush) : m_prefix(prefix) {
        static const bool s_isReady = initialize();
        (void)s_isReady;
        FLAGS_stderrthreshold = google::GLOG_FATAL;
        FLAGS_log_prefix = prefix == Prefix::TimeAndThread;
        FLAGS_logbuflevel = flush == Flush::EachLine ? -1 : google::GLOG_FATAL;
        m_before = google::base::GetLogger(google::GLOG_INFO);
        google::base::SetLogger(google::GLOG_INFO, &m_file);
    }
    ~GlogLogger() { google::base::SetLogger(google::GLOG_INFO, m_before); }

    GlogLogger(const GlogLogger&) = delete;
    GlogLogger& operator=(const GlogLogger&) = delete;

    void on(int number) const {
        // With its prefix the place stands there; else it is part of the message, as in BLOG.
        if (m_prefix == Prefix::None) {
            LOG(INFO) << "[B-LOG] glog_logger.h:" << __LINE__ << ":on(): timer "
                      << "launch"
                      << " fired " << number << " times";
        } else {
            LOG(INFO) << "[B-LOG] timer "
                      << "launch"
                      << " fired " << number << " times";
        }
    }
    void off(int number) const {
        VLOG(1) << "timer "
                << "launch"
                << " fired " << number << " times";
    }

private:
    // Before that, and only then, everything goes to standard error.
    static bool initialize() {
        google::InitGoogleLogging("benchmark");
        return true;
    }

    // The file that glog would open by itself has a name that ends in the time.
    class NullFile : public google::base::Logger {
    public:
        NullFile() = default;
        ~NullFile() override {
            if (m_file != nullptr) (void)std::fclose(m_file);
        }
        NullFile(const NullFile&) = delete;
        NullFile& operator=(const NullFile&) = delete;

        void Write(bool mustFlush, time_t, const char* p_text, size_t length) override {
            (void)std::fwrite(p_text, 1, length, m_file);
            if (mustFlush) Flush();
        }
        void Flush() override { (void)std::fflush(m_file); }
        google::uint32 LogSize() override { return 0; }

    private:
        std::FILE* const m_file = std::fopen("/dev/null", "ae");
    };

    const Prefix m_prefix;
    NullFile m_file;
    google::base::Logger* m_before = nullptr;
};

}  // namespace bench

#endif  // BENCHMARKS_LOGGERS_GLOG_LOGGER_H
