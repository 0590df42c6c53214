// guard_tests.h: what AutoLock, UniqueLock and LockGuard have in common, tested for each.

#ifndef TESTS_SYNCHRONIZATION_GUARD_TESTS_H
#define TESTS_SYNCHRONIZATION_GUARD_TESTS_H

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <cstring>
#include <mutex>
#include <string>
#include <system_error>
#include <type_traits>
#include <vector>

#include "base/logging/log_level.h"
#include "base/synchronization/mutex.h"
#include "support/fault_injection.h"
#include "support/log_capture.h"

/// Whether @p p_mutex is held by anybody; by the asking thread too, for it is not recursive.
inline bool isHeld(pthread_mutex_t* p_mutex) {
    const test::PassCalls pass;
    if (pthread_mutex_trylock(p_mutex) != 0) return true;
    pthread_mutex_unlock(p_mutex);
    return false;
}

/// @tparam Guard  Names the class template, `template On<NativeMutex>`, and what its lines say:
///                kFile, kName, kLockLine, kUnlockLine.
template <typename Guard>
class GuardTest : public testing::Test {
protected:
    static std::vector<test::LogEntry> lineOf(int line, const std::string& function,
                                              const std::string& what) {
        return {{tevalon::base::kLogError,
                 "[B-LOG] " + std::string(Guard::kFile) + ":" + std::to_string(line) + ":" +
                     function + "(): An runtime_error has been caught:" + what + ".\n"}};
    }
    static std::vector<test::LogEntry> lockLine(const std::string& what) {
        return lineOf(Guard::kLockLine, Guard::kName, what);
    }
    static std::vector<test::LogEntry> unlockLine(const std::string& what) {
        return lineOf(Guard::kUnlockLine, "~" + std::string(Guard::kName), what);
    }

    /// Failing, but made all the same, so that what is unlocked afterwards was locked.
    static test::When failing(pthread_mutex_t* p_mutex) {
        return test::When().on(p_mutex).afterTheCall();
    }

    tevalon::base::Mutex m_mutex;
    pthread_mutex_t m_native = PTHREAD_MUTEX_INITIALIZER;
    std::mutex m_standard;
};

/// Names the instances of GuardTest after their guard.
struct GuardNames {
    template <typename Guard>
    static std::string GetName(int /*index*/) {
        return Guard::kName;
    }
};

TYPED_TEST_SUITE_P(GuardTest);

TYPED_TEST_P(GuardTest, HoldsAMutexForItsScope) {
    using Lock = typename TypeParam::template On<pthread_mutex_t>;
    const test::LogCapture log;
    {
        const Lock lock(this->m_mutex);
        EXPECT_TRUE(isHeld(this->m_mutex.nativeHandle()));
    }
    EXPECT_FALSE(isHeld(this->m_mutex.nativeHandle()));
    EXPECT_TRUE(log.entries().empty());
}

TYPED_TEST_P(GuardTest, HoldsANativeMutexForItsScope) {
    using Lock = typename TypeParam::template On<pthread_mutex_t>;
    const test::LogCapture log;
    {
        const Lock lock(this->m_native);
        EXPECT_TRUE(isHeld(&this->m_native));
    }
    EXPECT_FALSE(isHeld(&this->m_native));
    EXPECT_TRUE(log.entries().empty());
}

TYPED_TEST_P(GuardTest, HoldsAStandardMutexForItsScope) {
    using Lock = typename TypeParam::template On<std::mutex>;
    const test::LogCapture log;
    {
        const Lock lock(this->m_standard);
        EXPECT_TRUE(isHeld(this->m_standard.native_handle()));
    }
    EXPECT_FALSE(isHeld(this->m_standard.native_handle()));
    EXPECT_TRUE(log.entries().empty());
}

TYPED_TEST_P(GuardTest, ReleasesTheMutexWhenAnExceptionPasses) {
    using Lock = typename TypeParam::template On<pthread_mutex_t>;

    try {
        const Lock lock(this->m_native);
        throw 1;
    } catch (int) {
    }

    EXPECT_FALSE(isHeld(&this->m_native));
}

TYPED_TEST_P(GuardTest, ReportsAFailedLockInOneLineAndDoesNotThrow) {
    using Lock = typename TypeParam::template On<pthread_mutex_t>;
    test::LogCapture log;
    test::FailCall fail(test::Call::PthreadMutexLock, EINVAL,
                        this->failing(this->m_mutex.nativeHandle()));
    errno = EDOM;

    { const Lock lock(this->m_mutex); }

    EXPECT_EQ(fail.hits(), 1);
    EXPECT_EQ(log.entries(),
              this->lockLine("Mutex lock error: " + std::string(std::strerror(EDOM))));
}

TYPED_TEST_P(GuardTest, ReportsAFailedLockOfANativeMutex) {
    using Lock = typename TypeParam::template On<pthread_mutex_t>;
    test::LogCapture log;
    test::FailCall fail(test::Call::PthreadMutexLock, EDEADLK, this->failing(&this->m_native));
    errno = 0;

    { const Lock lock(this->m_native); }

    // Not the error that the call returned: errno has nothing to tell.
    EXPECT_EQ(log.entries(), this->lockLine("Mutex lock error: Success"));
}

TYPED_TEST_P(GuardTest, ReportsAFailedLockOfAStandardMutexInTheStandardLibrarysWords) {
    using Lock = typename TypeParam::template On<std::mutex>;
    test::LogCapture log;
    test::FailCall fail(test::Call::PthreadMutexLock, EDEADLK,
                        this->failing(this->m_standard.native_handle()));
    errno = EDOM;

    { const Lock lock(this->m_standard); }

    const std::system_error error(EDEADLK, std::generic_category());
    EXPECT_EQ(fail.hits(), 1);
    EXPECT_EQ(log.entries(), this->lockLine(error.what()));
}

TYPED_TEST_P(GuardTest, ReportsAFailedUnlockInOneLineAndDoesNotThrow) {
    using Lock = typename TypeParam::template On<pthread_mutex_t>;
    test::LogCapture log;
    test::FailCall fail(test::Call::PthreadMutexUnlock, EPERM,
                        this->failing(this->m_mutex.nativeHandle()));
    {
        const Lock lock(this->m_mutex);
        errno = ERANGE;
    }

    EXPECT_EQ(fail.hits(), 1);
    EXPECT_EQ(log.entries(),
              this->unlockLine("Mutex unlock error: " + std::string(std::strerror(ERANGE))));
}

TYPED_TEST_P(GuardTest, ReportsAFailedUnlockOfANativeMutex) {
    using Lock = typename TypeParam::template On<pthread_mutex_t>;
    test::LogCapture log;
    test::FailCall fail(test::Call::PthreadMutexUnlock, EPERM, this->failing(&this->m_native));
    {
        const Lock lock(this->m_native);
        errno = 0;
    }

    EXPECT_EQ(log.entries(), this->unlockLine("Mutex unlock error: Success"));
}

TYPED_TEST_P(GuardTest, ReportsNoFailedUnlockOfAStandardMutex) {
    using Lock = typename TypeParam::template On<std::mutex>;
    test::LogCapture log;
    test::FailCall fail(test::Call::PthreadMutexUnlock, EPERM,
                        this->failing(this->m_standard.native_handle()));

    { const Lock lock(this->m_standard); }

    EXPECT_EQ(fail.hits(), 1);
    EXPECT_TRUE(log.entries().empty());
}

TYPED_TEST_P(GuardTest, UnlocksEvenAfterAFailedLock) {
    using Lock = typename TypeParam::template On<pthread_mutex_t>;
    test::LogCapture log;
    test::FailCall lockFails(test::Call::PthreadMutexLock, EINVAL,
                             test::When().on(&this->m_native));
    test::FailCall unlockFails(test::Call::PthreadMutexUnlock, EPERM,
                               test::When().on(&this->m_native));
    {
        errno = EDOM;
        const Lock lock(this->m_native);
        errno = EDOM;
    }

    EXPECT_EQ(lockFails.seen(), 1);
    EXPECT_EQ(unlockFails.seen(), 1);
    std::vector<test::LogEntry> expected =
        this->lockLine("Mutex lock error: " + std::string(std::strerror(EDOM)));
    expected.push_back(
        this->unlockLine("Mutex unlock error: " + std::string(std::strerror(EDOM))).front());
    EXPECT_EQ(log.entries(), expected);
}

TYPED_TEST_P(GuardTest, ReportsNothingWhenTheErrorLevelIsOff) {
    using Lock = typename TypeParam::template On<pthread_mutex_t>;
    test::LogCapture log(tevalon::base::kLogAlways);
    test::FailCall fail(test::Call::PthreadMutexLock, EINVAL, this->failing(&this->m_native));

    { const Lock lock(this->m_native); }

    EXPECT_EQ(fail.hits(), 1);
    EXPECT_TRUE(log.entries().empty());
}

TYPED_TEST_P(GuardTest, IsNeitherCopiedNorThrowsFromItsDestructor) {
    using Lock = typename TypeParam::template On<pthread_mutex_t>;

    EXPECT_FALSE(std::is_copy_constructible<Lock>::value);
    EXPECT_FALSE(std::is_copy_assignable<Lock>::value);
    EXPECT_TRUE(std::is_nothrow_destructible<Lock>::value);
    EXPECT_EQ(sizeof(Lock), sizeof(pthread_mutex_t*));
}

REGISTER_TYPED_TEST_SUITE_P(
    GuardTest, HoldsAMutexForItsScope, HoldsANativeMutexForItsScope, HoldsAStandardMutexForItsScope,
    ReleasesTheMutexWhenAnExceptionPasses, ReportsAFailedLockInOneLineAndDoesNotThrow,
    ReportsAFailedLockOfANativeMutex, ReportsAFailedLockOfAStandardMutexInTheStandardLibrarysWords,
    ReportsAFailedUnlockInOneLineAndDoesNotThrow, ReportsAFailedUnlockOfANativeMutex,
    ReportsNoFailedUnlockOfAStandardMutex, UnlocksEvenAfterAFailedLock,
    ReportsNothingWhenTheErrorLevelIsOff, IsNeitherCopiedNorThrowsFromItsDestructor);

#endif  // TESTS_SYNCHRONIZATION_GUARD_TESTS_H
