#include "timeline.h"

#include "base/synchronization/auto_lock.h"

namespace tv_browser {
namespace {

using tevalon::base::AutoLock;

constexpr std::size_t kModuleWidth = 19;
constexpr std::size_t kTextWidth = 48;

const char* signText(Sign sign) {
    switch (sign) {
        case Sign::Does:
            return "  ";
        case Sign::Asks:
            return "->";
        case Sign::Tells:
            return "=>";
        case Sign::Replied:
            return "<-";
        case Sign::GaveUp:
            return "!!";
    }
    return "??";
}

std::string padded(std::string text, std::size_t width) {
    if (text.size() < width) text.append(width - text.size(), ' ');
    return text;
}

std::string milliseconds(Timeline::Clock::duration duration) {
    char text[32];
    std::snprintf(text, sizeof text, "%8.1f ms",
                  std::chrono::duration<double, std::milli>(duration).count());
    return text;
}

std::string row(const std::string& time, const std::string& module, Sign sign,
                const std::string& text) {
    return time + "  " + padded(module, kModuleWidth) + "  " + signText(sign) + " " + text;
}

}  // namespace

void Timeline::begin(const std::string& title) {
    const AutoLock lock(m_mutex);
    write(title);
    write(
        "   -> asks and waits   <- gets the reply   => tells, does not wait   !! in vain, or late");
    write("");
    write(row(" seconds", "module", Sign::Does, padded("what happens", kTextWidth)) +
          "   duration");
}

void Timeline::add(ModuleId module, Sign sign, const std::string& text) {
    const AutoLock lock(m_mutex);
    write(row(time(), nameOf(module), sign, text));
}

void Timeline::add(ModuleId module, Sign sign, const std::string& text, Clock::duration duration) {
    const AutoLock lock(m_mutex);
    write(row(time(), nameOf(module), sign, padded(text, kTextWidth)) + milliseconds(duration));
}

void Timeline::chapter(const std::string& text) {
    const AutoLock lock(m_mutex);
    write("");
    write(time() + "  " + text);
}

bool Timeline::complete() {
    const AutoLock lock(m_mutex);
    return m_complete;
}

// Flushed line by line: whoever watches sees it now, also through a pipe, and beside the log.
void Timeline::write(const std::string& line) {
    if (std::fprintf(m_output, "%s\n", line.c_str()) < 0) m_complete = false;
    if (std::fflush(m_output) != 0) m_complete = false;
}

// Read under the lock, so that no line is older than the one above it.
std::string Timeline::time() const {
    char text[32];
    std::snprintf(text, sizeof text, "%8.3f",
                  std::chrono::duration<double>(Clock::now() - m_start).count());
    return text;
}

}  // namespace tv_browser
