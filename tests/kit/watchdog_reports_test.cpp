#include "testkit/watchdog_reports.h"

#include <gmock/gmock.h>

namespace {

using tevalon::base::timer::GlobalWatchDog;
using tevalon::base::timer::NamedWatch;
using tevalon::base::timer::WatchDog;
using tevalon::testkit::WatchdogReports;

constexpr double kAtOnce = 0.0;

TEST(WatchdogReportsTest, RemembersWhatAWatchdogReports) {
    WatchdogReports reports;
    WatchDog dog;
    reports.attachTo(dog);
    dog.beginWatch(WatchDog::eWatchID_doOOM, kAtOnce);

    ASSERT_TRUE(reports.waitFor(2));

    EXPECT_EQ(reports.all()[0].name, "eWatchID_doOOM");
    EXPECT_GE(reports.all()[1].seconds, reports.all()[0].seconds);
}

TEST(WatchdogReportsTest, IsTheCallbackOfANamedWatch) {
    WatchdogReports reports;
    const NamedWatch watch("tune", kAtOnce, reports.callback());

    ASSERT_TRUE(reports.waitFor(1));

    EXPECT_EQ(reports.all()[0].name, "tune");
}

TEST(WatchdogReportsTest, IsTheCallbackOfTheProcess) {
    WatchdogReports& reports = WatchdogReports::ofProcess();
    GlobalWatchDog()->beginWatch(WatchDog::eWatchID_doOOM, kAtOnce);
    ASSERT_TRUE(reports.waitFor(1));
    GlobalWatchDog()->stopWatch(WatchDog::eWatchID_doOOM);

    EXPECT_EQ(&WatchdogReports::ofProcess(), &reports);
    EXPECT_EQ(reports.all()[0].name, "eWatchID_doOOM");
}

TEST(WatchdogReportsTest, ForgetsWhatIsCleared) {
    WatchdogReports reports;
    reports.callback()("tune", 1.0);
    ASSERT_EQ(reports.all().size(), 1U);

    reports.clear();

    EXPECT_TRUE(reports.all().empty());
    EXPECT_FALSE(reports.waitFor(1, std::chrono::milliseconds(1)));
}

}  // namespace
