// event_fixtures.h: payloads and handlers that remember what became of them.

#ifndef TESTS_EVENT_DISPATCHER_EVENT_FIXTURES_H
#define TESTS_EVENT_DISPATCHER_EVENT_FIXTURES_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/event_dispatcher.h"
#include "base/logging/log_level.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/log_capture.h"

/// A payload that counts its deletions, through the derived destructor, in a counter that
/// outlives it.
class CountedParam : public tevalon::base::event_dispatcher::EventParam {
public:
    explicit CountedParam(std::atomic<int>* p_deletions) : m_deletions(p_deletions) {}
    ~CountedParam() override { ++*m_deletions; }

private:
    std::atomic<int>* m_deletions;
};

/// What a hub's handlers got, in the order in which they ran. Outlives the hubs it serves.
class Inbox {
public:
    using Event = std::shared_ptr<tevalon::base::event_dispatcher::BrowserEvent>;

    /// A handler that only takes the event in.
    std::function<void(Event)> handler() {
        return [this](Event event) { take(std::move(event)); };
    }

    void take(Event event) {
        const test::PassCalls pass;
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(std::move(event));
        m_threads.push_back(std::this_thread::get_id());
        m_grown.notify_all();
    }

    /// Blocks until @p count events have come; false when test::kPatience ran out first.
    [[nodiscard]] bool waitFor(std::size_t count) {
        const test::PassCalls pass;
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_grown.wait_for(lock, test::kPatience, [&] { return m_events.size() >= count; });
    }

    std::vector<Event> events() const {
        const test::PassCalls pass;
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }
    std::vector<std::thread::id> threads() const {
        const test::PassCalls pass;
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_threads;
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_grown;
    std::vector<Event> m_events;             // Guarded by m_mutex.
    std::vector<std::thread::id> m_threads;  // Guarded by m_mutex.
};

/// A line of the event sources, as entriesWithoutLineNumbers() has it.
inline test::LogEntry eventLine(std::uint16_t level, const std::string& file,
                                const std::string& function, const std::string& message) {
    return {level, "[EventDispatcher] " + file + ":#:" + function + "(): " + message};
}

inline test::LogEntry hubLine(std::uint16_t level, const std::string& function,
                              const std::string& message) {
    return eventLine(level, "event_hub.cpp", function, message);
}

inline test::LogEntry dispatcherLine(std::uint16_t level, const std::string& function,
                                     const std::string& message) {
    return eventLine(level, "event_dispatcher.cpp", function, message);
}

/// What stopping a running handler thread logs.
inline std::vector<test::LogEntry> teardownLines() {
    using tevalon::base::kLogAlways;
    return {hubLine(kLogAlways, "onUnregistered", "Will destroy thread in EventHubImpl.\n"),
            hubLine(kLogAlways, "onUnregistered", "Exit onUnregistered from EventHubImpl.\n")};
}

/// What stopping a hub without a thread logs.
inline std::vector<test::LogEntry> noThreadLines() {
    using tevalon::base::kLogAlways;
    using tevalon::base::kLogInfo;
    return {
        hubLine(kLogInfo, "onUnregistered", "Didn't create thread, so need not destroy thread.\n"),
        hubLine(kLogAlways, "onUnregistered", "Exit onUnregistered.\n")};
}

/// EventHubImpl::onUnregistered(), as the linker knows it.
inline constexpr const char* kHiddenSymbol =
    "_ZN7tevalon4base16event_dispatcher12EventHubImpl14onUnregisteredEv";

#endif  // TESTS_EVENT_DISPATCHER_EVENT_FIXTURES_H
