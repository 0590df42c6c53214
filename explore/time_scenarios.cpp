// Time that nobody can wait for.
#include <time.h>

#include <atomic>
#include <memory>
#include <thread>

#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/timer.h"
#include "os/monotonic_time.h"
#include "os/semaphore.h"
#include "testkit/explore.h"

using tevalon::base::monotonicSeconds;
using tevalon::base::Semaphore;
using tevalon::base::event_dispatcher::BrowserEvent;
using tevalon::base::event_dispatcher::EventHub;
using tevalon::base::simple_timer::CONTINUE;
using tevalon::base::simple_timer::ONCE;
using tevalon::base::simple_timer::Timer;
using tevalon::base::timer::CallableTimerTask;
using tevalon::base::timer::TimerThread;
using tevalon::base::timer::WatchDog;
using tevalon::testkit::elapsedNanoseconds;
using tevalon::testkit::ScenarioOptions;

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int32_t kHour = 3600;
constexpr std::int32_t kDay = 24 * kHour;
constexpr std::int64_t kYear = std::int64_t{365} * kDay * kSecond;
constexpr std::int64_t kTenYearsInSeconds = std::int64_t{3650} * kDay;
constexpr std::int64_t kMsOf32Bits = 4'294'967'296;  // 49.7 days.
constexpr std::int64_t kSecondsOf31Bits = 2'147'483'648;

// One schedule of many steps.
ScenarioOptions longRun() {
    ScenarioOptions options;
    options.mostSteps = 2'000'000;
    options.bound = 0;
    return options;
}

ScenarioOptions startsAt(std::int64_t seconds) {
    ScenarioOptions options = longRun();
    options.startSeconds = seconds;
    return options;
}

void sleepSeconds(time_t seconds) {
    const timespec duration = {seconds, 0};
    (void)nanosleep(&duration, nullptr);
}

void postSemaphore(void* p_context, WatchDog::WATCH_ID, double) {
    static_cast<Semaphore*>(p_context)->post();
}

std::shared_ptr<CallableTimerTask> makeTask(Semaphore* p_fired) {
    return std::make_shared<CallableTimerTask>([p_fired] { p_fired->post(); });
}

// One that is due right before that time, one at it, and one right after it.
void fireSimpleTimersAround(std::int32_t seconds) {
    Semaphore fired;
    const auto post = [&](Timer*, void*) { fired.post(); };
    Timer before("before", {seconds - 1, 999, 0}, post, nullptr, ONCE);
    Timer at("at", {seconds, 0, 0}, post, nullptr, ONCE);
    Timer after("after", {seconds, 1, 0}, post, nullptr, ONCE);
    TEVALON_EXPECT(after.start() == 0 && at.start() == 0 && before.start() == 0);
    const std::int64_t due = seconds * kSecond;
    fired.wait();
    TEVALON_EXPECT(elapsedNanoseconds() >= due - 1'000'000 && elapsedNanoseconds() < due);
    fired.wait();
    TEVALON_EXPECT(elapsedNanoseconds() >= due && elapsedNanoseconds() < due + 1'000'000);
    fired.wait();
    TEVALON_EXPECT(elapsedNanoseconds() >= due + 1'000'000);
}

}  // namespace

TEVALON_SCENARIO_WITH(TimersAfter49Days, longRun()) {
    fireSimpleTimersAround(static_cast<std::int32_t>(kMsOf32Bits / 1000 + 1));
}

TEVALON_SCENARIO_WITH(TimersAt49DaysOfClock, startsAt(kMsOf32Bits / 1000 - 5)) {
    fireSimpleTimersAround(5);
}

// A second before the clock's seconds end in 31 bits timers are still exact.
TEVALON_SCENARIO_WITH(TimersBefore31Bits, startsAt(kSecondsOf31Bits - 10)) {
    fireSimpleTimersAround(5);
}

// What would be due beyond is due at the edge, and not at once.
TEVALON_SCENARIO_WITH(TimerBeyond31Bits, startsAt(kSecondsOf31Bits - 10)) {
    Semaphore fired;
    Timer timer(
        "A", {60, 0, 0}, [&](Timer*, void*) { fired.post(); }, nullptr, ONCE);
    TEVALON_EXPECT(timer.start() == 0);
    fired.wait();
    TEVALON_EXPECT(elapsedNanoseconds() >= 9 * kSecond && elapsedNanoseconds() <= 60 * kSecond);
}

TEVALON_SCENARIO_WITH(TimerTaskAfter49Days, longRun()) {
    Semaphore fired;
    TimerThread thread;
    const auto task = makeTask(&fired);
    task->setNextFireTime(monotonicSeconds() + static_cast<double>(kMsOf32Bits) / 1000);
    thread.postTask(task);
    fired.wait();
    const std::int64_t due = kMsOf32Bits * 1'000'000;
    TEVALON_EXPECT(elapsedNanoseconds() >= due - 1000 && elapsedNanoseconds() < due + 1'000'000);
}

TEVALON_SCENARIO_WITH(TimerTaskAcross31Bits, startsAt(kSecondsOf31Bits - 1)) {
    Semaphore fired;
    TimerThread thread;
    thread.postTask(makeTask(&fired), 1500);
    fired.wait();
    TEVALON_EXPECT(elapsedNanoseconds() >= 1'499'999'000);
    TEVALON_EXPECT(elapsedNanoseconds() < 1'501'000'000);
}

// Of 2^31 milliseconds, nearly 25 days: the longest time-out there is.
TEVALON_SCENARIO_WITH(ReplyThatComesNever, longRun()) {
    BrowserEvent event(1, 1, nullptr);
    TEVALON_EXPECT(event.initWaitResultCv() == 0);
    TEVALON_EXPECT(event.waitForResult(INT32_MAX) == 1);
    TEVALON_EXPECT(elapsedNanoseconds() >= std::int64_t{INT32_MAX} * 1'000'000);
}

TEVALON_SCENARIO_WITH(ReplyAcross31Bits, startsAt(kSecondsOf31Bits - 1)) {
    BrowserEvent event(1, 1, nullptr);
    TEVALON_EXPECT(event.initWaitResultCv() == 0);
    TEVALON_EXPECT(event.waitForResult(2000) == 1);
    TEVALON_EXPECT(elapsedNanoseconds() >= 2 * kSecond);
}

// Each period begins when the last expiry is processed, which here takes no time.
TEVALON_SCENARIO_WITH(TenYearsOfAPeriodicTimer, longRun()) {
    std::atomic<int> fired{0};
    Timer timer(
        "A", {kDay, 0, 0}, [&](Timer*, void*) { ++fired; }, nullptr, CONTINUE);
    TEVALON_EXPECT(timer.start() == 0);
    sleepSeconds(kTenYearsInSeconds);
    TEVALON_EXPECT(fired >= 3649 && fired <= 3650);
    TEVALON_EXPECT(timer.stop() == 0);
    TEVALON_EXPECT(elapsedNanoseconds() >= 10 * kYear);
}

// A watch of ten years that is overdue by a second, and none before.
TEVALON_SCENARIO_WITH(TenYearsOfAWatch, longRun()) {
    Semaphore reported;
    WatchDog dog;
    dog.setTimeoutCallback(postSemaphore, &reported);
    dog.beginWatch(WatchDog::eWatchID_doOOM, double{kTenYearsInSeconds});
    tevalon::testkit::advanceClock(10 * kYear - kSecond);
    sleepSeconds(0);
    dog.checkTimers();
    TEVALON_EXPECT(elapsedNanoseconds() < 10 * kYear);
    reported.wait();
    TEVALON_EXPECT(elapsedNanoseconds() >= 10 * kYear);
    TEVALON_EXPECT(elapsedNanoseconds() < 10 * kYear + kSecond);
}
