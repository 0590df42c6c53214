#include "event_dispatcher/spin.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using tevalon::base::event_dispatcher::AdaptiveSpin;

/// How often @p spin looks for what comes with the @p last look; never, where that is 0.
int looksOf(AdaptiveSpin* p_spin, int last) {
    int looks = 0;
    p_spin->until([&] { return ++looks == last; });
    return looks;
}

/// How many waits in a row, in vain themselves, leave the looking out.
unsigned leftOut(AdaptiveSpin* p_spin) {
    unsigned count = 0;
    while (looksOf(p_spin, 0) == 1) ++count;
    return count;
}

/// Where there is a single processor nothing but the first look is taken; see
/// single_processor_test.cpp.
class AdaptiveSpinTest : public testing::Test {
protected:
    void SetUp() override {
        if (std::thread::hardware_concurrency() < 2) GTEST_SKIP() << "a single processor";
    }

    AdaptiveSpin m_spin;
};

TEST_F(AdaptiveSpinTest, WhatHasComeIsSeenWithTheFirstLook) {
    EXPECT_EQ(looksOf(&m_spin, 1), 1);
}

TEST_F(AdaptiveSpinTest, WhatComesMeanwhileEndsIt) {
    for (const int last : {2, 10, AdaptiveSpin::kMaxSpins + 1}) {
        EXPECT_EQ(looksOf(&m_spin, last), last);
    }
}

TEST_F(AdaptiveSpinTest, WhatDoesNotComeEndsItToo) {
    EXPECT_EQ(looksOf(&m_spin, 0), AdaptiveSpin::kMaxSpins + 1);
}

TEST_F(AdaptiveSpinTest, IsLeftOutTheMoreTheOftenerItWasInVain) {
    (void)looksOf(&m_spin, 0);
    std::vector<unsigned> counts;
    for (int i = 0; i < 7; ++i) counts.push_back(leftOut(&m_spin));

    EXPECT_EQ(counts, (std::vector<unsigned>{1, 4, 16, 64, 256, 1024, 1024}));
}

TEST_F(AdaptiveSpinTest, IsNotLeftOutOnceItPaysAgain) {
    (void)looksOf(&m_spin, 0);
    (void)leftOut(&m_spin);
    (void)leftOut(&m_spin);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(looksOf(&m_spin, 0), 1);

    EXPECT_EQ(looksOf(&m_spin, 3), 3);

    EXPECT_EQ(looksOf(&m_spin, 0), AdaptiveSpin::kMaxSpins + 1);
    EXPECT_EQ(leftOut(&m_spin), 1U);
}

TEST_F(AdaptiveSpinTest, WhatHadComeAlreadyDoesNotSayThatItPays) {
    (void)looksOf(&m_spin, 0);
    (void)leftOut(&m_spin);

    EXPECT_EQ(looksOf(&m_spin, 1), 1);

    EXPECT_EQ(leftOut(&m_spin), 4U);
}

}  // namespace
