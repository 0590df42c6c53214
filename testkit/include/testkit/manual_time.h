// manual_time.h: threads that run when the test says so, and a clock that the test turns.

#ifndef TESTKIT_MANUAL_TIME_H
#define TESTKIT_MANUAL_TIME_H

#include <chrono>

namespace tevalon::testkit {

/// @{
/// A program that calls one of these is under the kit's control from before its main() on, in all
/// of its tests:
///
/// - One thread runs at a time, until it waits; then the one runs that has been able to for the
///   longest time. The test's own thread, which runs main(), is one of them: while it does not
///   wait, no hub handles an event, no task and no timer runs.
/// - The clocks, CLOCK_MONOTONIC and CLOCK_REALTIME and what is made of them, stand still. So a
///   test runs the same each time.
///
/// What the test does before and after a step by one of these functions, and what threads do in it,
/// is ordered, so a test needs no locks for what its handlers count, and the thread sanitizer
/// reports nothing there. Races of the module's threads with each other it reports as ever.
///
/// Timers, task threads, watches, synchronous time-outs, sleeps and the time limits of locks and
/// condition variables obey that clock, in tevalon-base, in the module and in the C++ library
/// alike.
///
/// Where the test's thread itself waits, for a reply, a thread's end or in a sleep, the others run;
/// once all of them wait as well, the clock goes on by itself to the first time that one of them
/// waits for, and on, until the test's thread can go on. A test that would wait for ever is told
/// so: the program is ended with a list of its threads and what each waits for.
///
/// A thread that waits in a way that is not replaced keeps its turn meanwhile: in blocking calls of
/// sockets, epoll_pwait(), POSIX barriers, static objects that another thread is initialising.
/// Threads that were started before main() by a shared library's static objects take no turns and
/// are not supported.

/// Lets the other threads run, in order, until each of them waits: for an event, for a time that
/// has not come, for whatever the test has not done yet. The clock stands still. From the test's
/// thread.
void runUntilIdle();

/// advance(), in nanoseconds.
void advanceBy(std::chrono::nanoseconds duration);

/// Turns the clock: runUntilIdle(), and then all that becomes due within @p duration, each at its
/// own time and in the order of these, and what comes of it. A time up to a microsecond later
/// counts as within, for some are rounded up; the clock then is as much ahead. From the test's
/// thread.
///
///     module.start();                       // Checks for a signal every 500 ms.
///     tevalon::testkit::advance(1600ms);
///     EXPECT_EQ(module.checks(), 3);
template <typename Rep, typename Period>
void advance(std::chrono::duration<Rep, Period> duration) {
    advanceBy(std::chrono::duration_cast<std::chrono::nanoseconds>(duration));
}
/// @}

}  // namespace tevalon::testkit

#endif  // TESTKIT_MANUAL_TIME_H
