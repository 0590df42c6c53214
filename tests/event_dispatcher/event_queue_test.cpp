#include "event_dispatcher/event_queue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <deque>
#include <new>
#include <random>

#include "support/fault_injection.h"

namespace {

using test::Call;
using test::When;
using tevalon::base::event_dispatcher::BrowserEvent;
using tevalon::base::event_dispatcher::EventQueue;
using Event = EventQueue::Event;

Event makeEvent() {
    return std::make_shared<BrowserEvent>(1, 2, nullptr);
}

/// One whose object and control block are apart.
Event makeEventApart() {
    return Event(new BrowserEvent(1, 2, nullptr));
}

/// One that belongs to nobody.
Event makeUnowned() {
    static BrowserEvent s_event(1, 2, nullptr);
    return Event(std::shared_ptr<void>(), &s_event);
}

/// One whose control block is that of something larger.
Event makePart() {
    struct Whole {
        int number = 0;
        BrowserEvent event{1, 2, nullptr};
    };
    const auto whole = std::make_shared<Whole>();
    return Event(whole, &whole->event);
}

void push(EventQueue* p_queue, Event event) {
    p_queue->push(std::move(event));
}

TEST(EventQueueTest, AllocatesNothingUntilTheFirstEvent) {
    const Event event = makeEvent();
    const test::CountCalls allocations(Call::New, When().everyTime());
    EventQueue queue;
    EventQueue other;
    queue.swap(other);

    EXPECT_TRUE(queue.empty());
    EXPECT_EQ(allocations.seen(), 0);
    push(&queue, event);
    EXPECT_EQ(allocations.seen(), 1);
}

TEST(EventQueueTest, KeepsItsRoomWhileFewEventsComeAndGo) {
    const Event event = makeEvent();
    EventQueue queue;
    push(&queue, event);
    const test::CountCalls allocations(Call::New, When().everyTime());

    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(queue.pop(), event);
        ASSERT_TRUE(queue.empty());
        push(&queue, event);
    }

    EXPECT_EQ(allocations.seen(), 0);
}

TEST(EventQueueTest, KeepsTheOrderOfAnyMixture) {
    std::mt19937 random(3);
    std::uniform_int_distribution<int> chance(0, 99);
    EventQueue queue;
    EventQueue taken;
    std::deque<Event> plain;
    std::deque<Event> plainTaken;
    std::uint32_t pushed = 0;  // Since the last swap.

    for (int step = 0; step < 20000; ++step) {
        const int pushChance = step / 500 % 2 == 0 ? 60 : 40;  // It grows, and shrinks.
        const int dice = chance(random);
        if (dice < pushChance) {
            const std::array<Event (*)(), 5> makers = {makeEvent, makeEvent, makeEventApart,
                                                       makeUnowned, makePart};
            const Event event = makers.at(static_cast<std::size_t>(dice) % makers.size())();
            push(&queue, event);
            plain.push_back(event);
            ++pushed;
        } else if (dice < 98 && !plainTaken.empty()) {
            const Event popped = taken.pop();
            ASSERT_EQ(popped, plainTaken.front());
            ASSERT_EQ(popped.use_count(), plainTaken.front().use_count());
            plainTaken.pop_front();
        } else {
            queue.swap(taken);
            plain.swap(plainTaken);
            pushed = 0;
        }
        ASSERT_EQ(queue.pushed(), pushed);
        ASSERT_EQ(queue.count(), plain.size());
        ASSERT_EQ(taken.count(), plainTaken.size());
        ASSERT_EQ(queue.empty(), plain.empty());
        ASSERT_EQ(taken.empty(), plainTaken.empty());
    }
    while (!plain.empty()) {
        ASSERT_EQ(queue.pop(), plain.front());
        plain.pop_front();
    }
}

// Each allocation is a chunk's.
TEST(EventQueueTest, AnEventOfAHubTakesOneWord) {
    constexpr int kMany = 10'000;
    const Event event = makeEvent();
    EventQueue queue;
    const test::CountCalls allocations(Call::New, When().everyTime());

    for (int i = 0; i < kMany; ++i) push(&queue, event);

    EXPECT_LE(allocations.seen(), kMany / 14 + 1);
}

// Valgrind takes memory for possibly lost to which only pointers into its middle are left.
TEST(EventQueueTest, AQueuedEventIsPointedToWhereItsAllocationBegins) {
    Event event = makeEvent();
    std::array<const void*, 2> pair = {};
    static_assert(sizeof(event) == sizeof(pair));
    std::memcpy(pair.data(), static_cast<const void*>(&event), sizeof(pair));
    EventQueue queue;

    queue.push(std::move(event));

    const void* const* p_chunk = nullptr;
    std::memcpy(&p_chunk, static_cast<const void*>(&queue), sizeof(p_chunk));
    EXPECT_EQ(p_chunk[1], pair[1]);
}

TEST(EventQueueTest, LetsGoOfWhatIsTaken) {
    const Event event = makeEvent();
    EventQueue queue;
    push(&queue, event);

    (void)queue.pop();

    EXPECT_EQ(event.use_count(), 1);
}

TEST(EventQueueTest, LetsGoOfWhatIsLeft) {
    constexpr int kMany = 100000;
    const Event event = makeEvent();
    {
        EventQueue queue;
        for (int i = 0; i < kMany; ++i) push(&queue, event);
        EXPECT_EQ(event.use_count(), kMany + 1);
    }
    EXPECT_EQ(event.use_count(), 1);
}

TEST(EventQueueTest, WithoutMemoryNothingHasChanged) {
    int refusals = 0;
    for (int queued = 0; queued < 200; ++queued) {
        const Event event = queued % 2 == 0 ? makeEvent() : makeEventApart();
        EventQueue queue;
        for (int i = 0; i < queued; ++i) push(&queue, event);
        Event last = makeEvent();
        try {
            const test::FailCall noMemory(Call::New, 0);
            queue.push(std::move(last));
            continue;
        } catch (const std::bad_alloc&) {
            ++refusals;
        }
        ASSERT_NE(last, nullptr);
        push(&queue, last);

        for (int i = 0; i < queued; ++i) ASSERT_EQ(queue.pop(), event);
        EXPECT_EQ(queue.pop(), last);
        EXPECT_TRUE(queue.empty());
    }
    EXPECT_GT(refusals, 1);
}

}  // namespace
