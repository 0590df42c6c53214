// One scenario for each kind of failure that the explorer finds, each as small as it can be.
#include <pthread.h>
#include <semaphore.h>
#include <time.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>

#include "testkit/explore.h"

using tevalon::testkit::ScenarioOptions;

namespace {

ScenarioOptions fails(const char* failure) {
    ScenarioOptions options;
    options.meantFailure = failure;
    return options;
}

ScenarioOptions failsBySpuriousWakeUp(const char* failure) {
    ScenarioOptions options = fails(failure);
    options.hasSpuriousWakeUps = true;
    return options;
}

}  // namespace

TEVALON_SCENARIO_WITH(Deadlock, fails("deadlock")) {
    std::mutex first;
    std::mutex second;
    std::thread other([&] {
        const std::lock_guard<std::mutex> outer(second);
        const std::lock_guard<std::mutex> inner(first);
    });
    {
        const std::lock_guard<std::mutex> outer(first);
        const std::lock_guard<std::mutex> inner(second);
    }
    other.join();
}

TEVALON_SCENARIO_WITH(LostWakeUp, fails("lost wake-up")) {
    std::mutex mutex;
    std::condition_variable changed;
    std::atomic<bool> isSet{false};
    std::thread other([&] {
        isSet = true;  // Without the mutex: the waiter may be between its look and its wait.
        changed.notify_one();
    });
    std::unique_lock<std::mutex> lock(mutex);
    while (!isSet) changed.wait(lock);
    lock.unlock();
    other.join();
}

TEVALON_SCENARIO_WITH(TimeOutHidesLostWakeUp, fails("wait that only a time-out ends")) {
    std::mutex mutex;
    std::condition_variable changed;
    std::atomic<bool> isSet{false};
    const tevalon::testkit::TimeStandsStill still;
    std::thread other([&] {
        isSet = true;
        changed.notify_one();
    });
    std::unique_lock<std::mutex> lock(mutex);
    while (!isSet) changed.wait_for(lock, std::chrono::seconds(1));
    lock.unlock();
    other.join();
}

TEVALON_SCENARIO_WITH(WaitWithoutLoop, failsBySpuriousWakeUp("expectation that does not hold")) {
    std::mutex mutex;
    std::condition_variable changed;
    bool isSet = false;
    std::thread other([&] {
        const std::lock_guard<std::mutex> lock(mutex);
        isSet = true;
        changed.notify_one();
    });
    {
        std::unique_lock<std::mutex> lock(mutex);
        if (!isSet) changed.wait(lock);
        TEVALON_EXPECT(isSet);
    }
    other.join();
}

TEVALON_SCENARIO_WITH(Livelock, fails("livelock")) {
    std::atomic<bool> isSet{false};
    std::thread other([&] {
        if (isSet) isSet = false;
    });
    isSet = true;
    while (isSet) std::this_thread::yield();
    other.join();
}

TEVALON_SCENARIO_WITH(JoinedTwice, fails("double join")) {
    std::atomic<bool> isJoined{false};
    pthread_t thread = {};
    (void)pthread_create(
        &thread, nullptr, [](void*) -> void* { return nullptr; }, nullptr);
    const auto joinOnce = [&] {
        if (isJoined) return;
        isJoined = true;  // Too late.
        (void)pthread_join(thread, nullptr);
    };
    std::thread other(joinOnce);
    joinOnce();
    other.join();
}

TEVALON_SCENARIO_WITH(UsedAfterFree, fails("use of what is destroyed")) {
    auto owned = std::make_unique<std::atomic<int>>(0);
    std::atomic<int>* const p_number = owned.get();
    std::thread other([=] { ++*p_number; });
    owned.reset();
    other.join();
}

// That both touch the count shows only in schedules in which the other thread has ended before.
TEVALON_SCENARIO_WITH(EnteredTooLate, fails("use of what is destroyed")) {
    auto owned = std::make_unique<std::atomic<int>>(0);
    std::atomic<std::atomic<int>*> p_current{owned.get()};
    std::atomic<int> inside{0};
    std::thread other([&] {
        std::atomic<int>* const p_number = p_current;
        if (p_number == nullptr) return;
        ++inside;
        ++*p_number;
    });
    p_current = nullptr;
    if (inside == 0) owned.reset();
    other.join();
}

// The notification comes after the waiter may have seen the flag, and have gone.
TEVALON_SCENARIO_WITH(NotifiedAfterFree, fails("data race")) {
    struct Shared {
        std::mutex mutex;
        std::condition_variable changed;
        bool isSet = false;
    };
    auto shared = std::make_unique<Shared>();
    std::thread other([p_shared = shared.get()] {
        {
            const std::lock_guard<std::mutex> lock(p_shared->mutex);
            p_shared->isSet = true;
        }
        p_shared->changed.notify_one();
    });
    {
        std::unique_lock<std::mutex> lock(shared->mutex);
        while (!shared->isSet) shared->changed.wait(lock);
    }
    shared.reset();
    other.join();
}

TEVALON_SCENARIO_WITH(DestroyedMutex, fails("use of what is destroyed")) {
    pthread_mutex_t mutex;
    (void)pthread_mutex_init(&mutex, nullptr);
    std::thread other([&] {
        (void)pthread_mutex_lock(&mutex);
        (void)pthread_mutex_unlock(&mutex);
    });
    (void)pthread_mutex_destroy(&mutex);
    other.join();
}

TEVALON_SCENARIO_WITH(DataRace, fails("data race")) {
    int number = 0;
    std::thread other([&] { ++number; });
    ++number;
    other.join();
}

// The value is there, since one thread runs at a time; nothing orders it before the flag.
TEVALON_SCENARIO_WITH(OrderTooWeak, fails("data race")) {
    int number = 0;
    std::atomic<bool> isSet{false};
    std::thread other([&] {
        number = 1;
        isSet.store(true, std::memory_order_relaxed);
    });
    if (isSet.load(std::memory_order_acquire)) TEVALON_EXPECT(number == 1);
    other.join();
}

TEVALON_SCENARIO(OrderByFences) {
    int number = 0;
    std::atomic<bool> isSet{false};
    std::thread other([&] {
        number = 1;
        std::atomic_thread_fence(std::memory_order_release);
        isSet.store(true, std::memory_order_relaxed);
    });
    if (isSet.load(std::memory_order_relaxed)) {
        std::atomic_thread_fence(std::memory_order_acquire);
        TEVALON_EXPECT(number == 1);
    }
    other.join();
}

TEVALON_SCENARIO_WITH(LostUpdate, fails("expectation that does not hold")) {
    std::atomic<int> number{0};
    std::thread other([&] { number = number + 1; });
    number = number + 1;
    other.join();
    TEVALON_EXPECT(number == 2);
}

TEVALON_SCENARIO_WITH(UnlockedByAnother, fails("misuse of the C library")) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    (void)pthread_mutex_lock(&mutex);
    std::thread other([&] { (void)pthread_mutex_unlock(&mutex); });
    other.join();
}

TEVALON_SCENARIO_WITH(Crash, fails("death of the process")) {
    std::atomic<int*> p_number{nullptr};
    int number = 0;
    std::thread other([&] { p_number = &number; });
    *p_number.load() = 1;
    other.join();
}
