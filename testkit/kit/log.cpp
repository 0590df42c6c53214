#include "testkit/log.h"

#include <sys/syscall.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <mutex>
#include <ostream>
#include <string_view>
#include <thread>

#include "abnormal_end.h"
#include "interposition.h"
#include "message_text.h"
#include "schedule.h"
#include "zor_debug/zor_debug.h"

namespace tevalon::testkit {
namespace {

constexpr std::uint16_t kErrorLevel = 1000;
constexpr std::chrono::seconds kPatience{30};
constexpr std::size_t kMostShown = 500;         // Of a log's lines.
constexpr std::size_t kMostShownAtTheEnd = 50;  // Of the process.
constexpr int kAttempts = 10'000;               // At a lock, when the process ends.

struct Capture {
    std::mutex mutex;
    std::condition_variable grown;
    bool isOn = false;       // All guarded by the mutex.
    bool isWritten = false;  // By writeLastLines().
    std::vector<LogLine> lines;
    std::map<std::thread::id, LogLine> pieces;  // Of lines that have not ended.
};

// Never destroyed: there may be logging for as long as the process lives.
Capture& capture() {
    static auto* const s_capture = new Capture;
    return *s_capture;
}

// 0 while there is no capture. A level that is just being switched on may be missed.
std::atomic<unsigned> g_level{0};
thread_local DebugLevelRecord t_lastOn;

// False without a capture.
bool take(std::string_view text) {
    Capture& to = capture();
    const std::lock_guard<std::mutex> lock(to.mutex);
    if (!to.isOn) return false;
    LogLine& piece = to.pieces[std::this_thread::get_id()];
    if (piece.text.empty()) piece = {t_lastOn.level, t_lastOn.module, {}};
    piece.text += text;
    if (text.empty() || text.back() != '\n') return true;
    to.lines.push_back(std::move(piece));
    to.pieces.erase(std::this_thread::get_id());
    to.grown.notify_all();
    return true;
}

std::string formatted(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));

std::string formatted(const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (length <= 0) return {};
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    (void)std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

std::string counted(std::size_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// The handler before this capture's; exchanged for null by whoever calls or restores it.
std::atomic<std::terminate_handler> g_previousTerminate{nullptr};

// The process is about to end abnormally: the captured lines would be lost. Once for a capture.
// Tries for the lock only: this thread may have it.
void writeLastLines() {
    // Takes no turns, or no more: for the thread sanitizer it may have ended.
    if (kit::isOn() && !kit::isManaged()) return;
    if (g_level.load() == 0) return;
    Capture& from = capture();
    std::unique_lock<std::mutex> lock(from.mutex, std::try_to_lock);
    for (int i = 0; i < kAttempts && !lock.owns_lock(); ++i) {
        (void)kit::systemCall(SYS_sched_yield);
        (void)lock.try_lock();
    }
    if (!lock.owns_lock() || !from.isOn || from.isWritten) return;
    from.isWritten = true;
    const std::size_t count = std::min(from.lines.size(), kMostShownAtTheEnd);
    std::ostringstream text;
    text << "testkit: the process ends abnormally; the captured log's last " << count << " of "
         << counted(from.lines.size(), "line") << ":";
    for (std::size_t i = from.lines.size() - count; i < from.lines.size(); ++i) {
        text << "\n    ";
        PrintTo(from.lines[i], &text);
    }
    (void)std::fprintf(stderr, "%s\n", text.str().c_str());
}

[[noreturn]] void onTerminate() {
    writeLastLines();
    // At most once: a handler that was installed over this one calls it, and may have become the
    // previous one of the next capture.
    const std::terminate_handler previous = g_previousTerminate.exchange(nullptr);
    if (previous != nullptr) previous();
    std::abort();
}

std::size_t countOf(const LineMatcher& wanted, const std::vector<LogLine>& lines) {
    std::size_t count = 0;
    for (const LogLine& line : lines) count += wanted.matches(line) ? 1 : 0;
    return count;
}

// Of the matchers, in order, how many lines were found for.
std::size_t foundInOrder(const std::vector<LineMatcher>& wanted,
                         const std::vector<LogLine>& lines) {
    std::size_t found = 0;
    for (const LogLine& line : lines) {
        if (found < wanted.size() && wanted[found].matches(line)) ++found;
    }
    return found;
}

std::string nameOf(std::uint16_t level) {
    switch (level) {
        case 1:
            return "always";
        case kErrorLevel:
            return "error";
        case 3000:
            return "warning";
        case 4000:
            return "info";
        case 5000:
            return "debug";
        default:
            return "level " + std::to_string(level);
    }
}

}  // namespace

CapturedLog::CapturedLog(std::uint16_t level) {
    Capture& to = capture();
    const std::lock_guard<std::mutex> lock(to.mutex);
    if (to.isOn) {
        (void)std::fputs("testkit: one CapturedLog at a time\n", stderr);
        std::abort();
    }
    to.isOn = true;
    to.isWritten = false;
    to.lines.clear();
    to.pieces.clear();
    g_level = level;
    kit::callBeforeAbort(writeLastLines);
    g_previousTerminate = std::set_terminate(onTerminate);
}

CapturedLog::~CapturedLog() {
    Capture& to = capture();
    const std::lock_guard<std::mutex> lock(to.mutex);
    g_level = 0;
    to.isOn = false;
    // One that the test has installed meanwhile stays, and goes on to this one.
    if (std::get_terminate() == onTerminate) {
        (void)std::set_terminate(g_previousTerminate.exchange(nullptr));
    }
}

std::vector<LogLine> CapturedLog::lines() const {
    Capture& from = capture();
    const std::lock_guard<std::mutex> lock(from.mutex);
    return from.lines;
}

void CapturedLog::clear() {
    Capture& to = capture();
    const std::lock_guard<std::mutex> lock(to.mutex);
    to.lines.clear();
}

bool CapturedLog::waitFor(const LogMessage& message, std::size_t count) const {
    const LineMatcher wanted = Message(message);
    Capture& from = capture();
    std::unique_lock<std::mutex> lock(from.mutex);
    return from.grown.wait_for(lock, kPatience,
                               [&] { return countOf(wanted, from.lines) >= count; });
}

void PrintTo(const LogLine& line, std::ostream* p_stream) {
    *p_stream << "(" << nameOf(line.level) << ") \"";
    for (const char letter : line.text) {
        if (letter == '\n') {
            *p_stream << "\\n";
        } else {
            *p_stream << letter;
        }
    }
    *p_stream << "\"";
}

void PrintTo(const CapturedLog& log, std::ostream* p_stream) {
    const std::vector<LogLine> lines = log.lines();
    *p_stream << "a log of " << counted(lines.size(), "line");
    const std::size_t leftOut = lines.size() - std::min(lines.size(), kMostShown);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (leftOut > 0 && i == kMostShown / 2) {
            *p_stream << "\n    ... " << counted(leftOut, "line") << " ...";
            i += leftOut;
        }
        *p_stream << "\n    ";
        PrintTo(lines[i], p_stream);
    }
}

bool LineMatcher::matches(const LogLine& line) const {
    if (m_message == nullptr) return line.text.find(m_texts.front()) != std::string::npos;
    if (m_message->level != 0 && m_message->level != line.level) return false;
    const auto values = kit::valuesOf(*m_message, line.text);
    if (!values || values->size() < m_texts.size()) return false;
    return std::equal(m_texts.begin(), m_texts.end(), values->begin());
}

void LineMatcher::DescribeTo(std::ostream* p_stream) const {
    describe(true, p_stream);
}

void LineMatcher::DescribeNegationTo(std::ostream* p_stream) const {
    describe(false, p_stream);
}

void LineMatcher::describe(bool isWanted, std::ostream* p_stream) const {
    if (m_message == nullptr) {
        *p_stream << (isWanted ? "has \"" : "does not have \"") << m_texts.front() << "\" in it";
        return;
    }
    *p_stream << (isWanted ? "is '" : "is not '") << m_message->name << "'";
    for (std::size_t i = 0; i < m_texts.size(); ++i) {
        *p_stream << (i == 0 ? " of \"" : ", \"") << m_texts[i] << "\"";
    }
}

bool LogMatcher::MatchAndExplain(const CapturedLog& log, std::ostream* p_explanation) const {
    const std::vector<LogLine> lines = log.lines();
    std::ostringstream explanation;
    bool isMatch = true;
    switch (m_kind) {
        case Kind::NoError:
            for (const LogLine& line : lines) {
                if (line.level != kErrorLevel) continue;
                explanation << (isMatch ? "errors: " : ", ");
                PrintTo(line, &explanation);
                isMatch = false;
            }
            break;
        case Kind::Times:
        case Kind::AtLeast: {
            const std::size_t count = countOf(m_lines.front(), lines);
            explanation << counted(count, "such line");
            isMatch = m_kind == Kind::Times ? count == m_count : count >= m_count;
            break;
        }
        case Kind::InOrder: {
            const std::size_t found = foundInOrder(m_lines, lines);
            isMatch = found == m_lines.size();
            if (isMatch) break;
            if (found == 0) {
                explanation << "there is no line that ";
            } else {
                explanation << "after the first " << (found == 1 ? "" : std::to_string(found) + " ")
                            << "of these there is none that ";
            }
            m_lines[found].DescribeTo(&explanation);
            break;
        }
    }
    if (p_explanation != nullptr) *p_explanation << explanation.str();
    return isMatch;
}

void LogMatcher::DescribeTo(std::ostream* p_stream) const {
    describe(true, p_stream);
}

void LogMatcher::DescribeNegationTo(std::ostream* p_stream) const {
    describe(false, p_stream);
}

void LogMatcher::describe(bool isWanted, std::ostream* p_stream) const {
    const char* const each = m_count == 1 ? " that " : " each of which ";
    switch (m_kind) {
        case Kind::NoError:
            *p_stream << (isWanted ? "has no error in it" : "has an error in it");
            return;
        case Kind::Times:
            if (m_count == 0) {
                *p_stream << (isWanted ? "has no line that " : "has a line that ");
            } else {
                *p_stream << (isWanted ? "has exactly " : "does not have exactly ")
                          << counted(m_count, "line") << each;
            }
            break;
        case Kind::AtLeast:
            if (m_count == 1) {
                *p_stream << (isWanted ? "has a line that " : "has no line that ");
            } else {
                *p_stream << (isWanted ? "has at least " : "has fewer than ")
                          << counted(m_count, "line") << each;
            }
            break;
        case Kind::InOrder:
            *p_stream << (isWanted ? "has" : "does not have") << ", in this order, a line that ";
            break;
    }
    for (std::size_t i = 0; i < m_lines.size(); ++i) {
        if (i > 0) *p_stream << ", then one that ";
        m_lines[i].DescribeTo(p_stream);
    }
}

}  // namespace tevalon::testkit

namespace testkit = tevalon::testkit;

extern "C" {
// As the macro declares them, and with what the compiler checks formats by.
int tevalonKit_zorDebugOutputV(const char* p_format, va_list arguments) __asm__("zorDebugOutputV")
    __attribute__((format(printf, 1, 0)));
int tevalonKit_zorDebugOutput0(const char* p_format, ...) __asm__("zorDebugOutput0")
    __attribute__((format(printf, 1, 2)));
}

TEVALON_KIT_DEFINE(zorDebugCheckLevelGetFrameAndChunk, std::int32_t,
                   (DebugLevelRecord * p_record)) {
    const unsigned level = testkit::g_level.load(std::memory_order_relaxed);
    if (level == 0) return next_zorDebugCheckLevelGetFrameAndChunk()(p_record);
    if (p_record->level > level) return 0;
    testkit::t_lastOn = *p_record;
    return 1;
}

TEVALON_KIT_DEFINE(zorDebugOutputV, int, (const char* p_format, va_list arguments)) {
    if (p_format == nullptr) return 0;
    if (testkit::g_level.load(std::memory_order_relaxed) != 0) {
        va_list copy;
        va_copy(copy, arguments);
        const std::string text = testkit::formatted(p_format, copy);
        va_end(copy);
        if (testkit::take(text)) return static_cast<int>(text.size());
    }
    return next_zorDebugOutputV()(p_format, arguments);
}

TEVALON_KIT_DEFINE(zorDebugOutput0, int, (const char* p_format, ...)) {
    va_list arguments;
    va_start(arguments, p_format);
    const int written = tevalonKit_zorDebugOutputV(p_format, arguments);
    va_end(arguments);
    return written;
}
