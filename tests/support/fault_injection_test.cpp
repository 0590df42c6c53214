#include "support/fault_injection.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <time.h>

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <system_error>
#include <thread>

#include "base/logging.h"
#include "support/event.h"
#include "support/log_capture.h"

namespace {

using test::Call;
using test::CountCalls;
using test::FailCall;
using test::ReplaceCall;
using test::RunAtCall;
using test::When;

class FaultInjectionTest : public testing::Test {
protected:
    int lockAndUnlock() {
        const int result = pthread_mutex_lock(&m_mutex);
        if (result == 0) pthread_mutex_unlock(&m_mutex);
        return result;
    }

    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
};

TEST_F(FaultInjectionTest, FailsTheFirstCallOnlyAndCountsIt) {
    FailCall fail(Call::PthreadMutexLock, EINVAL, When().on(&m_mutex));

    EXPECT_EQ(lockAndUnlock(), EINVAL);
    EXPECT_EQ(lockAndUnlock(), 0);

    EXPECT_EQ(fail.seen(), 2);
    EXPECT_EQ(fail.hits(), 1);
}

TEST_F(FaultInjectionTest, FailsTheNamedUses) {
    FailCall fail(Call::PthreadMutexLock, EINVAL, When().on(&m_mutex).nth(2).times(2));

    EXPECT_EQ(lockAndUnlock(), 0);
    EXPECT_EQ(lockAndUnlock(), EINVAL);
    EXPECT_EQ(lockAndUnlock(), EINVAL);
    EXPECT_EQ(lockAndUnlock(), 0);

    EXPECT_EQ(fail.hits(), 2);
}

TEST_F(FaultInjectionTest, EndsWithTheObject) {
    { FailCall fail(Call::PthreadMutexLock, EINVAL, When().everyTime()); }

    EXPECT_EQ(lockAndUnlock(), 0);
}

TEST_F(FaultInjectionTest, LeavesOtherObjectsAlone) {
    pthread_mutex_t other = PTHREAD_MUTEX_INITIALIZER;
    FailCall fail(Call::PthreadMutexLock, EINVAL, When().on(&other));

    EXPECT_EQ(lockAndUnlock(), 0);

    EXPECT_EQ(fail.seen(), 0);
}

TEST_F(FaultInjectionTest, LeavesOtherThreadsAloneUnlessAsked) {
    int mine = -1;
    int anybodys = -1;

    {
        FailCall fail(Call::PthreadMutexLock, EINVAL, When().on(&m_mutex).everyTime());
        std::thread([&] { mine = lockAndUnlock(); }).join();
    }
    {
        FailCall fail(Call::PthreadMutexLock, EINVAL, When().on(&m_mutex).everyTime().anyThread());
        std::thread([&] { anybodys = lockAndUnlock(); }).join();
    }

    EXPECT_EQ(mine, 0);
    EXPECT_EQ(anybodys, EINVAL);
}

TEST_F(FaultInjectionTest, MayMakeTheCallBeforeReportingItFailed) {
    int result = 0;
    {
        FailCall fail(Call::PthreadMutexLock, EINVAL, When().on(&m_mutex).afterTheCall());
        result = pthread_mutex_lock(&m_mutex);
    }

    EXPECT_EQ(result, EINVAL);
    EXPECT_EQ(pthread_mutex_trylock(&m_mutex), EBUSY);
    pthread_mutex_unlock(&m_mutex);
}

TEST_F(FaultInjectionTest, LeavesErrnoAloneWhereTheResultIsTheError) {
    errno = EDOM;
    FailCall fail(Call::PthreadMutexLock, EINVAL, When().on(&m_mutex));

    const int result = pthread_mutex_lock(&m_mutex);

    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(result, EINVAL);
}

TEST_F(FaultInjectionTest, SetsErrnoWhereTheResultIsMinusOne) {
    FailCall fail(Call::ClockGettime, EPERM);
    timespec now = {};
    errno = 0;

    const int result = clock_gettime(CLOCK_MONOTONIC, &now);

    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(result, -1);
}

TEST_F(FaultInjectionTest, CatchesCallsOfTheStandardLibrarysHeaders) {
    std::mutex mutex;
    FailCall fail(Call::PthreadMutexLock, EINVAL, When().on(mutex.native_handle()));

    EXPECT_THROW(mutex.lock(), std::system_error);

    EXPECT_EQ(fail.hits(), 1);
}

TEST_F(FaultInjectionTest, CatchesCallsOfTheStandardLibraryItself) {
    FailCall create(Call::PthreadCreate, EAGAIN);
    CountCalls notify(Call::PthreadCondBroadcast);
    std::condition_variable condition;

    EXPECT_THROW(std::thread([] {}), std::system_error);
    condition.notify_all();

    EXPECT_EQ(create.hits(), 1);
    EXPECT_EQ(notify.seen(), 1);
}

TEST_F(FaultInjectionTest, CatchesCallsOfTheLibraryUnderTest) {
    const test::LogCapture everyLevel;  // A dump that is off does nothing.
    CountCalls clock(Call::ClockGettime);

    dump_memory("title", nullptr, 0);

    EXPECT_EQ(clock.seen(), 1);
}

TEST_F(FaultInjectionTest, CatchesEachPthreadCallAndClock) {
    pthread_mutex_t mutex;
    pthread_cond_t condition;
    timespec past = {0, 0};
    FailCall mutexInit(Call::PthreadMutexInit, ENOMEM, When().on(&mutex));
    FailCall unlock(Call::PthreadMutexUnlock, EPERM, When().on(&m_mutex));
    FailCall condInit(Call::PthreadCondInit, ENOMEM, When().on(&condition));
    FailCall wait(Call::PthreadCondWait, EINVAL, When().on(&condition));
    FailCall clockwait(Call::PthreadCondClockwait, EINVAL, When().on(&condition));
    FailCall signal(Call::PthreadCondSignal, EINVAL, When().on(&condition));
    FailCall broadcast(Call::PthreadCondBroadcast, EINVAL, When().on(&condition));
    FailCall condDestroy(Call::PthreadCondDestroy, EBUSY, When().on(&condition));
    FailCall mutexDestroy(Call::PthreadMutexDestroy, EBUSY, When().on(&mutex));
    FailCall yield(Call::SchedYield, EPERM);
    FailCall join(Call::PthreadJoin, ESRCH);

    EXPECT_EQ(pthread_mutex_init(&mutex, nullptr), ENOMEM);
    EXPECT_EQ(pthread_mutex_unlock(&m_mutex), EPERM);
    EXPECT_EQ(pthread_cond_init(&condition, nullptr), ENOMEM);
    EXPECT_EQ(pthread_cond_wait(&condition, &m_mutex), EINVAL);
    EXPECT_EQ(pthread_cond_clockwait(&condition, &m_mutex, CLOCK_MONOTONIC, &past), EINVAL);
    EXPECT_EQ(pthread_cond_signal(&condition), EINVAL);
    EXPECT_EQ(pthread_cond_broadcast(&condition), EINVAL);
    EXPECT_EQ(pthread_cond_destroy(&condition), EBUSY);
    EXPECT_EQ(pthread_mutex_destroy(&mutex), EBUSY);
    EXPECT_EQ(sched_yield(), -1);
    EXPECT_EQ(pthread_join(pthread_self(), nullptr), ESRCH);
}

TEST_F(FaultInjectionTest, CatchesTheDebugOutputsLevelCheck) {
    FailCall on(Call::ZorDebugCheckLevel, 0, When().everyTime());

    EXPECT_FALSE(tevalon::base::isLogOn(tevalon::base::kLogAlways));

    EXPECT_EQ(on.hits(), 1);
}

TEST_F(FaultInjectionTest, PassesTimedWaitsOnToTheRightVersion) {
    std::mutex mutex;
    std::condition_variable condition;
    std::unique_lock<std::mutex> lock(mutex);

    const std::cv_status status = condition.wait_for(lock, std::chrono::milliseconds(1));

    EXPECT_EQ(status, std::cv_status::timeout);
}

struct alignas(64) Wide {
    char bytes[64];
};

// Keeps the optimiser from removing an allocation that nobody uses.
template <typename T>
bool isThere(const std::unique_ptr<T>& pointer) {
    const void* volatile address = pointer.get();
    return address != nullptr;
}

TEST_F(FaultInjectionTest, MakesEveryFormOfNewFail) {
    FailCall fail(Call::New, 0, When().everyTime());

    EXPECT_THROW(isThere(std::make_unique<int>()), std::bad_alloc);
    EXPECT_THROW(isThere(std::make_unique<int[]>(3)), std::bad_alloc);
    EXPECT_THROW(isThere(std::make_unique<Wide>()), std::bad_alloc);
    EXPECT_THROW(isThere(std::make_unique<Wide[]>(3)), std::bad_alloc);
    EXPECT_FALSE(isThere(std::unique_ptr<int>(new (std::nothrow) int)));
    EXPECT_FALSE(isThere(std::unique_ptr<int[]>(new (std::nothrow) int[3])));
    EXPECT_FALSE(isThere(std::unique_ptr<Wide>(new (std::nothrow) Wide)));
    EXPECT_FALSE(isThere(std::unique_ptr<Wide[]>(new (std::nothrow) Wide[3])));

    EXPECT_EQ(fail.hits(), 8);
}

TEST_F(FaultInjectionTest, CountsEachNewOnceWhicheverFormItTakes) {
    CountCalls count(Call::New);

    EXPECT_TRUE(isThere(std::make_unique<int>()));
    EXPECT_TRUE(isThere(std::make_unique<int[]>(3)));
    EXPECT_TRUE(isThere(std::make_unique<Wide>()));
    EXPECT_TRUE(isThere(std::make_unique<Wide[]>(3)));
    EXPECT_TRUE(isThere(std::unique_ptr<int>(new (std::nothrow) int)));
    EXPECT_TRUE(isThere(std::unique_ptr<int[]>(new (std::nothrow) int[3])));
    EXPECT_TRUE(isThere(std::unique_ptr<Wide>(new (std::nothrow) Wide)));
    EXPECT_TRUE(isThere(std::unique_ptr<Wide[]>(new (std::nothrow) Wide[3])));

    EXPECT_EQ(count.seen(), 8);
}

TEST_F(FaultInjectionTest, MakesMallocFailAlsoBeneathNew) {
    if (!test::isSupported(Call::Malloc)) GTEST_SKIP() << "the sanitizer has its own malloc";
    void* volatile direct = &m_mutex;
    bool threw = false;
    {
        FailCall fail(Call::Malloc, ENOMEM, When().times(2));
        direct = std::malloc(8);
        try {
            (void)isThere(std::make_unique<std::string>());
        } catch (const std::bad_alloc&) {
            threw = true;
        }
    }

    EXPECT_EQ(direct, nullptr);
    EXPECT_TRUE(threw);
}

TEST_F(FaultInjectionTest, RunsAnActionBeforeTheCall) {
    bool heldAlready = true;
    RunAtCall look(
        Call::PthreadMutexLock,
        [&] {
            heldAlready = pthread_mutex_trylock(&m_mutex) != 0;
            if (!heldAlready) pthread_mutex_unlock(&m_mutex);
        },
        When().on(&m_mutex));

    pthread_mutex_lock(&m_mutex);

    EXPECT_FALSE(heldAlready);
    EXPECT_EQ(pthread_mutex_trylock(&m_mutex), EBUSY);
    pthread_mutex_unlock(&m_mutex);
}

TEST_F(FaultInjectionTest, HoldsAnotherThreadAtACall) {
    test::Event arrived;
    test::Event go;
    bool went = false;
    RunAtCall hold(
        Call::PthreadMutexLock,
        [&] {
            arrived.set();
            (void)go.wait();
        },
        When().on(&m_mutex).anyThread());
    std::thread thread([&] {
        lockAndUnlock();
        went = true;
    });

    ASSERT_TRUE(arrived.wait());
    const long hits = hold.hits();
    go.set();
    thread.join();

    EXPECT_EQ(hits, 1);
    EXPECT_TRUE(went);
}

TEST_F(FaultInjectionTest, ReplacesACallAndItsResult) {
    ReplaceCall<int(clockid_t, timespec*)> clock(Call::ClockGettime,
                                                 [](clockid_t id, timespec* p_time) {
                                                     *p_time = {12, id};
                                                     return 0;
                                                 });
    timespec now = {};

    const int result = clock_gettime(CLOCK_MONOTONIC, &now);

    EXPECT_EQ(result, 0);
    EXPECT_EQ(now.tv_sec, 12);
    EXPECT_EQ(now.tv_nsec, CLOCK_MONOTONIC);
}

TEST_F(FaultInjectionTest, AReplacementMayMakeTheCallAfterAll) {
    int calls = 0;
    ReplaceCall<int(pthread_mutex_t*)> lock(
        Call::PthreadMutexLock,
        [&](pthread_mutex_t* p_mutex) {
            ++calls;
            return pthread_mutex_lock(p_mutex);
        },
        When().on(&m_mutex).everyTime());

    EXPECT_EQ(lockAndUnlock(), 0);

    EXPECT_EQ(calls, 1);
}

TEST_F(FaultInjectionTest, TheOldestOfSeveralHasTheCallAndAllSeeIt) {
    FailCall older(Call::PthreadMutexLock, EINVAL, When().on(&m_mutex));
    FailCall younger(Call::PthreadMutexLock, EPERM, When().on(&m_mutex).everyTime());

    EXPECT_EQ(lockAndUnlock(), EINVAL);
    EXPECT_EQ(lockAndUnlock(), EPERM);

    EXPECT_EQ(younger.seen(), 2);
    EXPECT_EQ(younger.hits(), 1);
}

TEST_F(FaultInjectionTest, PassesCallsOnWhileToldTo) {
    FailCall fail(Call::PthreadMutexLock, EINVAL, When().everyTime());

    int result = -1;
    {
        const test::PassCalls pass;
        result = lockAndUnlock();
    }

    EXPECT_EQ(result, 0);
    EXPECT_EQ(fail.seen(), 0);
}

TEST_F(FaultInjectionTest, DoesNotTouchTheTestSupportItself) {
    FailCall fail(Call::PthreadMutexLock, EINVAL, When().everyTime());
    test::Event event;

    event.set();

    EXPECT_TRUE(event.isSet());
}

}  // namespace
