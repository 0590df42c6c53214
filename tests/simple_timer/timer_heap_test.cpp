#include "timer/timer_heap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <random>
#include <vector>

#include "support/fault_injection.h"
#include "timer/timer_impl.h"

namespace {

using tevalon::base::simple_timer::ExpiredTime;
using tevalon::base::simple_timer::ONCE;
using tevalon::base::simple_timer::TimerHeap;
using tevalon::base::simple_timer::TimerImpl;
using Impl = std::shared_ptr<TimerImpl>;

// The clock reads as the test says, so that expiries can be chosen.
Impl timerDueAt(ExpiredTime expired) {
    auto timer = std::make_shared<TimerImpl>(
        nullptr, "timer", tevalon::base::simple_timer::TimeoutTime{0, 0, 0},
        [](tevalon::base::simple_timer::Timer*, void*) {}, nullptr, ONCE);
    const test::ReplaceCall<int(clockid_t, timespec*)> clock(test::Call::ClockGettime,
                                                             [expired](clockid_t, timespec* p_now) {
                                                                 p_now->tv_sec = expired.sec;
                                                                 p_now->tv_nsec = expired.nsec;
                                                                 return 0;
                                                             });
    EXPECT_EQ(timer->caculateExpiredTime(), 0);
    return timer;
}

// The rule itself: before the first entry that is due strictly later.
void insertByWalk(std::list<Impl>* p_list, const Impl& timer) {
    const auto later = std::find_if(p_list->begin(), p_list->end(), [&timer](const Impl& entry) {
        return timer->expiredTime() < entry->expiredTime();
    });
    p_list->insert(later, timer);
}

TEST(TimerHeapTest, EqualExpiriesStayInTheOrderOfTheirInsertion) {
    TimerHeap list;
    const std::vector<Impl> timers = {timerDueAt({5, 1}), timerDueAt({5, 1}), timerDueAt({5, 0})};
    for (const Impl& timer : timers) list.insert(*timer, timer->expiredTime());

    for (const Impl& expected : {timers[2], timers[0], timers[1]}) {
        EXPECT_EQ(&list.head(), expected.get());
        list.remove(*expected);
    }
    EXPECT_TRUE(list.empty());
}

TEST(TimerHeapTest, ATimerIsListedOnce) {
    TimerHeap list;
    const Impl timer = timerDueAt({5, 1});
    list.insert(*timer, timer->expiredTime());
    list.insert(*timer, timer->expiredTime());

    list.remove(*timer);
    EXPECT_TRUE(list.empty());
    list.remove(*timer);
    EXPECT_TRUE(list.empty());
}

TEST(TimerHeapTest, AllExpiriesAreInOrder) {
    TimerHeap list;
    const std::vector<Impl> timers = {timerDueAt({0, 0}), timerDueAt({0, 0}), timerDueAt({0, 0}),
                                      timerDueAt({0, 0}), timerDueAt({0, 0}), timerDueAt({0, 0})};
    const std::vector<ExpiredTime> ascending = {
        {INT32_MIN, INT32_MIN}, {INT32_MIN, 5}, {-1, -1}, {-1, 0}, {0, -999999999}, {INT32_MAX, 1}};
    for (std::size_t i = timers.size(); i-- > 0;) list.insert(*timers[i], ascending[i]);

    for (const Impl& expected : timers) {
        EXPECT_EQ(&list.head(), expected.get());
        list.remove(*expected);
    }
}

// Not by the timer's own, which another start of it may change meanwhile.
TEST(TimerHeapTest, ATimerIsPlacedByTheExpiryThatIsGiven) {
    TimerHeap list;
    const Impl first = timerDueAt({5, 0});
    const Impl second = timerDueAt({30, 0});

    list.insert(*first, {20, 0});
    list.insert(*second, {10, 0});

    EXPECT_EQ(&list.head(), second.get());
    EXPECT_FALSE(list.headExpiredTime() < (ExpiredTime{10, 0}));
}

TEST(TimerHeapTest, PlacesAreThoseOfTheWalk) {
    std::mt19937 random(7);
    std::uniform_int_distribution<int> second(-2, 3);
    std::uniform_int_distribution<int> nanosecond(0, 3);
    std::uniform_int_distribution<int> chance(0, 99);
    TimerHeap list;
    std::list<Impl> plain;

    for (int step = 0; step < 4000; ++step) {
        if (plain.empty() || chance(random) < 55) {
            const Impl timer = timerDueAt({second(random), nanosecond(random)});
            insertByWalk(&plain, timer);
            list.insert(*timer, timer->expiredTime());
        } else {
            std::uniform_int_distribution<std::size_t> any(0, plain.size() - 1);
            const auto victim = std::next(plain.begin(), static_cast<long>(any(random)));
            list.remove(**victim);
            plain.erase(victim);
        }
        ASSERT_EQ(list.empty(), plain.empty());
        if (!plain.empty()) {
            ASSERT_EQ(&list.head(), plain.front().get()) << "step " << step;
        }
    }
    while (!plain.empty()) {
        ASSERT_EQ(&list.head(), plain.front().get());
        list.remove(*plain.front());
        plain.pop_front();
    }
}

}  // namespace
