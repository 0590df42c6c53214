// Singletons, and the pool that is one.
#include <atomic>
#include <memory>
#include <thread>

#include "base/event_dispatcher.h"
#include "base/singleton.h"
#include "base/timer.h"
#include "os/semaphore.h"
#include "testkit/explore.h"

using tevalon::base::Semaphore;
using tevalon::base::timer::CallableTimerTask;
using tevalon::base::timer::TimerThreadPool;

namespace {

struct Service {
    Service() { ++s_made; }
    int value = 42;
    static inline std::atomic<int> s_made{0};
};

using ServiceSingleton =
    tevalon::base::Singleton<Service, tevalon::base::DefaultSingletonTraits<Service>, Service>;

}  // namespace

TEVALON_SCENARIO(SingletonIsMadeOnce) {
    Service* p_other = nullptr;
    std::thread other([&] { p_other = ServiceSingleton::GetInstance(); });
    Service* const p_own = ServiceSingleton::GetInstance();
    TEVALON_EXPECT(p_own->value == 42);
    other.join();
    TEVALON_EXPECT(p_own == p_other && p_other->value == 42 && Service::s_made == 1);
}

TEVALON_SCENARIO(SingletonIsMadeOnceByThree) {
    const auto look = [] { TEVALON_EXPECT(ServiceSingleton::GetInstance()->value == 42); };
    std::thread first(look);
    std::thread second(look);
    look();
    first.join();
    second.join();
    TEVALON_EXPECT(Service::s_made == 1);
}

// Two posts to the workers choose one each, or the same one; both tasks fire.
TEVALON_SCENARIO(PoolSelection) {
    Semaphore fired;
    TimerThreadPool::init(2);
    const auto post = [&] {
        TimerThreadPool::postWorkerTask(std::make_shared<CallableTimerTask>([&] { fired.post(); }));
    };
    std::thread other(post);
    post();
    other.join();
    fired.wait();
    fired.wait();
}
