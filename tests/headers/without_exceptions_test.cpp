// A client without exceptions works, and its guards report what they cannot throw.

#include "headers/without_exceptions.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "support/fault_injection.h"
#include "support/log_capture.h"

namespace {

using test::Call;
using test::FailCall;
using test::When;

std::vector<std::string> textsOf(const test::LogCapture& log) {
    std::vector<std::string> texts;
    for (const test::LogEntry& entry : log.entriesWithoutLineNumbers()) texts.push_back(entry.text);
    return texts;
}

std::string line(const std::string& file, const std::string& function, const std::string& what) {
    return "[B-LOG] " + file + ".h:#:" + function + "(): An runtime_error has been caught:" + what +
           ".\n";
}

TEST(WithoutExceptionsTest, EachFamilyWorks) {
    EXPECT_EQ(without_exceptions::useEachFamily(),
              "event handled, timer fired, task ran, job done, one object, [1,two], volume 30");
}

TEST(WithoutExceptionsTest, AGuardLocksAndReportsAFailedLock) {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    test::LogCapture log;
    const FailCall fail(Call::PthreadMutexLock, EINVAL, When().on(&mutex).afterTheCall().times(3));
    errno = EDOM;

    without_exceptions::lockByEachGuard(&mutex);

    const std::string what = "Mutex lock error: " + std::string(std::strerror(EDOM));
    EXPECT_EQ(textsOf(log), (std::vector<std::string>{line("auto_lock", "AutoLock", what),
                                                      line("lock_guard", "LockGuard", what),
                                                      line("unique_lock", "UniqueLock", what)}));
    EXPECT_EQ(pthread_mutex_trylock(&mutex), 0);
    EXPECT_EQ(pthread_mutex_unlock(&mutex), 0);
}

TEST(WithoutExceptionsTest, AGuardOfAStandardMutexLikewise) {
    std::mutex mutex;
    test::LogCapture log;
    const FailCall fail(Call::PthreadMutexLock, EINVAL,
                        When().on(mutex.native_handle()).afterTheCall().times(3));

    without_exceptions::lockByEachGuard(&mutex);

    const std::string what = std::strerror(EINVAL);
    EXPECT_EQ(textsOf(log), (std::vector<std::string>{line("auto_lock", "AutoLock", what),
                                                      line("lock_guard", "LockGuard", what),
                                                      line("unique_lock", "UniqueLock", what)}));
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

}  // namespace
