#define BLOG_TAG "OpApp"

#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

#include "base/logging.h"
#include "base/synchronization/auto_lock.h"
#include "support/fault_injection.h"
#include "support/log_capture.h"

namespace {

using namespace tevalon::base;
using test::LogCapture;
using test::LogEntry;

TEST(OwnTagTest, StandsInTheLinesOfTheSourceThatDefinesIt) {
    LogCapture log;

    BLOG(kLogError, "text %d\n", 1);
    BLOG_EXCEPTION(std::runtime_error("what"));

    const std::vector<LogEntry> expected = {
        {kLogError, "[OpApp] own_tag_test.cpp:#:TestBody(): text 1\n"},
        {kLogError,
         "[OpApp] own_tag_test.cpp:#:TestBody(): An runtime_error has been caught:what.\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

TEST(OwnTagTest, IsNotTakenOverByTheGuardsOfTheHeaders) {
    Mutex mutex;
    LogCapture log;
    errno = EDOM;

    {
        test::FailCall fail(test::Call::PthreadMutexLock, EINVAL,
                            test::When().on(mutex.nativeHandle()).afterTheCall());
        const AutoLock lock(mutex);
    }

    const std::vector<LogEntry> expected = {
        {kLogError,
         "[B-LOG] auto_lock.h:31:AutoLock(): An runtime_error has been caught:Mutex lock error: "
         "Numerical argument out of domain.\n"}};
    EXPECT_EQ(log.entries(), expected);
}

}  // namespace
