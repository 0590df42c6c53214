// threads.h: several threads that start their work at the same moment.

#ifndef TESTS_SUPPORT_THREADS_H
#define TESTS_SUPPORT_THREADS_H

#include <thread>
#include <vector>

#include "support/event.h"

namespace test {

/// Runs work(0) to work(count - 1), each on a thread of its own, none before all threads are
/// up, and returns when all have returned.
template <typename Work>
void runAtOnce(int count, Work work) {
    Countdown ready(count);
    Event go;
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            ready.arrive();
            (void)go.wait();  // Too late is only less concurrent.
            work(i);
        });
    }
    (void)ready.wait();
    go.set();
    for (std::thread& thread : threads) thread.join();
}

}  // namespace test

#endif  // TESTS_SUPPORT_THREADS_H
