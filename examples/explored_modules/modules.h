// modules.h: two modules of a small client, a tuner and a guide, which ask each other.

#ifndef EXPLORED_MODULES_MODULES_H
#define EXPLORED_MODULES_MODULES_H

#include <atomic>
#include <memory>

#include "base/event_dispatcher.h"

namespace client {

inline constexpr int kTuner = 1;
inline constexpr int kGuide = 2;

inline constexpr int kChannelAsked = 10;
inline constexpr int kTitleAsked = 11;
inline constexpr int kChannelChanged = 12;

/// Knows the channel. Asks the guide for the title of what it shows.
class Tuner {
public:
    Tuner();
    ~Tuner();

    /// From any thread: tells the guide, and does not wait.
    void changeChannel(int channel);
    /// From any thread, and waits for the guide.
    int title();

private:
    using Event = std::shared_ptr<tevalon::base::event_dispatcher::BrowserEvent>;

    void onChannelAsked(const Event& event);

    std::atomic<int> m_channel{1};
    tevalon::base::event_dispatcher::EventHub m_hub;
};

/// Knows the titles. Asks the tuner for its channel.
class Guide {
public:
    /// @param asksInHandler  The mistake: to wait for the tuner while the tuner may wait.
    explicit Guide(bool asksInHandler);
    ~Guide();

private:
    using Event = std::shared_ptr<tevalon::base::event_dispatcher::BrowserEvent>;

    void onTitleAsked(const Event& event);
    void onChannelChanged(const Event& event);

    const bool m_asksInHandler;
    std::atomic<int> m_channel{1};
    tevalon::base::event_dispatcher::EventHub m_hub;
};

}  // namespace client

#endif  // EXPLORED_MODULES_MODULES_H
