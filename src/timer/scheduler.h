// scheduler.h: the process's thread that starts the handlers of timers when they are due.

#ifndef SRC_TIMER_SCHEDULER_H
#define SRC_TIMER_SCHEDULER_H

namespace tevalon::base::simple_timer {

class TimerImpl;

/// Starts the scheduler, once in a process, a forked child's own included; it never ends. Where it
/// cannot be started it reports that, and timers are listed and never fire.
void ensureScheduler();

/// Lists @p timer by the expiry that it has now and marks it started, unless it is already. Throws
/// std::bad_alloc, and has then changed nothing.
///
/// Any thread. Once the timer is listed the calling thread is not cancelled until its command is
/// sent and it is marked.
void scheduleTimer(TimerImpl& timer);

/// Takes @p timer off the list, if it is there, and marks it stopped. Any thread.
void RemoveTimer(TimerImpl& timer);

}  // namespace tevalon::base::simple_timer

#endif  // SRC_TIMER_SCHEDULER_H
