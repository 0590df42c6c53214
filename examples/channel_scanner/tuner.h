// tuner.h: the module that has the tuner.

#ifndef CHANNEL_SCANNER_TUNER_H
#define CHANNEL_SCANNER_TUNER_H

#include <cstddef>
#include <memory>

#include "air.h"
#include "base/event_dispatcher.h"
#include "base/timer.h"
#include "messages.h"

namespace scanner {

/// Locks on a frequency when asked, which takes it some time, answers how well it receives that,
/// and from then on sends its sections to the demultiplexer. A real one would have a driver behind
/// it.
class Tuner {
public:
    /// @param air  Must outlive this.
    explicit Tuner(const Air& air);
    ~Tuner();

    Tuner(const Tuner&) = delete;
    Tuner& operator=(const Tuner&) = delete;

private:
    using Request = std::shared_ptr<tevalon::base::event_dispatcher::BrowserEvent>;

    void onTune(const Request& request);
    void onLocked(const Request& request, const Broadcast& broadcast);
    void sendSection(const Broadcast& broadcast, std::size_t number);

    const Air& m_air;
    tevalon::base::timer::TaskHandle m_work;     // To lock; touched by the hub's thread alone.
    int m_playingMhz = 0;                        // Touched by the thread below alone.
    tevalon::base::timer::TimerThread m_thread;  // Stands for the driver's.
    tevalon::base::event_dispatcher::EventHub m_hub{kTuner};
    tevalon::base::event_dispatcher::HubRegistration m_registration{&m_hub};
};

}  // namespace scanner

#endif  // CHANNEL_SCANNER_TUNER_H
