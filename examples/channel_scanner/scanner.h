// scanner.h: the module that looks at one frequency after the other.

#ifndef CHANNEL_SCANNER_SCANNER_H
#define CHANNEL_SCANNER_SCANNER_H

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/event_dispatcher.h"
#include "base/synchronization.h"
#include "base/timer.h"
#include "messages.h"

namespace scanner {

/// Tunes to each frequency, waits for its services, and hands those to the channel list.
class Scanner {
public:
    struct Patience {
        std::chrono::milliseconds forLock;
        std::chrono::milliseconds forServices;
    };
    /// Called on the scanner's thread with a line about each frequency.
    using Progress = std::function<void(const std::string& line)>;

    Scanner(Patience patience, Progress progress);
    ~Scanner();

    Scanner(const Scanner&) = delete;
    Scanner& operator=(const Scanner&) = delete;

    /// Begins; once.
    void start(std::vector<int> frequenciesMhz);
    /// Whether the scan has ended within @p patience.
    bool waitForEnd(std::chrono::milliseconds patience) TEVALON_EXCLUDES(m_mutex);

private:
    using Event = std::shared_ptr<tevalon::base::event_dispatcher::BrowserEvent>;

    void tuneToNext();
    void onTuned(tevalon::base::event_dispatcher::EventResult result, const Event& request);
    void onServices(const Services& services);
    void onNoServices(std::size_t place);
    void finishFrequency(const std::string& what);
    void end() TEVALON_EXCLUDES(m_mutex);

    std::atomic<bool> m_isStopping{false};
    const Patience m_patience;
    const Progress m_progress;
    std::vector<int> m_frequenciesMhz;

    // Of the frequency at hand; touched by the hub's thread alone.
    std::size_t m_place = 0;
    int m_qualityPercent = 0;
    bool m_waitsForServices = false;
    tevalon::base::timer::TaskHandle m_timeout;

    tevalon::base::Mutex m_mutex;
    tevalon::base::ConditionVariable m_ended;
    bool m_isEnded TEVALON_GUARDED_BY(m_mutex) = false;

    tevalon::base::timer::TimerThread m_thread;
    tevalon::base::event_dispatcher::EventHub m_hub{kScanner};
    tevalon::base::event_dispatcher::HubRegistration m_registration{&m_hub};
};

}  // namespace scanner

#endif  // CHANNEL_SCANNER_SCANNER_H
