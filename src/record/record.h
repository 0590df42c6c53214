// record.h: what the families record of themselves, for base/diagnostics/recorder.h.
//
//     if (record::isOn()) record::hubRegistered(this, m_moduleId);
//
// While nothing is recorded that is a load and a branch. The call itself takes no lock, allocates
// nothing, and is no cancellation point.

#ifndef SRC_RECORD_RECORD_H
#define SRC_RECORD_RECORD_H

#include <atomic>
#include <cstdint>

#include "record/format.h"

namespace tevalon::base::record {

#ifdef TEVALON_BASE_NO_DIAGNOSTICS

constexpr bool isOn() {
    return false;
}

#else

/// Set by the recorder alone. Hidden, unlike what the public header asks, for it is read without a
/// look at the linker's table of addresses.
extern __attribute__((visibility("hidden"))) std::atomic<bool> g_isOn;

/// Relaxed: who sees it late misses a record, or finds in the recorder that there is none.
inline bool isOn() {
    return g_isOn.load(std::memory_order_relaxed);
}

#endif

void eventCreated(const void* p_event, std::int32_t type, std::int32_t source);
void eventSent(const void* p_event, std::int32_t type, std::int32_t source, std::int32_t target);
/// @param length  Of the queue, this event included.
void eventQueued(const void* p_event, std::int32_t type, std::int32_t source, std::int32_t target,
                 std::int32_t length);
void eventRefused(const void* p_event, std::int32_t type, std::int32_t source, std::int32_t target,
                  Refusal reason);
void handlerBegun(const void* p_event, std::int32_t type, std::int32_t source, std::int32_t module);
void handlerEnded(const void* p_event, std::int32_t type, std::int32_t source, std::int32_t module);
void eventReplied(const void* p_event, std::int32_t type, std::int32_t result);
void eventAwaited(const void* p_event, std::int32_t type, std::int32_t timeoutMs);
void eventAwaitedInVain(const void* p_event, std::int32_t type, std::int32_t timeoutMs);
/// An event that ends without a reply though somebody waits for one.
void eventUnanswered(const void* p_event, std::int32_t type, std::int32_t source);

void taskPosted(const void* p_task, std::int32_t taskId, std::int32_t sessionId,
                std::int64_t delayNs);
void taskCancelled(const void* p_task, std::int32_t taskId, std::int32_t sessionId);
void taskBegun(const void* p_task, std::int32_t taskId, std::int32_t sessionId);
void taskEnded(const void* p_task, std::int32_t taskId, std::int32_t sessionId);

/// @param name  Cut at kTextBytes; null is "".
void timerStarted(const void* p_timer, const char* name, std::int64_t delayNs);
void timerStopped(const void* p_timer);
void timerDue(const void* p_timer);
void timerRunBegun(const void* p_timer, const char* name);
void timerRunEnded(const void* p_timer);

void watchBegun(std::int32_t id, double allowedSeconds);
void watchOverdue(std::int32_t id, double elapsedSeconds);
void watchEnded(std::int32_t id);

void hubRegistered(const void* p_hub, std::int32_t module);
void hubUnregistered(const void* p_hub, std::int32_t module);
void hubThreadStarted(const void* p_hub, std::int32_t module);
void hubThreadEnded(const void* p_hub, std::int32_t module);

/// @param threadId  Kernel id of the thread that was waited for; 0 where that is not known.
void waited(Wait where, const void* p_object, std::int32_t threadId, std::uint64_t ns);

/// What clients add: @p kind is Mark, ScopeBegun, ScopeEnded, both without a value, or Counter.
void clientEntry(Kind kind, const char* text, std::int64_t value);

inline void mark(const char* text, std::int64_t value) {
    clientEntry(Kind::Mark, text, value);
}
inline void scopeBegun(const char* text) {
    clientEntry(Kind::ScopeBegun, text, 0);
}
inline void scopeEnded(const char* text) {
    clientEntry(Kind::ScopeEnded, text, 0);
}
inline void counter(const char* text, std::int64_t value) {
    clientEntry(Kind::Counter, text, value);
}

}  // namespace tevalon::base::record

#endif  // SRC_RECORD_RECORD_H
