// What of the C and C++ libraries takes turns under the kit, and what it does with waits that have
// no end.
#include <gmock/gmock.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <future>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/logging.h"
#include "kit/story.h"
#include "testkit/log.h"
#include "testkit/manual_time.h"

namespace {

using namespace std::chrono_literals;
using test::Story;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using tevalon::testkit::advance;
using tevalon::testkit::runUntilIdle;

using Clock = std::chrono::steady_clock;

TEST(ManualTimeThreadsTest, AThreadRunsWhenTheTestLetsIt) {
    Story story;
    std::thread thread([&] { story.add("thread"); });
    story.add("test");

    runUntilIdle();

    EXPECT_THAT(story.events(), ElementsAre("test", "thread"));
    thread.join();
}

TEST(ManualTimeThreadsTest, ThreadsRunInTheOrderInWhichTheyBecameAbleTo) {
    for (int round = 0; round < 20; ++round) {
        Story story;
        std::vector<std::thread> threads;
        for (const char* name : {"a", "b", "c"}) {
            threads.emplace_back([&story, name] {
                story.add(name);
                std::this_thread::sleep_for(1s);
                story.add(name);
            });
        }
        runUntilIdle();
        EXPECT_THAT(story.events(), ElementsAre("a", "b", "c"));
        advance(1s);
        EXPECT_THAT(story.events(), ElementsAre("a", "b", "c", "a", "b", "c"));
        for (std::thread& thread : threads) thread.join();
    }
}

TEST(ManualTimeThreadsTest, AJoinLetsAsMuchTimePassAsTheThreadTakes) {
    const Clock::time_point begin = Clock::now();
    std::thread thread([] { std::this_thread::sleep_for(24h - 1s); });

    thread.join();

    EXPECT_EQ(Clock::now() - begin, 24h - 1s);
}

TEST(ManualTimeThreadsTest, AMutexIsPassedOn) {
    Story story;
    std::mutex mutex;
    std::thread first([&] {
        const std::lock_guard<std::mutex> lock(mutex);
        std::this_thread::sleep_for(1s);
        story.add("first");
    });
    std::thread second([&] {
        const std::lock_guard<std::mutex> lock(mutex);
        story.add("second");
    });
    runUntilIdle();
    EXPECT_THAT(story.events(), IsEmpty());

    advance(1s);

    EXPECT_THAT(story.events(), ElementsAre("first", "second"));
    first.join();
    second.join();
}

TEST(ManualTimeThreadsTest, ATimedLockGivesUpOnTheClock) {
    std::timed_mutex mutex;
    mutex.lock();
    bool hasLocked = true;
    std::thread thread([&] { hasLocked = mutex.try_lock_for(5s); });

    advance(5s);
    thread.join();

    EXPECT_FALSE(hasLocked);
    mutex.unlock();
}

TEST(ManualTimeThreadsTest, ARecursiveMutexIsItsOwnersStill) {
    std::recursive_mutex mutex;
    const std::lock_guard<std::recursive_mutex> outer(mutex);
    const std::lock_guard<std::recursive_mutex> inner(mutex);
    bool hasLocked = true;

    std::thread([&] { hasLocked = mutex.try_lock(); }).join();

    EXPECT_FALSE(hasLocked);
}

TEST(ManualTimeThreadsTest, ReadersAndWritersWaitForEachOther) {
    Story story;
    std::shared_mutex mutex;
    std::thread writer([&] {
        const std::unique_lock<std::shared_mutex> lock(mutex);
        std::this_thread::sleep_for(1s);
        story.add("written");
    });
    std::thread reader([&] {
        const std::shared_lock<std::shared_mutex> lock(mutex);
        story.add("read");
    });

    advance(1s);

    EXPECT_THAT(story.events(), ElementsAre("written", "read"));
    writer.join();
    reader.join();
}

TEST(ManualTimeThreadsTest, ANotifiedThreadGoesOnAndOthersWait) {
    std::mutex mutex;
    std::condition_variable condition;
    int woken = 0;
    bool mayGo = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            std::unique_lock<std::mutex> lock(mutex);
            condition.wait(lock, [&] { return mayGo; });
            ++woken;
        });
    }
    runUntilIdle();
    {
        const std::lock_guard<std::mutex> lock(mutex);
        mayGo = true;
    }
    const auto wokenNow = [&] {
        const std::lock_guard<std::mutex> lock(mutex);
        return woken;
    };

    condition.notify_one();
    runUntilIdle();
    EXPECT_EQ(wokenNow(), 1);
    condition.notify_all();
    runUntilIdle();

    EXPECT_EQ(wokenNow(), 3);
    for (std::thread& thread : threads) thread.join();
}

TEST(ManualTimeThreadsTest, ATimedWaitOnTheRealTimeClockEndsToo) {
    std::mutex mutex;
    std::condition_variable condition;
    std::unique_lock<std::mutex> lock(mutex);
    const auto deadline = std::chrono::system_clock::now() + 1h;

    EXPECT_EQ(condition.wait_until(lock, deadline), std::cv_status::timeout);

    EXPECT_EQ(std::chrono::system_clock::now(), deadline);
}

TEST(ManualTimeThreadsTest, ATimedWaitOfAConditionWithItsOwnClockEndsToo) {
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    pthread_cond_t condition;
    pthread_cond_init(&condition, &attributes);
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_lock(&mutex);
    timespec deadline = {};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += 5;

    EXPECT_EQ(pthread_cond_timedwait(&condition, &mutex, &deadline), ETIMEDOUT);

    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    EXPECT_EQ(now.tv_sec, deadline.tv_sec);
    pthread_mutex_unlock(&mutex);
    pthread_cond_destroy(&condition);
    pthread_condattr_destroy(&attributes);
}

TEST(ManualTimeThreadsTest, ASemaphoreIsWaitedForUntilItIsPosted) {
    sem_t semaphore;
    sem_init(&semaphore, 0, 0);
    std::atomic<bool> hasPassed{false};
    std::thread thread([&] {
        sem_wait(&semaphore);
        hasPassed = true;
    });
    advance(1h);
    EXPECT_FALSE(hasPassed);

    sem_post(&semaphore);
    runUntilIdle();

    EXPECT_TRUE(hasPassed);
    thread.join();
    sem_destroy(&semaphore);
}

TEST(ManualTimeThreadsTest, FuturesAndOnceRoutinesWork) {
    std::once_flag once;
    int calls = 0;
    const auto callOnce = [&] {
        std::call_once(once, [&] {
            std::this_thread::sleep_for(1s);
            ++calls;
        });
        return calls;
    };
    std::future<int> first = std::async(std::launch::async, callOnce);
    std::future<int> second = std::async(std::launch::async, callOnce);

    EXPECT_EQ(second.wait_for(500ms), std::future_status::timeout);
    EXPECT_EQ(first.get(), 1);
    EXPECT_EQ(second.get(), 1);
}

class Pipe {
public:
    Pipe() { EXPECT_EQ(pipe(m_ends.data()), 0); }
    ~Pipe() {
        close(m_ends[0]);
        close(m_ends[1]);
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int readEnd() const { return m_ends[0]; }
    void write() const { EXPECT_EQ(::write(m_ends[1], "x", 1), 1); }

private:
    std::array<int, 2> m_ends = {};
};

TEST(ManualTimeThreadsTest, PollAndSelectEndOnTheClockOrByTheirDescriptor) {
    const Pipe pipe;
    pollfd entry = {pipe.readEnd(), POLLIN, 0};
    const Clock::time_point begin = Clock::now();

    EXPECT_EQ(poll(&entry, 1, 60000), 0);
    EXPECT_EQ(Clock::now() - begin, 60s);
    fd_set descriptors;
    FD_ZERO(&descriptors);
    FD_SET(pipe.readEnd(), &descriptors);
    timeval timeout = {30, 0};
    EXPECT_EQ(select(pipe.readEnd() + 1, &descriptors, nullptr, nullptr, &timeout), 0);
    EXPECT_EQ(Clock::now() - begin, 90s);
    EXPECT_FALSE(FD_ISSET(pipe.readEnd(), &descriptors));

    pipe.write();
    FD_SET(pipe.readEnd(), &descriptors);
    timeout = {30, 0};
    EXPECT_EQ(select(pipe.readEnd() + 1, &descriptors, nullptr, nullptr, &timeout), 1);
    EXPECT_EQ(timeout.tv_sec, 30);
    EXPECT_EQ(poll(&entry, 1, 60000), 1);

    EXPECT_EQ(Clock::now() - begin, 90s);
}

TEST(ManualTimeThreadsTest, AReaderOfAPipeWaitsForItsWriter) {
    const Pipe pipe;
    std::atomic<int> bytes{0};
    std::thread reader([&] {
        char byte = 0;
        bytes = static_cast<int>(read(pipe.readEnd(), &byte, 1));
    });
    runUntilIdle();
    EXPECT_EQ(bytes, 0);

    pipe.write();
    runUntilIdle();

    EXPECT_EQ(bytes, 1);
    reader.join();
}

TEST(ManualTimeThreadsTest, WhoSpinsLetsOthersRunAndCountsAsIdle) {
    std::atomic<bool> mayGo{false};
    std::thread spinner([&] {
        while (!mayGo) std::this_thread::yield();
    });
    std::thread sleeper([] { std::this_thread::sleep_for(1s); });

    advance(2s);
    mayGo = true;
    runUntilIdle();

    spinner.join();
    sleeper.join();
}

TEST(ManualTimeThreadsTest, WhoWaitsByReadingTheClockHasItGoOn) {
    const Clock::time_point begin = Clock::now();
    while (Clock::now() - begin < 100ms) {
    }

    EXPECT_GE(Clock::now() - begin, 100ms);
}

TEST(ManualTimeThreadsTest, ACancelledThreadEndsItsWait) {
    pthread_t thread = {};
    const auto wait = [](void*) -> void* {
        (void)sleep(3600);  // In no frame that the address sanitizer would have to see unwound.
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, wait, nullptr), 0);
    runUntilIdle();
    const Clock::time_point begin = Clock::now();

    pthread_cancel(thread);
    void* p_result = nullptr;
    pthread_join(thread, &p_result);

    EXPECT_EQ(p_result, PTHREAD_CANCELED);
    EXPECT_EQ(Clock::now(), begin);
}

TEST(ManualTimeThreadsTest, WhatAThreadDestroysAtItsEndMayWait) {
    struct Waits {
        ~Waits() {
            std::this_thread::sleep_for(1s);
            *p_hasWaited = true;
        }
        std::atomic<bool>* p_hasWaited = nullptr;
    };
    std::atomic<bool> hasWaited{false};
    std::thread thread([&] {
        thread_local Waits t_waits;
        t_waits.p_hasWaited = &hasWaited;
    });

    thread.join();

    EXPECT_TRUE(hasWaited);
}

TEST(ManualTimeThreadsTest, AForkedChildHasTheThreadThatForked) {
    std::thread thread([] { std::this_thread::sleep_for(1s); });
    runUntilIdle();

    const pid_t child = fork();
    if (child == 0) {
        std::this_thread::sleep_for(1h);  // The other one is not run to get there.
        _exit(7);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);

    EXPECT_EQ(WEXITSTATUS(status), 7);
    thread.join();
}

using ManualTimeDeathTest = testing::Test;

TEST(ManualTimeDeathTest, ADeadlockIsToldWithWhatEachThreadWaitsForAndWhoHasIt) {
    const auto deadlock = [] {
        std::mutex first;
        std::mutex second;
        std::thread thread([&] {
            pthread_setname_np(pthread_self(), "crossing");
            const std::lock_guard<std::mutex> lock(second);
            std::this_thread::sleep_for(1s);
            const std::lock_guard<std::mutex> other(first);
        });
        const std::lock_guard<std::mutex> lock(first);
        std::this_thread::sleep_for(1s);
        const std::lock_guard<std::mutex> other(second);
    };

    EXPECT_DEATH(deadlock(),
                 "nobody can run, and no time would change that: a deadlock\n"
                 "    the test, '[^']+', waits for a mutex, 0x[0-9a-f]+, locked by thread 1\n"
                 "    thread 1, 'crossing', waits for a mutex, 0x[0-9a-f]+, locked by the test\n");
}

TEST(ManualTimeDeathTest, TheCapturedLogFollowsWhatIsToldOfADeadlock) {
    const auto waitForEver = [] {
        const tevalon::testkit::CapturedLog log;
        std::thread thread([] {
            print_browser_log(1, "t", "t.cpp", 1, "f", "before the wait");
            std::promise<void>().get_future().wait();
        });
        thread.join();
    };

    EXPECT_DEATH(waitForEver(), "a deadlock\n.*last 1 of 1 line:\n    .*before the wait");
}

TEST(ManualTimeDeathTest, AThreadThatLocksAgainWhatItHasIsTold) {
    const auto lockTwice = [] {
        pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
        pthread_mutex_lock(&mutex);
        pthread_mutex_lock(&mutex);
    };

    EXPECT_DEATH(lockTwice(), "the test, .* waits for a mutex, 0x[0-9a-f]+, locked by itself\n");
}

TEST(ManualTimeDeathTest, AMutexThatAThreadKeepsBeyondItsEndIsTold) {
    const auto keep = [] {
        pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
        std::thread([&] { pthread_mutex_lock(&mutex); }).join();
        pthread_mutex_lock(&mutex);
    };

    EXPECT_DEATH(keep(), "waits for a mutex, 0x[0-9a-f]+, locked by a thread that has ended\n");
}

TEST(ManualTimeDeathTest, AThreadWhoseEndIsWaitedForIsToldByName) {
    const auto join = [] {
        std::shared_mutex mutex;
        std::thread writer([&] {
            pthread_setname_np(pthread_self(), "writer");
            const std::unique_lock<std::shared_mutex> lock(mutex);
            std::condition_variable_any never;
            std::mutex other;
            std::unique_lock<std::mutex> otherLock(other);
            never.wait(otherLock);
        });
        runUntilIdle();
        std::thread reader([&] {
            pthread_setname_np(pthread_self(), "reader");
            const std::shared_lock<std::shared_mutex> lock(mutex);
        });
        reader.join();
    };

    EXPECT_DEATH(
        join(),
        "    the test, '[^']+', waits for thread 2, 'reader', to end\n"
        "    thread 1, 'writer', waits for a condition variable, 0x[0-9a-f]+\n"
        "    thread 2, 'reader', waits for a read-write lock, 0x[0-9a-f]+, locked by thread 1\n");
}

TEST(ManualTimeDeathTest, AnEventThatNeverComesIsTold) {
    EXPECT_DEATH(
        {
            std::thread periodic([] {
                pthread_setname_np(pthread_self(), "periodic");
                while (true) std::this_thread::sleep_for(10min);
            });
            std::promise<void> never;
            never.get_future().wait();
        },
        AllOf(
            HasSubstr("the test has waited for a day on the clock, in vain"),
            ContainsRegex("thread 1, 'periodic', waits for time to pass, for [0-9.]+ s at most\n"),
            Not(HasSubstr("(nil)"))));
}

#ifdef __SANITIZE_THREAD__
// That threads take turns must not hide from the sanitizer that nothing orders them.
TEST(ManualTimeDeathTest, TheThreadSanitizerSeesRacesBetweenThreads) {
    const auto race = [] {
        int counter = 0;
        std::thread first([&] { ++counter; });
        std::thread second([&] { ++counter; });
        runUntilIdle();
        first.join();
        second.join();
        std::exit(counter);
    };

    EXPECT_EXIT(race(), testing::ExitedWithCode(66), "data race");
}

TEST(ManualTimeDeathTest, TheThreadSanitizerSeesNoRaceBetweenATestsSteps) {
    const auto count = [] {
        int counter = 0;
        std::thread thread([&] {
            for (int i = 0; i < 3; ++i) {
                ++counter;
                std::this_thread::sleep_for(1s);
            }
        });
        runUntilIdle();
        counter += 10;
        advance(2s);
        counter += 10;
        thread.join();
        std::exit(counter);
    };

    EXPECT_EXIT(count(), testing::ExitedWithCode(23), "");
}
#endif

TEST(ManualTimeDeathTest, OnlyTheTestsThreadTurnsTheClock) {
    EXPECT_DEATH(std::thread([] { runUntilIdle(); }).join(),
                 "runUntilIdle\\(\\) is for the test's own thread");
}

}  // namespace
