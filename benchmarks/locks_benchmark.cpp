// The lock wrappers beside the bare calls, and an existing singleton beside a static of a
// function. An iteration is one lock and unlock, or one GetInstance().

#include <pthread.h>

#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/singleton.h"
#include "base/synchronization/auto_lock.h"
#include "base/synchronization/lock_guard.h"
#include "base/synchronization/unique_lock.h"
#include "support/placement.h"
#include "support/rows.h"

namespace bench {
namespace {

/// One lock and unlock each, of a mutex that other threads may want.
class BareCalls {
public:
    static constexpr const char* kName = kLimit;
    void once() {
        (void)pthread_mutex_lock(&m_mutex);
        ++m_count;
        (void)pthread_mutex_unlock(&m_mutex);
    }

private:
    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
    int m_count = 0;
};

class StdGuard {
public:
    static constexpr const char* kName = "std::lock_guard";
    void once() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_count;
    }

private:
    std::mutex m_mutex;
    int m_count = 0;
};

template <template <typename> class Guard>
class OurGuard {
public:
    static constexpr const char* kName = kOurs;
    void once() {
        const Guard<pthread_mutex_t> lock(m_mutex);
        ++m_count;
    }

private:
    tevalon::base::Mutex m_mutex;
    int m_count = 0;
};

template <typename Lock>
void alone(benchmark::State& state) {
    const Placement placement(Cpus::One);
    placement.forSenders();
    Lock lock;
    for (auto _ : state) {
        lock.once();
        benchmark::ClobberMemory();
    }
}

template <typename Lock>
void lockMany(Lock* p_lock, std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i) p_lock->once();
}

template <typename Lock>
void contended(benchmark::State& state, int count, std::int64_t times) {
    Lock lock;
    while (state.KeepRunningBatch(times)) {
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i) {
            threads.emplace_back([&] { lockMany(&lock, times / count); });
        }
        for (std::thread& thread : threads) thread.join();
    }
}

template <typename Lock>
void addLockRows(const std::string& guard) {
    constexpr int kThreads = 4;
    const std::int64_t times = scaled(2000000);
    addRow("locks/" + guard + "/1_thread/one_cpu", Lock::kName, alone<Lock>);
    addRow("locks/" + guard + "/4_threads/unpinned", Lock::kName, [=](benchmark::State& state) {
        contended<Lock>(state, kThreads, times);
    })->Iterations(times);
}

template <typename Ours>
void addRowsBeside(const std::string& guard) {
    addLockRows<Ours>(guard);
    addLockRows<BareCalls>(guard);
    addLockRows<StdGuard>(guard);
}

struct Service {
    int number = 1;
};

void singleton(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(tevalon::base::Singleton<Service>::GetInstance()->number);
        benchmark::ClobberMemory();
    }
}

Service* functionStatic() {
    static Service* const s_service = new Service();
    return s_service;
}

void localStatic(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(functionStatic()->number);
        benchmark::ClobberMemory();
    }
}

const bool s_areRowsAdded = [] {
    addRow("singletons/get_instance/unpinned", kOurs, singleton);
    addRow("singletons/get_instance/unpinned", kLimit, localStatic);
    addRowsBeside<OurGuard<tevalon::base::AutoLock>>("auto_lock");
    addRowsBeside<OurGuard<tevalon::base::LockGuard>>("lock_guard");
    addRowsBeside<OurGuard<tevalon::base::UniqueLock>>("unique_lock");
    return true;
}();

}  // namespace
}  // namespace bench
