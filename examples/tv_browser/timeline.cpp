#include "timeline.h"

#include "base/synchronization/auto_lock.h"

namespace tv_browser {

using tevalon::base::AutoLock;

void Timeline::begin(const std::string& title) {
    const AutoLock lock(m_mutex);
    write(m_layout->heading(title));
}

void Timeline::add(ModuleId module, Sign sign, const std::string& text) {
    const AutoLock lock(m_mutex);
    write(m_layout->row({seconds(), module, sign, text}));
}

void Timeline::add(ModuleId module, Sign sign, const std::string& text, Clock::duration duration) {
    const AutoLock lock(m_mutex);
    write(m_layout->row({seconds(), module, sign, text, duration}));
}

void Timeline::chapter(const std::string& text) {
    const AutoLock lock(m_mutex);
    write(m_layout->chapter(seconds(), text));
}

void Timeline::remark(const std::string& text) {
    const AutoLock lock(m_mutex);
    write("\n" + text + "\n");
}

bool Timeline::complete() {
    const AutoLock lock(m_mutex);
    return m_complete;
}

// Flushed line by line: whoever watches sees it now, also through a pipe, and beside the log.
void Timeline::write(const std::string& lines) {
    if (std::fputs(lines.c_str(), m_output) < 0) m_complete = false;
    if (std::fflush(m_output) != 0) m_complete = false;
}

// Read under the lock, so that no row is older than the one above it.
double Timeline::seconds() const {
    return std::chrono::duration<double>(Clock::now() - m_start).count();
}

}  // namespace tv_browser
