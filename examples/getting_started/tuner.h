// tuner.h: a module that shows the channel it is told to.

#ifndef GETTING_STARTED_TUNER_H
#define GETTING_STARTED_TUNER_H

#include <memory>

#include "base/event_dispatcher.h"

namespace tv {

// Modules and events are numbers that all modules agree on.
inline constexpr int kRemote = 1;
inline constexpr int kTuner = 2;
inline constexpr int kTune = 100;  // With a Channel; replies the channel shown, or kNoSuchChannel.
inline constexpr int kNoSuchChannel = -2;

/// What kTune carries. Never changed once the event is sent.
class Channel : public tevalon::base::event_dispatcher::EventParam {
public:
    explicit Channel(int number) : m_number(number) {}
    std::int32_t intValue() override { return m_number; }

private:
    const int m_number;
};

/// Serves kTune from its construction to its destruction.
class Tuner {
public:
    Tuner();
    ~Tuner();

private:
    using Event = std::shared_ptr<tevalon::base::event_dispatcher::BrowserEvent>;

    void onTune(const Event& event);

    int m_shown = 1;  // The hub's thread alone touches it: no lock.
    tevalon::base::event_dispatcher::EventHub m_hub;
};

}  // namespace tv

#endif  // GETTING_STARTED_TUNER_H
