// How objects and what is global learn that they are a parent's.

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <thread>

#include "ends/forked_child.h"
#include "os/forked_child.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/fresh_process.h"

namespace {

using namespace tevalon::base;
using test::Call;
using test::runInForkedChild;

int g_resets = 0;

void countReset() {
    ++g_resets;
}

// Each in a process that has asked for nothing before.

TEST(ForkedChildMarkDeathTest, AMarkIsTheParentsInEveryChild) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const ProcessMark mark(markOfThisProcess());

        EXPECT_EQ(runInForkedChild([&] {
                      CHECK_IN_CHILD(isFromParent(mark));
                      const ProcessMark own(markOfThisProcess());
                      CHECK_IN_CHILD(!isFromParent(own));
                      CHECK_IN_CHILD(runInForkedChild([&] {
                                         CHECK_IN_CHILD(isFromParent(mark));
                                         CHECK_IN_CHILD(isFromParent(own));
                                     }) == 0);
                  }),
                  0);
        EXPECT_FALSE(isFromParent(mark));
    });
}

TEST(ForkedChildMarkDeathTest, WhatIsGlobalIsResetInEveryChild) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        inEachForkedChild(countReset);
        inEachForkedChild(countReset);

        EXPECT_EQ(runInForkedChild([] {
                      CHECK_IN_CHILD(g_resets == 1);
                      CHECK_IN_CHILD(runInForkedChild([] { CHECK_IN_CHILD(g_resets == 2); }) == 0);
                  }),
                  0);
        EXPECT_EQ(g_resets, 0);
    });
}

// The C library keeps every registration, and calls each.
TEST(ForkedChildMarkDeathTest, ForksAreAskedForOnce) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const test::CountCalls registrations(Call::PthreadAtfork);

        for (int i = 0; i < 3; ++i) {
            (void)markOfThisProcess();
            inEachForkedChild(countReset);
        }

        EXPECT_EQ(registrations.seen(), 1);
    });
}

TEST(ForkedChildMarkDeathTest, WithoutMemoryForksAreAskedForByTheNextObject) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const test::FailCall noMemory(Call::PthreadAtfork, ENOMEM);

        (void)markOfThisProcess();
        EXPECT_EQ(noMemory.hits(), 1);
        const ProcessMark mark(markOfThisProcess());
        (void)markOfThisProcess();

        EXPECT_EQ(noMemory.seen(), 2);
        EXPECT_EQ(runInForkedChild([&] { CHECK_IN_CHILD(isFromParent(mark)); }), 0);
    });
}

// The thread that was renewing it stays behind in the child.
TEST(ForkedChildMarkTest, AnObjectThatIsJustBeingRenewedInTheChildIsRenewedInTheChildsChild) {
    ProcessMark mark(markOfThisProcess());

    EXPECT_EQ(runInForkedChild([&] {
                  renewOnce(&mark, [&] {
                      CHECK_IN_CHILD(runInForkedChild([&] {
                                         CHECK_IN_CHILD(isFromParent(mark));
                                         int renewals = 0;
                                         renewOnce(&mark, [&] { ++renewals; });
                                         CHECK_IN_CHILD(renewals == 1);
                                         CHECK_IN_CHILD(!isFromParent(mark));
                                     }) == 0);
                  });
                  CHECK_IN_CHILD(!isFromParent(mark));
              }),
              0);
}

ProcessMark markOfAnother() {
    return ProcessMark(static_cast<std::uint16_t>(markOfThisProcess() - 2));
}

TEST(ForkedChildMarkTest, OfTwoThreadsOneRenewsAndTheOtherWaitsForIt) {
    ProcessMark mark = markOfAnother();
    test::Event isOtherThere;
    std::atomic<int> renewals{0};
    std::thread other;

    renewOnce(&mark, [&] {
        other = std::thread([&] {
            const test::RunAtCall waits(Call::SchedYield, [&] { isOtherThere.set(); });
            renewOnce(&mark, [&] {
                ++renewals;
                isOtherThere.set();
            });
            EXPECT_FALSE(isFromParent(mark));
            EXPECT_GE(waits.hits(), 1);
        });
        EXPECT_TRUE(isOtherThere.wait());
        ++renewals;
    });
    other.join();

    EXPECT_EQ(renewals, 1);
}

TEST(ForkedChildMarkTest, WhereTheRenewalThrowsTheNextOneTriesAgain) {
    ProcessMark mark = markOfAnother();
    int renewals = 0;

    EXPECT_THROW(renewOnce(&mark, [] { throw 1; }), int);
    EXPECT_TRUE(isFromParent(mark));
    renewOnce(&mark, [&] { ++renewals; });
    renewOnce(&mark, [&] { ++renewals; });

    EXPECT_EQ(renewals, 1);
    EXPECT_FALSE(isFromParent(mark));
}

}  // namespace
