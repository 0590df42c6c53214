#include "timer/timer_heap.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "support/fault_injection.h"
#include "timer/timer_impl.h"

namespace {

using test::Call;
using test::CountCalls;
using test::When;
using tevalon::base::simple_timer::ExpiredTime;
using tevalon::base::simple_timer::ONCE;
using tevalon::base::simple_timer::TimerHeap;
using tevalon::base::simple_timer::TimerImpl;
using Impl = std::shared_ptr<TimerImpl>;

std::uint64_t& nextSequence(TimerHeap& heap);

/// Its explicit instantiation, in which any member may be named, defines nextSequence().
template <auto kField>
struct Revealed {
    friend std::uint64_t& nextSequence(TimerHeap& heap) { return heap.*kField; }
};
template struct Revealed<&TimerHeap::m_nextSequence>;

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

// More than 32 bits count.
TEST(TimerHeapTest, EqualExpiriesStayInOrderAfterBillionsOfInsertions) {
    TimerHeap list;
    nextSequence(list) = UINT32_MAX;
    const std::vector<Impl> timers = {timerDueAt({5, 0}), timerDueAt({5, 0}), timerDueAt({5, 0})};
    for (const Impl& timer : timers) list.insert(*timer, timer->expiredTime());

    for (const Impl& expected : timers) {
        EXPECT_EQ(&list.head(), expected.get());
        list.remove(*expected);
    }
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

std::vector<Impl> insertMany(TimerHeap* p_list, std::size_t count) {
    std::vector<Impl> timers;
    for (std::size_t i = 0; i < count; ++i) {
        timers.push_back(timerDueAt({5, 0}));
        p_list->insert(*timers.back(), timers.back()->expiredTime());
    }
    return timers;
}

// The smaller vector is allocated before the larger one is freed.
TEST(TimerHeapTest, RoomIsGivenBackWhenLessThanAQuarterIsUsed) {
    TimerHeap list;
    const std::vector<Impl> timers = insertMany(&list, 65);  // In room for 128: it doubles.
    for (std::size_t i = 32; i < timers.size(); ++i) list.remove(*timers[i]);
    const CountCalls blocks(Call::New, When().everyTime());

    list.shrinkIfSparse();
    EXPECT_EQ(blocks.seen(), 0);
    list.remove(*timers[31]);
    list.shrinkIfSparse();
    EXPECT_EQ(blocks.seen(), 1);
}

TEST(TimerHeapTest, AFewEntriesKeepTheirRoom) {
    TimerHeap list;
    const std::vector<Impl> timers = insertMany(&list, 64);
    for (std::size_t i = 1; i < timers.size(); ++i) list.remove(*timers[i]);
    const CountCalls blocks(Call::New, When().everyTime());

    list.shrinkIfSparse();
    EXPECT_EQ(blocks.seen(), 0);
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

// Each entry stays where it is inserted: number i is due no earlier than number (i - 1) / 4. Those
// below number 1 are late, number 37 is not, and comes right behind the children of number 8.
TEST(TimerHeapTest, ARemovalMovesUpNobodyElsesChild) {
    constexpr int kCount = 39;
    TimerHeap list;
    std::map<std::int32_t, Impl> left;  // By expiry.
    for (int i = 0; i < kCount; ++i) {
        const bool isLate = i == 1 || (i >= 5 && i <= 8) || (i >= 21 && i <= 36) || i == kCount - 1;
        const std::int32_t second = isLate ? 100 + i : i;
        left[second] = timerDueAt({second, 0});
        list.insert(*left[second], {second, 0});
    }

    list.remove(*left[108]);
    left.erase(108);

    for (const auto& [second, timer] : left) {
        EXPECT_EQ(&list.head(), timer.get()) << second;
        list.remove(*timer);
    }
    EXPECT_TRUE(list.empty());
}

}  // namespace
