// Client modules choose for themselves how wide time_t and off_t are: every public header compiles
// either way, and what it declares links.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <ctime>

#include "base/container.h"
#include "base/event_dispatcher.h"
#include "base/logging.h"
#include "base/simple_timer.h"
#include "base/singleton.h"
#include "base/synchronization/auto_lock.h"
#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock_guard.h"
#include "base/synchronization/unique_lock.h"
#include "base/threading.h"
#include "base/timer.h"
#include "base/utils.h"
#include "support/event.h"
#include "support/log_capture.h"

namespace {

using namespace tevalon::base;

TEST(TimeWidthTest, IsTheOneThatThisProgramIsAbout) {
    EXPECT_EQ(sizeof(std::time_t), TEVALON_TEST_TIME_BYTES);
    EXPECT_EQ(sizeof(off_t), TEVALON_TEST_OFFSET_BYTES);
}

TEST(TimeWidthTest, DoesNotMatterToTasks) {
    timer::CallableTimerTask task([] {});
    task.setNextFireTime(12.5);

    EXPECT_EQ(task.getNextFireTime(), 12.5);
}

TEST(TimeWidthTest, DoesNotMatterToEvents) {
    event_dispatcher::BrowserEvent event(1, 2, nullptr);
    EXPECT_EQ(event.initWaitResultCv(), 0);
    EXPECT_EQ(event.waitForResult(0), event_dispatcher::kEventResultTimeout);
    event.replyResult(7);

    EXPECT_EQ(event.waitForResult(1000), 7);
}

TEST(TimeWidthTest, DoesNotMatterToTimers) {
    const test::LogCapture log(kLogError);
    test::Event fired;
    simple_timer::Timer timer(
        "width", {0, 1, 500}, [&](simple_timer::Timer*, void*) { fired.set(); }, nullptr,
        simple_timer::ONCE);

    EXPECT_EQ(timer.start(), 0);

    EXPECT_TRUE(fired.wait());
    EXPECT_EQ(timer.stop(), 0);
}

}  // namespace
