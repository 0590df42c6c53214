#include "text.h"

#include <cinttypes>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace tevalon::trace {
namespace {

using record::Kind;
using record::NameKind;

constexpr std::uint64_t kSecondNs = 1000000000;

std::string format(const char* format, ...) __attribute__((format(printf, 1, 2)));

std::string format(const char* format, ...) {
    char text[512];  // Texts in a recording are far shorter.
    va_list args;
    va_start(args, format);
    (void)std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    return text;
}

/// Without what would move a terminal's cursor.
std::string printable(const std::string& text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7F) {
            result += format("\\x%02x", byte);
        } else {
            result += c;
        }
    }
    return result;
}

std::string seconds(std::uint64_t ns) {
    return format("%" PRIu64 ".%09" PRIu64, ns / kSecondNs, ns % kSecondNs);
}

std::string milliseconds(std::uint64_t ns) {
    return format("%.3f ms", static_cast<double>(static_cast<std::int64_t>(ns)) / 1e6);
}

std::string mebibytes(std::uint64_t bytes) {
    return format("%.1f MiB", static_cast<double>(bytes) / (1 << 20));
}

std::string dateOf(std::uint64_t realtimeNs) {
    const auto time = static_cast<std::time_t>(realtimeNs / kSecondNs);
    std::tm date = {};
    if (gmtime_r(&time, &date) == nullptr) return "an unknown date";
    return format("%04d-%02d-%02d %02d:%02d:%02d.%03d UTC", date.tm_year + 1900, date.tm_mon + 1,
                  date.tm_mday, date.tm_hour, date.tm_min, date.tm_sec,
                  static_cast<int>(realtimeNs % kSecondNs / 1000000));
}

std::string hexOf(const std::uint8_t (&bytes)[record::kBuildIdBytes]) {
    std::string text;
    bool isKnown = false;
    for (const std::uint8_t byte : bytes) {
        text += format("%02x", byte);
        isKnown = isKnown || byte != 0;
    }
    return isKnown ? text : "unknown";
}

/// Writes the sentence of one record.
class Sentence {
public:
    Sentence(const Recording& recording, const Record& record)
        : m_recording(recording), m_record(record) {}

    std::string text() const;

private:
    std::string named(NameKind kind, std::int32_t id) const {
        const auto found = m_recording.names.find({kind, id});
        if (found == m_recording.names.end()) return std::to_string(id);
        return std::to_string(id) + " (" + printable(found->second) + ")";
    }
    std::string module(std::int32_t id) const {
        return id == INT_MIN ? "any" : named(NameKind::Module, id);
    }
    std::string address(const char* what) const {
        return format("%s 0x%" PRIx64, what, m_record.word(0));
    }
    std::string quoted(std::size_t index) const {
        return "'" + printable(m_record.text(index)) + "'";
    }
    std::string event() const {
        return address("event") + " type " + named(NameKind::Event, m_record.low(1));
    }
    std::string eventFrom() const { return event() + " from " + module(m_record.high(1)); }
    std::string task() const {
        return address("task") + " id " + named(NameKind::Task, m_record.low(1)) + " session " +
               std::to_string(m_record.high(1));
    }
    std::string hub() const { return address("hub") + " of " + module(m_record.low(1)); }
    std::string watch() const { return "watch " + std::to_string(m_record.low(0)); }
    std::string refusal() const;
    std::string wait() const;
    std::string memory() const;
    std::string unknown() const;

    const Recording& m_recording;
    const Record& m_record;
};

std::string Sentence::refusal() const {
    switch (static_cast<record::Refusal>(m_record.high(2))) {
        case record::Refusal::NoHub:
            return "no hub of that module";
        case record::Refusal::NoHandler:
            return "no handler takes it";
        case record::Refusal::NoEvent:
            return "no event, or it could not be armed";
        case record::Refusal::QueueFull:
            return "its queue is full";
    }
    return "reason " + std::to_string(m_record.high(2));
}

std::string Sentence::wait() const {
    std::string where;
    switch (static_cast<record::Wait>(m_record.low(1))) {
        case record::Wait::Lock:
            where = address("for the lock of");
            break;
        case record::Wait::Stop:
            where = address("inside a stop of");
            break;
        case record::Wait::Destructor:
            where = address("inside the destructor of");
            break;
        case record::Wait::Unregister:
            where = address("inside an unregister of");
            break;
        default:
            where = address("for");
            break;
    }
    if (m_record.high(1) != 0) where += " for thread " + std::to_string(m_record.high(1));
    return "waited " + milliseconds(m_record.word(2)) + " " + where;
}

std::string Sentence::memory() const {
    std::string text = "memory: resident " + mebibytes(m_record.word(0)) + ", of it private " +
                       mebibytes(m_record.word(1));
    if (m_record.word(2) != 0) text += ", heap in use " + mebibytes(m_record.word(2));
    return text + ", at " + dateOf(m_record.word(3));
}

std::string Sentence::unknown() const {
    std::string text = format("record of unknown kind %d:", static_cast<int>(m_record.kind));
    for (const std::uint64_t word : m_record.content) text += format(" 0x%" PRIx64, word);
    return text;
}

std::string Sentence::text() const {
    const Record& r = m_record;
    switch (r.kind) {
        case Kind::EventCreated:
            return eventFrom() + " created";
        case Kind::EventSent:
            return eventFrom() + " sent to " + module(r.low(2));
        case Kind::EventQueued:
            return eventFrom() + " queued for " + module(r.low(2)) + ", queue length " +
                   std::to_string(r.high(2));
        case Kind::EventRefused:
            return eventFrom() + " refused by " + module(r.low(2)) + ": " + refusal();
        case Kind::HandlerBegun:
            return eventFrom() + " handler of " + module(r.low(2)) + " begun";
        case Kind::HandlerEnded:
            return eventFrom() + " handler of " + module(r.low(2)) + " ended";
        case Kind::EventReplied:
            return event() + " replied " + std::to_string(r.high(1));
        case Kind::EventAwaited:
            return event() + " waited for" +
                   (r.high(1) == -1 ? "" : ", at most " + std::to_string(r.high(1)) + " ms");
        case Kind::EventAwaitedInVain:
            return event() + " waited for in vain, " + std::to_string(r.high(1)) + " ms";
        case Kind::EventUnanswered:
            return eventFrom() + " ended without a reply though one waits";
        case Kind::TaskPosted:
            return task() + " posted, due in " + milliseconds(r.word(2));
        case Kind::TaskCancelled:
            return task() + " cancelled";
        case Kind::TaskBegun:
            return task() + " begun";
        case Kind::TaskEnded:
            return task() + " ended";
        case Kind::TimerStarted:
            return address("timer") + " " + quoted(2) + " started, due in " +
                   milliseconds(r.word(1));
        case Kind::TimerStopped:
            return address("timer") + " stopped";
        case Kind::TimerDue:
            return address("timer") + " due";
        case Kind::TimerRunBegun:
            return address("timer") + " " + quoted(1) + " run begun";
        case Kind::TimerRunEnded:
            return address("timer") + " run ended";
        case Kind::WatchBegun:
            return watch() + " begun, allowed " + milliseconds(r.word(1));
        case Kind::WatchOverdue:
            return watch() + " overdue after " + milliseconds(r.word(1));
        case Kind::WatchEnded:
            return watch() + " ended";
        case Kind::HubRegistered:
            return hub() + " registered";
        case Kind::HubUnregistered:
            return hub() + " unregistered";
        case Kind::HubThreadStarted:
            return hub() + " thread started";
        case Kind::HubThreadEnded:
            return hub() + " thread ended";
        case Kind::Waited:
            return wait();
        case Kind::Memory:
            return memory();
        case Kind::Mark:
            return "mark " + quoted(1) + " " + format("%" PRId64, std::int64_t(r.word(0)));
        case Kind::ScopeBegun:
            return "scope " + quoted(0) + " begun";
        case Kind::ScopeEnded:
            return "scope " + quoted(0) + " ended";
        case Kind::Counter:
            return "counter " + quoted(1) + " " + format("%" PRId64, std::int64_t(r.word(0)));
    }
    return unknown();
}

std::string missing(const Recording& recording) {
    std::string text;
    const record::Head& head = recording.head;
    if (head.recordsLost != 0) text += format("%u records lost\n", head.recordsLost);
    if (recording.unreadableBlocks != 0) {
        text += format("%u of %u blocks unreadable\n", recording.unreadableBlocks, head.blockCount);
    }
    if (head.namesGiven > head.nameCapacity) {
        text += format("%u names missing\n", head.namesGiven - head.nameCapacity);
    }
    return text;
}

template <std::size_t kSize>
std::string fixedText(const char (&text)[kSize]) {
    return printable(std::string(text, strnlen(text, kSize)));
}

}  // namespace

std::string describeHead(const Recording& recording) {
    const record::Head& head = recording.head;
    std::string text =
        format("process %u '%s', boot id %u, on %s with %d-bit pointers\n", head.processId,
               fixedText(head.processName).c_str(), head.bootId,
               fixedText(head.architecture).c_str(), 8 * static_cast<int>(head.pointerBytes));
    text += "build id of the program " + hexOf(head.programBuildId) + ", of the library " +
            hexOf(head.libraryBuildId) + "\n";
    text += "started at " + dateOf(head.startRealtimeNs) + ", monotonic " +
            seconds(head.startMonotonicNs);
    text += head.stopMonotonicNs != 0 ? ", stopped at monotonic " + seconds(head.stopMonotonicNs)
                                      : ", not stopped";
    text += format("\n%zu records of %zu threads\n", recording.records.size(),
                   recording.threads.size());
    return text + missing(recording);
}

std::string sentenceOf(const Recording& recording, const Record& record) {
    return Sentence(recording, record).text();
}

std::string describeRecord(const Recording& recording, const Record& record) {
    const Thread& thread = recording.threads.at(record.thread);
    return format("%s  %-15s %6u  ", seconds(record.timeNs).c_str(), printable(thread.name).c_str(),
                  thread.kernelId) +
           sentenceOf(recording, record);
}

}  // namespace tevalon::trace
