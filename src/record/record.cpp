#include "record/record.h"

#include <cstring>

#include "record/writer.h"

namespace tevalon::base::record {

#ifndef TEVALON_BASE_NO_DIAGNOSTICS
std::atomic<bool> g_isOn{false};
#endif

namespace {

constexpr std::size_t kWordBytes = sizeof(std::uint64_t);
constexpr std::size_t kTextWords = kTextBytes / kWordBytes;

std::uint64_t address(const void* p_object) {
    return reinterpret_cast<std::uintptr_t>(p_object);
}

std::uint64_t pair(std::int32_t low, std::int32_t high) {
    return static_cast<std::uint64_t>(static_cast<std::uint32_t>(high)) << 32 |
           static_cast<std::uint32_t>(low);
}

std::uint64_t word(std::int64_t value) {
    return static_cast<std::uint64_t>(value);
}

// Limits what a double may hold: neither NaN nor a huge one fits.
std::uint64_t nanoseconds(double seconds) {
    constexpr double kMost = 9e9;  // Seconds; 285 years.
    if (!(seconds > -kMost)) return word(INT64_MIN);
    if (!(seconds < kMost)) return word(INT64_MAX);
    return word(static_cast<std::int64_t>(seconds * 1e9));
}

template <typename... Words>
void put(Kind kind, Words... words) {
    const std::uint64_t content[] = {words...};
    append(kind, content, sizeof...(words));
}

// Out of line, and once for all that carry a text.
__attribute__((noinline)) void putText(Kind kind, const char* text, unsigned count = 0,
                                       std::uint64_t first = 0, std::uint64_t second = 0) {
    std::uint64_t content[2 + kTextWords];
    content[0] = first;
    content[1] = second;
    const std::size_t length = text != nullptr ? strnlen(text, kTextBytes) : 0;
    if (length > 0) {
        const std::size_t words = (length + kWordBytes - 1) / kWordBytes;
        content[count + words - 1] = 0;  // For what the text leaves of it.
        std::memcpy(&content[count], text, length);
        count += static_cast<unsigned>(words);
    }
    append(kind, content, count);
}

}  // namespace

void eventCreated(const void* p_event, std::int32_t type, std::int32_t source) {
    put(Kind::EventCreated, address(p_event), pair(type, source));
}

void eventSent(const void* p_event, std::int32_t type, std::int32_t source, std::int32_t target) {
    put(Kind::EventSent, address(p_event), pair(type, source), pair(target, 0));
}

void eventQueued(const void* p_event, std::int32_t type, std::int32_t source, std::int32_t target,
                 std::int32_t length) {
    put(Kind::EventQueued, address(p_event), pair(type, source), pair(target, length));
}

void eventRefused(const void* p_event, std::int32_t type, std::int32_t source, std::int32_t target,
                  Refusal reason) {
    put(Kind::EventRefused, address(p_event), pair(type, source),
        pair(target, static_cast<std::int32_t>(reason)));
}

void handlerBegun(const void* p_event, std::int32_t type, std::int32_t source,
                  std::int32_t module) {
    put(Kind::HandlerBegun, address(p_event), pair(type, source), pair(module, 0));
}

void handlerEnded(const void* p_event, std::int32_t type, std::int32_t source,
                  std::int32_t module) {
    put(Kind::HandlerEnded, address(p_event), pair(type, source), pair(module, 0));
}

void eventReplied(const void* p_event, std::int32_t type, std::int32_t result) {
    put(Kind::EventReplied, address(p_event), pair(type, result));
}

void eventAwaited(const void* p_event, std::int32_t type, std::int32_t timeoutMs) {
    put(Kind::EventAwaited, address(p_event), pair(type, timeoutMs));
}

void eventAwaitedInVain(const void* p_event, std::int32_t type, std::int32_t timeoutMs) {
    put(Kind::EventAwaitedInVain, address(p_event), pair(type, timeoutMs));
}

void eventUnanswered(const void* p_event, std::int32_t type, std::int32_t source) {
    put(Kind::EventUnanswered, address(p_event), pair(type, source));
}

void taskPosted(const void* p_task, std::int32_t taskId, std::int32_t sessionId,
                std::int64_t delayNs) {
    put(Kind::TaskPosted, address(p_task), pair(taskId, sessionId), word(delayNs));
}

void taskCancelled(const void* p_task, std::int32_t taskId, std::int32_t sessionId) {
    put(Kind::TaskCancelled, address(p_task), pair(taskId, sessionId));
}

void taskBegun(const void* p_task, std::int32_t taskId, std::int32_t sessionId) {
    put(Kind::TaskBegun, address(p_task), pair(taskId, sessionId));
}

void taskEnded(const void* p_task, std::int32_t taskId, std::int32_t sessionId) {
    put(Kind::TaskEnded, address(p_task), pair(taskId, sessionId));
}

void timerStarted(const void* p_timer, const char* name, std::int64_t delayNs) {
    putText(Kind::TimerStarted, name, 2, address(p_timer), word(delayNs));
}

void timerStopped(const void* p_timer) {
    put(Kind::TimerStopped, address(p_timer));
}

void timerDue(const void* p_timer) {
    put(Kind::TimerDue, address(p_timer));
}

void timerRunBegun(const void* p_timer, const char* name) {
    putText(Kind::TimerRunBegun, name, 1, address(p_timer));
}

void timerRunEnded(const void* p_timer) {
    put(Kind::TimerRunEnded, address(p_timer));
}

void watchBegun(std::int32_t id, double allowedSeconds) {
    put(Kind::WatchBegun, pair(id, 0), nanoseconds(allowedSeconds));
}

void watchOverdue(std::int32_t id, double elapsedSeconds) {
    put(Kind::WatchOverdue, pair(id, 0), nanoseconds(elapsedSeconds));
}

void watchEnded(std::int32_t id) {
    put(Kind::WatchEnded, pair(id, 0));
}

void hubRegistered(const void* p_hub, std::int32_t module) {
    put(Kind::HubRegistered, address(p_hub), pair(module, 0));
}

void hubUnregistered(const void* p_hub, std::int32_t module) {
    put(Kind::HubUnregistered, address(p_hub), pair(module, 0));
}

void hubThreadStarted(const void* p_hub, std::int32_t module) {
    put(Kind::HubThreadStarted, address(p_hub), pair(module, 0));
}

void hubThreadEnded(const void* p_hub, std::int32_t module) {
    put(Kind::HubThreadEnded, address(p_hub), pair(module, 0));
}

void waited(Wait where, const void* p_object, std::int32_t threadId, std::uint64_t ns) {
    put(Kind::Waited, address(p_object), pair(static_cast<std::int32_t>(where), threadId), ns);
}

void clientEntry(Kind kind, const char* text, std::int64_t value) {
    const bool hasValue = kind == Kind::Mark || kind == Kind::Counter;
    putText(kind, text, hasValue ? 1 : 0, word(value));
}

}  // namespace tevalon::base::record
