// signal_monitor.h: a module that tells the viewer when there is no signal any more.

#ifndef TESTED_MODULE_SIGNAL_MONITOR_H
#define TESTED_MODULE_SIGNAL_MONITOR_H

#include "base/event_dispatcher.h"
#include "base/timer.h"

namespace tv {

// Modules and events are numbers that all modules agree on.
inline constexpr int kTuner = 1;
inline constexpr int kMonitor = 2;
inline constexpr int kViewer = 3;
inline constexpr int kSignalAsked = 100;  // Replies the strength in percent; below 10 is none.
inline constexpr int kSignalLost = 101;

/// Asks the tuner for the signal, waits 200 ms at most for the reply, and asks again half a second
/// later. The third time in a row that there is none, it tells the viewer, once.
class SignalMonitor {
public:
    SignalMonitor();

    /// Whether it could be started.
    bool start();

private:
    void check();

    int m_failures = 0;  // In a row. The thread alone touches it: no lock.
    tevalon::base::event_dispatcher::EventHub m_hub;
    tevalon::base::timer::TimerThread m_thread;  // Last: its tasks use the rest.
};

}  // namespace tv

#endif  // TESTED_MODULE_SIGNAL_MONITOR_H
