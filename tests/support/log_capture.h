// log_capture.h: what the library logs while a test runs.

#ifndef TESTS_SUPPORT_LOG_CAPTURE_H
#define TESTS_SUPPORT_LOG_CAPTURE_H

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

#include "base/logging/log_level.h"
#include "zor_debug/zor_debug_control.h"

namespace test {

/// One output call: its whole text, and the level record it was checked with.
struct LogEntry {
    std::uint16_t level;
    std::string text;
    std::uint16_t module = tevalon::base::kBlogModule;
};

bool operator==(const LogEntry& left, const LogEntry& right);
std::ostream& operator<<(std::ostream& stream, const LogEntry& entry);

/// @p text with "#" for the number behind the source file's name: "a.cpp:#:f(): ...". For lines
/// whose number is free.
std::string withoutLineNumber(const std::string& text);

/// Collects all output of the process's log while it lives; at most one at a time. Any thread
/// may log meanwhile, and any thread may call any method. Not subject to the interventions of
/// fault_injection.h.
class LogCapture {
public:
    /// Has every level up to @p level on for the library's module.
    explicit LogCapture(std::uint16_t level = UINT16_MAX);
    /// Restores the level that was on before.
    ~LogCapture();

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// All entries in order of arrival.
    [[nodiscard]] std::vector<LogEntry> entries() const;
    /// The same behind withoutLineNumber().
    [[nodiscard]] std::vector<LogEntry> entriesWithoutLineNumbers() const;
    /// Their texts alone.
    [[nodiscard]] std::vector<std::string> texts() const;
    /// The texts at @p level.
    [[nodiscard]] std::vector<std::string> texts(std::uint16_t level) const;

    /// Blocks until some entry contains @p part; false when kPatience ran out first.
    [[nodiscard]] bool waitFor(const std::string& part) const;

    void clear();

private:
    static void capture(void* p_self, const DebugLevelRecord* p_record, const char* p_text,
                        std::size_t length);
    bool contains(const std::string& part) const;

    const std::uint16_t m_levelBefore;
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_grown;
    std::vector<LogEntry> m_entries;  // Guarded by m_mutex.
};

/// Sets the level of the library's module alone; 0 is off.
void setLogLevel(std::uint16_t level);

}  // namespace test

#endif  // TESTS_SUPPORT_LOG_CAPTURE_H
