// A watchdog whose mutex or thread cannot be had.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

#include "timer/watchdog_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::Call;
using test::FailCall;
using test::LogEntry;
using test::When;

/// What making a watchdog throws; errno is EDOM when it begins.
std::string errorOfMaking() {
    errno = EDOM;
    try {
        WatchDog dog;
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "";
}

TEST(WatchDogFailureTest, WithoutAMutexThereIsNone) {
    test::LogCapture log;
    FailCall noMutex(Call::PthreadMutexInit, ENOMEM);
    test::CountCalls created(Call::PthreadCreate);

    EXPECT_EQ(errorOfMaking(), std::string("Mutex init error: ") + std::strerror(EDOM));
    EXPECT_EQ(created.seen(), 0);
    EXPECT_TRUE(log.entries().empty());
}

TEST(WatchDogFailureTest, WithoutAThreadTheMutexIsDestroyed) {
    test::LogCapture log;
    FailCall noThread(Call::PthreadCreate, EAGAIN);
    test::CountCalls made(Call::PthreadMutexInit);
    test::CountCalls destroyed(Call::PthreadMutexDestroy);
    test::CountCalls joined(Call::PthreadJoin);

    EXPECT_EQ(errorOfMaking(), "Thread initialization failed");
    EXPECT_EQ(made.seen(), 1);
    EXPECT_EQ(destroyed.seen(), 1);
    EXPECT_EQ(joined.seen(), 0);
    EXPECT_TRUE(log.entries().empty());
}

TEST(WatchDogFailureTest, LockFailuresAreLoggedAndTheOperationGoesOn) {
    test::LogCapture log(kLogError);
    TurnedClock clock(100.0);
    HeldWatchDog dog;
    {
        FailCall fail(Call::PthreadMutexLock, EINVAL, When().afterTheCall());
        errno = EDOM;
        dog->beginWatch(WatchDog::eWatchID_app_stop, 0.5);
    }
    clock.set(101.0);
    {
        FailCall fail(Call::PthreadMutexUnlock, EINVAL, When().afterTheCall());
        errno = EDOM;
        EXPECT_EQ(dog->checkTimers(), std::vector<int>{22});
    }

    const std::vector<LogEntry> entries = log.entriesWithoutLineNumbers();
    ASSERT_EQ(entries.size(), 3U);
    const std::string description = std::strerror(EDOM);
    EXPECT_EQ(log.entries()[0],
              (LogEntry{kLogError,
                        "[B-LOG] lock_guard.h:29:LockGuard(): An runtime_error has been "
                        "caught:Mutex lock error: " +
                            description + ".\n"}));
    EXPECT_EQ(log.entries()[1],
              (LogEntry{kLogError,
                        "[B-LOG] lock_guard.h:43:~LockGuard(): An runtime_error has been "
                        "caught:Mutex unlock error: " +
                            description + ".\n"}));
    EXPECT_EQ(entries[2], watchLine(kLogError, "checkTimers",
                                    "Watch dog Timeout : 22(eWatchID_app_stop) ,  1.000000 \n"));
}

}  // namespace
