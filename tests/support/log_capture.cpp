#include "support/log_capture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ostream>

#include "support/event.h"
#include "support/fault_injection.h"

namespace test {

using tevalon::base::kBlogModule;

bool operator==(const LogEntry& left, const LogEntry& right) {
    return left.level == right.level && left.module == right.module && left.text == right.text;
}

std::ostream& operator<<(std::ostream& stream, const LogEntry& entry) {
    stream << "{level " << entry.level << ", module " << entry.module << ", \"";
    for (const char c : entry.text) {
        if (c == '\n') {
            stream << "\\n";
        } else {
            stream << c;
        }
    }
    return stream << "\"}";
}

std::string withoutLineNumber(const std::string& text) {
    for (const char* ending : {".cpp:", ".h:"}) {
        const std::size_t ended = text.find(ending);
        if (ended == std::string::npos) continue;
        const std::size_t first = ended + std::strlen(ending);
        const std::size_t behind = text.find_first_not_of("0123456789", first);
        if (behind == first || behind == std::string::npos || text[behind] != ':') continue;
        return text.substr(0, first) + "#" + text.substr(behind);
    }
    return text;
}

void setLogLevel(std::uint16_t level) {
    const PassCalls pass;
    const std::string setting = std::to_string(kBlogModule) + "=" + std::to_string(level);
    if (zorDebugSetLevels(setting.c_str()) == 0) return;
    std::fprintf(stderr, "log capture: cannot set the levels '%s'\n", setting.c_str());
    std::abort();
}

LogCapture::LogCapture(std::uint16_t level) : m_levelBefore(zorDebugGetLevel(kBlogModule)) {
    const PassCalls pass;
    setLogLevel(level);
    zorDebugInstallCapture(&LogCapture::capture, this);
}

LogCapture::~LogCapture() {
    const PassCalls pass;
    zorDebugRemoveCapture();
    setLogLevel(m_levelBefore);
}

std::vector<LogEntry> LogCapture::entries() const {
    const PassCalls pass;
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_entries;
}

std::vector<LogEntry> LogCapture::entriesWithoutLineNumbers() const {
    const PassCalls pass;
    std::vector<LogEntry> result = entries();
    for (LogEntry& entry : result) entry.text = withoutLineNumber(entry.text);
    return result;
}

std::vector<std::string> LogCapture::texts() const {
    const PassCalls pass;
    std::vector<std::string> result;
    for (const LogEntry& entry : entries()) result.push_back(entry.text);
    return result;
}

std::vector<std::string> LogCapture::texts(std::uint16_t level) const {
    const PassCalls pass;
    std::vector<std::string> result;
    for (const LogEntry& entry : entries()) {
        if (entry.level == level) result.push_back(entry.text);
    }
    return result;
}

bool LogCapture::waitFor(const std::string& part) const {
    const PassCalls pass;
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_grown.wait_for(lock, kPatience, [&] { return contains(part); });
}

bool LogCapture::contains(const std::string& part) const {
    return std::any_of(m_entries.begin(), m_entries.end(), [&](const LogEntry& entry) {
        return entry.text.find(part) != std::string::npos;
    });
}

void LogCapture::clear() {
    const PassCalls pass;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_entries.clear();
}

void LogCapture::capture(void* p_self, const DebugLevelRecord* p_record, const char* p_text,
                         std::size_t length) {
    const PassCalls pass;
    auto* const self = static_cast<LogCapture*>(p_self);
    const std::lock_guard<std::mutex> lock(self->m_mutex);
    self->m_entries.push_back({p_record->level, std::string(p_text, length), p_record->module});
    self->m_grown.notify_all();
}

}  // namespace test
