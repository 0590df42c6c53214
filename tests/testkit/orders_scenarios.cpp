// What threads can do to each other, without a failure: each primitive, for its own meaning and for
// the number of different ends that the schedules lead to.
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/select.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>
#include <thread>

#include "testkit/explore.h"

using tevalon::testkit::elapsedNanoseconds;

namespace {

constexpr std::int64_t kMs = 1'000'000;

void sleepMs(long milliseconds) {
    const timespec duration = {0, milliseconds * kMs};
    (void)nanosleep(&duration, nullptr);
}

}  // namespace

// Of two times three steps there are twenty orders.
TEVALON_SCENARIO(Counting) {
    std::atomic<int> number{0};
    const auto count = [&] {
        for (int i = 0; i < 3; ++i) ++number;
    };
    std::thread other(count);
    count();
    other.join();
    TEVALON_EXPECT(number == 6);
}

TEVALON_SCENARIO(TwoVariables) {
    std::atomic<int> first{0};
    std::atomic<int> second{0};
    std::thread other([&] {
        first = 1;
        second = 1;
    });
    const int seen = second;
    if (seen == 1) TEVALON_EXPECT(first == 1);
    other.join();
}

TEVALON_SCENARIO(MutexesAndTries) {
    std::mutex mutex;
    int number = 0;
    std::thread other([&] {
        const std::lock_guard<std::mutex> lock(mutex);
        ++number;
    });
    if (mutex.try_lock()) {
        ++number;
        mutex.unlock();
    }
    other.join();
    TEVALON_EXPECT(number == 1 || number == 2);
}

TEVALON_SCENARIO(ThreeThreadsAndACondition) {
    std::mutex mutex;
    std::condition_variable changed;
    int number = 0;
    const auto wait = [&] {
        std::unique_lock<std::mutex> lock(mutex);
        while (number == 0) changed.wait(lock);
        --number;
    };
    std::thread first(wait);
    std::thread second(wait);
    for (int i = 0; i < 2; ++i) {
        const std::lock_guard<std::mutex> lock(mutex);
        ++number;
        changed.notify_one();
    }
    first.join();
    second.join();
    TEVALON_EXPECT(number == 0);
}

TEVALON_SCENARIO(SharedLocks) {
    std::shared_mutex mutex;
    int number = 0;
    std::thread reader([&] {
        const std::shared_lock<std::shared_mutex> lock(mutex);
        TEVALON_EXPECT(number == 0 || number == 2);
    });
    {
        const std::unique_lock<std::shared_mutex> lock(mutex);
        ++number;
        ++number;
    }
    reader.join();
}

TEVALON_SCENARIO(Semaphores) {
    sem_t items;
    (void)sem_init(&items, 0, 0);
    int number = 0;
    std::thread other([&] {
        number = 1;
        (void)sem_post(&items);
    });
    (void)sem_wait(&items);
    TEVALON_EXPECT(number == 1);
    TEVALON_EXPECT(sem_trywait(&items) == -1 && errno == EAGAIN);
    other.join();
    (void)sem_destroy(&items);
}

TEVALON_SCENARIO(OnceAndStatics) {
    static std::atomic<int> s_made{0};
    static std::once_flag s_once;
    const auto make = [] {
        static const int s_number = ++s_made;
        std::call_once(s_once, [] { ++s_made; });
        TEVALON_EXPECT(s_number == 1 && s_made == 2);
    };
    std::thread other(make);
    make();
    other.join();
}

// Time goes on where nobody can run, and no further than to the first who waits for it.
TEVALON_SCENARIO(TimeAndSleeps) {
    std::thread other([] {
        sleepMs(20);
        TEVALON_EXPECT(elapsedNanoseconds() >= 20 * kMs);
    });
    sleepMs(10);
    TEVALON_EXPECT(elapsedNanoseconds() >= 10 * kMs && elapsedNanoseconds() < 11 * kMs);
    other.join();
    TEVALON_EXPECT(elapsedNanoseconds() >= 20 * kMs && elapsedNanoseconds() < 21 * kMs);
}

TEVALON_SCENARIO(TimedWaits) {
    std::timed_mutex mutex;
    std::condition_variable_any changed;
    mutex.lock();
    std::thread other([&] { TEVALON_EXPECT(!mutex.try_lock_for(std::chrono::milliseconds(5))); });
    sleepMs(10);
    other.join();
    TEVALON_EXPECT(changed.wait_for(mutex, std::chrono::milliseconds(5)) ==
                   std::cv_status::timeout);
    mutex.unlock();
}

TEVALON_SCENARIO(PipesAndSelect) {
    std::array<int, 2> ends = {};
    TEVALON_EXPECT(pipe2(ends.data(), O_CLOEXEC) == 0);
    std::thread other([&] {
        char byte = 7;
        TEVALON_EXPECT(write(ends[1], &byte, 1) == 1);
    });
    fd_set set;
    FD_ZERO(&set);
    FD_SET(ends[0], &set);
    TEVALON_EXPECT(select(ends[0] + 1, &set, nullptr, nullptr, nullptr) == 1);
    pollfd polled = {ends[0], POLLIN, 0};
    TEVALON_EXPECT(poll(&polled, 1, 0) == 1);
    char byte = 0;
    TEVALON_EXPECT(read(ends[0], &byte, 1) == 1 && byte == 7);
    TEVALON_EXPECT(poll(&polled, 1, 5) == 0 && elapsedNanoseconds() >= 5 * kMs);
    other.join();
}

// A thread's own objects are destroyed as a part of it.
TEVALON_SCENARIO(ThreadLocals) {
    static std::atomic<int> s_gone{0};
    struct Local {
        ~Local() { ++s_gone; }
        int number = 0;
    };
    std::thread other([] {
        thread_local Local t_local;
        ++t_local.number;
    });
    other.join();
    TEVALON_EXPECT(s_gone == 1);
}

TEVALON_SCENARIO(RefusedThread) {
    tevalon::testkit::refuseNextThread();
    bool isRefused = false;
    try {
        std::thread([] {}).join();
    } catch (const std::system_error&) {
        isRefused = true;
    }
    TEVALON_EXPECT(isRefused && tevalon::testkit::liveThreads() == 1);
}

// More than there can be at once, one after the other.
TEVALON_SCENARIO(ManyThreads) {
    int number = 0;
    for (int i = 0; i < 50; ++i) std::thread([&] { ++number; }).join();
    TEVALON_EXPECT(number == 50 && tevalon::testkit::liveThreads() == 1);
}

TEVALON_SCENARIO(SpinUntilSet) {
    std::atomic<bool> isSet{false};
    std::thread other([&] { isSet = true; });
    while (!isSet) {
    }
    other.join();
}
