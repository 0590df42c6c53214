#include "event_dispatcher/async_sends.h"

#include <algorithm>
#include <utility>

#include "event_dispatcher/event_hub_impl.h"
#include "os/monotonic_time.h"

namespace tevalon::base::event_dispatcher {

std::shared_ptr<BrowserEvent> AsyncSend::eventForReceivers(
    const std::shared_ptr<AsyncSend>& self) const {
    return std::shared_ptr<BrowserEvent>(
        m_event.get(), [self](BrowserEvent*) { self->complete(kEventResultNone); });
}

// The hub is woken under the lock: it cannot be destroyed meanwhile.
void AsyncSend::complete(EventResult result) {
    if (isFromParent(m_sends->m_process)) return;
    const MutexGuard lock(m_sends->m_mutex);
    if (std::exchange(m_isComplete, true)) return;
    m_result = result;
    if (m_state != State::Pending) return;  // Still on its way: see add().
    m_state = State::Due;
    if (m_sends->m_hub != nullptr) m_sends->m_hub->wakeForCallbacks();
}

void AsyncSend::call() {
    const EventHub::ReplyCallback callback = std::move(m_callback);  // And gone with the call.
    m_callback = nullptr;
    callback(m_result, m_event);
}

void AsyncSends::add(const std::shared_ptr<AsyncSend>& send, std::int64_t deadline) {
    const MutexGuard lock(m_mutex);
    send->m_deadline = deadline;
    send->m_state = send->m_isComplete ? AsyncSend::State::Due : AsyncSend::State::Pending;
    std::shared_ptr<AsyncSend>* p_end = &m_first;
    while (*p_end != nullptr) p_end = &(*p_end)->m_next;
    *p_end = send;
    m_count.fetch_add(1, std::memory_order_release);
    // Also for a deadline alone: the thread may wait for a later one.
    if (m_hub != nullptr) m_hub->wakeForCallbacks();
}

std::int64_t AsyncSends::earliest() {
    const MutexGuard lock(m_mutex);
    std::int64_t earliest = kNever;
    for (const AsyncSend* p_send = m_first.get(); p_send != nullptr;
         p_send = p_send->m_next.get()) {
        if (p_send->m_state == AsyncSend::State::Due) return 0;
        earliest = std::min(earliest, p_send->m_deadline);
    }
    return earliest;
}

// Where the clock cannot be read all deadlines have passed: who knows no time does not wait.
std::int64_t AsyncSends::nowOrLate() {
    const auto now = static_cast<std::int64_t>(monotonicNanoseconds());
    return now != 0 ? now : kNever - 1;
}

std::shared_ptr<AsyncSend> AsyncSends::takeDue(std::int64_t now, bool isEnd) {
    const MutexGuard lock(m_mutex);
    for (std::shared_ptr<AsyncSend>* p_link = &m_first; *p_link != nullptr;
         p_link = &(*p_link)->m_next) {
        AsyncSend& send = **p_link;
        if (!isEnd && send.m_state != AsyncSend::State::Due && send.m_deadline > now) continue;
        if (!std::exchange(send.m_isComplete, true)) {
            send.m_result = isEnd ? kEventResultNone : kEventResultTimeout;
        }
        send.m_state = AsyncSend::State::Over;
        std::shared_ptr<AsyncSend> taken = std::move(*p_link);
        *p_link = std::move(taken->m_next);
        m_count.fetch_sub(1, std::memory_order_release);
        return taken;
    }
    return nullptr;
}

void AsyncSends::endOfHub() {
    {
        const MutexGuard lock(m_mutex);
        m_hub = nullptr;
    }
    while (const std::shared_ptr<AsyncSend> send = takeDue(0, true)) send->call();
}

}  // namespace tevalon::base::event_dispatcher
