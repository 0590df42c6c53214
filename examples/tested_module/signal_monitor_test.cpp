// signal_monitor_test.cpp: the monitor between a tuner and a viewer that are not there.
#include "signal_monitor.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "testkit/fail_call.h"
#include "testkit/log.h"
#include "testkit/manual_time.h"
#include "testkit/spy_hub.h"

namespace {

using namespace std::chrono_literals;
using testing::Not;
using namespace tevalon::testkit;

class SignalMonitorTest : public testing::Test {
protected:
    CapturedLog log;
    SpyHub tuner{tv::kTuner};
    SpyHub viewer{tv::kViewer};
    tv::SignalMonitor monitor;
};

TEST_F(SignalMonitorTest, AsksTheTunerEveryHalfSecond) {
    tuner.answer(tv::kSignalAsked, 80);
    viewer.take(tv::kSignalLost);

    ASSERT_TRUE(monitor.start());
    advance(1600ms);

    EXPECT_EQ(tuner.count(tv::kSignalAsked), 4U);  // At 0, 500, 1000 and 1500 ms.
    EXPECT_EQ(viewer.count(tv::kSignalLost), 0U);
    EXPECT_THAT(log, Not(Logged(Text("no signal"))));
    EXPECT_THAT(log, LoggedNoError());
}

TEST_F(SignalMonitorTest, TellsTheViewerOnceOfASignalThatIsTooWeakForLong) {
    tuner.answer(tv::kSignalAsked, 9);
    viewer.take(tv::kSignalLost);

    ASSERT_TRUE(monitor.start());
    advance(999ms);
    EXPECT_EQ(viewer.count(tv::kSignalLost), 0U);
    advance(1ms);
    EXPECT_EQ(viewer.count(tv::kSignalLost), 1U);
    advance(1h);

    EXPECT_EQ(viewer.count(tv::kSignalLost), 1U);
    EXPECT_THAT(log, LoggedTimes(1, Text("no signal")));
}

TEST_F(SignalMonitorTest, TakesATunerThatDoesNotAnswerForNoSignal) {
    tuner.take(tv::kSignalAsked);
    viewer.take(tv::kSignalLost);

    ASSERT_TRUE(monitor.start());
    advance(1599ms);  // 200 ms for each of three answers, and 500 ms between them.
    EXPECT_EQ(viewer.count(tv::kSignalLost), 0U);
    advance(1ms);

    EXPECT_EQ(viewer.count(tv::kSignalLost), 1U);
}

TEST_F(SignalMonitorTest, CountsAnewOnceThereIsASignal) {
    int asked = 0;
    tuner.answer(tv::kSignalAsked, [&](const auto&) { return ++asked % 3 == 0 ? 80 : 0; });
    viewer.take(tv::kSignalLost);

    ASSERT_TRUE(monitor.start());
    advance(1h);

    EXPECT_EQ(viewer.count(tv::kSignalLost), 0U);
}

TEST_F(SignalMonitorTest, SaysThatItCannotStart) {
    const FailCall fail(Call::PthreadCreate, EAGAIN);

    EXPECT_FALSE(monitor.start());

    EXPECT_THAT(log, LoggedInOrder(Message(log_messages::kTaskThreadNeeded),
                                   Text("cannot start: Thread initialization failed")));
}

}  // namespace
