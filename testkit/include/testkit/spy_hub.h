// spy_hub.h: a module that is not there: takes its events, answers them and remembers them.

#ifndef TESTKIT_SPY_HUB_H
#define TESTKIT_SPY_HUB_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "base/event_dispatcher/event_hub.h"

namespace tevalon::testkit {

/// Stands for a module in the tests of another one: registered with the dispatcher under that
/// module's id, it takes the types of events that it is told of, from any module.
///
///     SpyHub tuner(kTuner);
///     tuner.answer(kChannelAsked, 7).take(kStandby);
///     EXPECT_EQ(guide.channel(), 7);                      // Asks the tuner.
///     EXPECT_TRUE(tuner.waitFor(kChannelAsked));
///
/// Thread-safety: any thread may call any method but the destructor.
class SpyHub {
public:
    /// As handlers get it.
    using Event = std::shared_ptr<base::event_dispatcher::BrowserEvent>;
    /// What an event is answered with.
    using EventResult = base::event_dispatcher::EventResult;
    /// What to reply to an event. Called on the hub's thread, without a lock.
    using Reply = std::function<EventResult(const Event&)>;

    /// Registers the hub with the process's dispatcher.
    explicit SpyHub(std::int32_t moduleId);
    /// Unregisters it.
    ~SpyHub();

    SpyHub(const SpyHub&) = delete;
    SpyHub& operator=(const SpyHub&) = delete;

    /// Takes events of @p eventType and does not reply: who waits, waits in vain.
    SpyHub& take(std::int32_t eventType);
    /// Takes events of @p eventType and replies @p result, from now on.
    SpyHub& answer(std::int32_t eventType, EventResult result);
    /// Takes events of @p eventType and replies what @p reply says, from now on. It may fill a
    /// request before that:
    ///
    ///     scanner.answer(kListChannels, [](const SpyHub::Event& request) {
    ///         return fillReply<ChannelList>(request, ChannelList{"News"}) ? 0 : -2;
    ///     });
    SpyHub& answer(std::int32_t eventType, Reply reply);

    /// For making events and sending them, in the name of the module.
    base::event_dispatcher::EventHub& hub() { return m_hub; }
    /// Sends an event of @p eventType, with @p param, to @p target; what EventHub::sendEvent()
    /// returns. The event owns @p param.
    std::int32_t send(std::int32_t eventType, std::int32_t target,
                      std::unique_ptr<base::event_dispatcher::EventParam> param = nullptr);
    /// Sends @p event, which hub() has made, to @p target; what EventHub::sendEvent() returns.
    ///
    ///     tuner.send(makeEvent<Channel>(tuner.hub(), kTuned, 7, "Seven"), kGuide);
    std::int32_t send(Event event, std::int32_t target);

    /// All events that have come, in their order, each as it was when it came. What they carry is
    /// got by payload<T>().
    std::vector<Event> received() const;
    /// Those of @p eventType.
    std::vector<Event> received(std::int32_t eventType) const;
    /// How many of @p eventType have come.
    std::size_t count(std::int32_t eventType) const;
    /// Forgets what has come.
    void clear();

    /// Blocks until @p count events of @p eventType have come and been replied to, for @p limit at
    /// most; whether they have. Once there are that many, it returns at once.
    [[nodiscard]] bool waitFor(std::int32_t eventType, std::size_t count = 1,
                               std::chrono::milliseconds limit = std::chrono::seconds(30)) const;

private:
    void onEvent(const Event& event);
    std::size_t countLocked(std::int32_t eventType) const;

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_grown;
    std::map<std::int32_t, Reply> m_replies;  // Guarded, as the next; empty where none is given.
    std::vector<Event> m_received;
    base::event_dispatcher::EventHub m_hub;  // Last: its thread uses the rest.
};

}  // namespace tevalon::testkit

#endif  // TESTKIT_SPY_HUB_H
