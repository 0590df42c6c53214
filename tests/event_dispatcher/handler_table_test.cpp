#include "event_dispatcher/handler_table.h"

#include <gtest/gtest.h>

#include <random>
#include <thread>
#include <vector>

namespace {

using namespace tevalon::base::event_dispatcher;

/// The rule as it is told: the first handler in order of registration that takes the event.
const InnerHandler_t* walk(const std::vector<InnerHandler_t>& handlers, std::int32_t source,
                           std::int32_t type) {
    for (const InnerHandler_t& stored : handlers) {
        if (stored.eventType != type) continue;
        if (stored.srcModule == kAnyModule || stored.srcModule == source) return &stored;
    }
    return nullptr;
}

class HandlerTableAgainstWalkTest : public testing::TestWithParam<unsigned> {};

// Many more types than chains, so that types share them; of each, handlers for one module and
// for any in every order.
TEST_P(HandlerTableAgainstWalkTest, FindsWhatTheWalkFinds) {
    std::mt19937 random(GetParam());
    std::uniform_int_distribution<std::int32_t> anySource(0, 5);
    std::uniform_int_distribution<std::int32_t> anyType(-60, 60);
    HandlerTable table;
    std::vector<InnerHandler_t> plain;
    for (int i = 0; i < 300; ++i) {
        const std::int32_t source = anySource(random);
        const InnerHandler_t record{source == 0 ? kAnyModule : source, anyType(random), nullptr};
        table.add(InnerHandler_t(record));
        plain.push_back(record);
    }

    for (std::int32_t type = -61; type <= 61; ++type) {
        for (std::int32_t source = 1; source <= 6; ++source) {
            const InnerHandler_t* const expected = walk(plain, source, type);
            const InnerHandler_t* const found = table.find(source, type);
            ASSERT_EQ(found != nullptr, expected != nullptr) << source << ' ' << type;
            if (expected == nullptr) continue;
            EXPECT_EQ(found->srcModule, expected->srcModule) << source << ' ' << type;
            EXPECT_EQ(found->eventType, type);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, HandlerTableAgainstWalkTest, testing::Range(1U, 9U));

TEST(HandlerTableTest, WhatWasFoundStaysWhileOthersAreAdded) {
    constexpr std::int32_t kTypes = 500;
    HandlerTable table;
    table.add({kAnyModule, 0, nullptr});
    const InnerHandler_t* const first = table.find(1, 0);

    std::thread adding([&table] {
        for (std::int32_t type = 1; type < kTypes; ++type) table.add({kAnyModule, type, nullptr});
    });
    std::int32_t last = 0;
    while (last + 1 < kTypes) {
        EXPECT_EQ(table.find(1, 0), first);
        // Added in order: where one is, all before it are.
        if (table.find(1, last + 1) != nullptr) ++last;
    }
    adding.join();

    EXPECT_EQ(first->eventType, 0);
}

}  // namespace
