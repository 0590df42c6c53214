#include "base/utils/process_property.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "base/logging/log_level.h"
#include "base/utils.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/fresh_process.h"
#include "support/log_capture.h"
#include "support/threads.h"

namespace {

using base::get_process_property;
using base::set_process_property;
using test::Call;
using test::When;

std::string numbered(const char* text, int number) {
    return text + std::to_string(number);
}

/// A name that no test before used: nothing removes a property.
std::string newName() {
    static int s_number = 0;
    return numbered("new", ++s_number);
}

TEST(ProcessPropertyTest, ReturnsWhatASettingReplaces) {
    const std::string name = newName();

    EXPECT_EQ(set_process_property(name.c_str(), "1"), "");
    EXPECT_EQ(set_process_property(name.c_str(), "2"), "1");
    EXPECT_EQ(get_process_property(name.c_str()), "2");
    EXPECT_EQ(set_process_property(name.c_str(), "2"), "2");
    EXPECT_EQ(get_process_property(name.c_str()), "2");
}

TEST(ProcessPropertyTest, ReadsNothingUnderAnUnknownOrNullName) {
    EXPECT_EQ(get_process_property("never set"), "");
    EXPECT_EQ(get_process_property(nullptr), "");
}

TEST(ProcessPropertyTest, TakesTheEmptyTextAsNameAndValue) {
    (void)set_process_property("", "x");
    EXPECT_EQ(get_process_property(""), "x");
    EXPECT_EQ(get_process_property(nullptr), "");

    EXPECT_EQ(set_process_property("", ""), "x");
    EXPECT_EQ(get_process_property(""), "");
    EXPECT_EQ(set_process_property("", "y"), "");
}

TEST(ProcessPropertyTest, DistinguishesNamesByEveryByte) {
    set_process_property("Name", "1");
    set_process_property("name", "2");
    set_process_property("name ", "3");
    set_process_property("na", "4");

    EXPECT_EQ(get_process_property("Name"), "1");
    EXPECT_EQ(get_process_property("name"), "2");
    EXPECT_EQ(get_process_property("name "), "3");
    EXPECT_EQ(get_process_property("na"), "4");
    EXPECT_EQ(get_process_property("n"), "");
}

TEST(ProcessPropertyTest, CopiesNamesAndValues) {
    char name[] = "copied";
    char value[] = "value";
    set_process_property(name, value);

    name[0] = value[0] = 'X';
    std::string read = get_process_property("copied");
    read[0] = 'Y';

    EXPECT_EQ(get_process_property("copied"), "value");
}

TEST(ProcessPropertyTest, KeepsManyAndLongProperties) {
    constexpr int kCount = 10000;
    const std::string longText(1000000, 'v');
    set_process_property(longText.c_str(), longText.c_str());
    for (int i = 0; i < kCount; ++i) {
        set_process_property(numbered("many", i).c_str(), numbered("value", i).c_str());
    }

    for (int i = 0; i < kCount; ++i) {
        ASSERT_EQ(get_process_property(numbered("many", i).c_str()), numbered("value", i));
    }
    EXPECT_TRUE(get_process_property(longText.c_str()) == longText);
}

TEST(ProcessPropertyTest, RefusesANullNameOrValueAndStoresNothing) {
    set_process_property("refused", "before");

    EXPECT_THROW(set_process_property("refused", nullptr), std::logic_error);
    EXPECT_THROW(set_process_property(nullptr, "value"), std::logic_error);
    EXPECT_THROW(set_process_property(nullptr, nullptr), std::logic_error);

    EXPECT_EQ(get_process_property("refused"), "before");
    EXPECT_EQ(set_process_property("refused", "usable"), "before");
}

TEST(ProcessPropertyTest, LocksOnceAndNotForNullArguments) {
    set_process_property("locked", "1");
    const test::CountCalls locks(Call::PthreadMutexLock);
    const test::CountCalls unlocks(Call::PthreadMutexUnlock);

    (void)get_process_property(nullptr);
    EXPECT_THROW(set_process_property(nullptr, "value"), std::logic_error);
    EXPECT_THROW(set_process_property("locked", nullptr), std::logic_error);
    EXPECT_EQ(locks.seen(), 0);

    (void)get_process_property("locked");
    EXPECT_EQ(locks.seen(), 1);
    (void)set_process_property("locked", "2");
    EXPECT_EQ(locks.seen(), 2);
    EXPECT_EQ(unlocks.seen(), 2);
}

TEST(ProcessPropertyTest, ReportsALockThatFailsAndGoesOn) {
    set_process_property("unlocked", "1");
    test::LogCapture log;
    std::string replaced;
    {
        // Made all the same, so that what is unlocked afterwards was locked.
        const test::FailCall fail(Call::PthreadMutexLock, EINVAL, When().afterTheCall());
        errno = EDOM;
        replaced = set_process_property("unlocked", "2");
    }

    EXPECT_EQ(replaced, "1");
    EXPECT_EQ(get_process_property("unlocked"), "2");
    const std::vector<test::LogEntry> expected = {
        {tevalon::base::kLogError,
         "[B-LOG] auto_lock.h:#:AutoLock(): An runtime_error has been caught:Mutex lock error: " +
             std::string(std::strerror(EDOM)) + ".\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

// The first use, which only a process without a history has.

class ProcessPropertyDeathTest : public testing::Test {};

TEST_F(ProcessPropertyDeathTest, ANullNameMakesNoTable) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        const test::CountCalls inits(Call::PthreadMutexInit);

        EXPECT_EQ(get_process_property(nullptr), "");
        EXPECT_EQ(inits.seen(), 0);

        EXPECT_EQ(get_process_property("name"), "");
        EXPECT_EQ(inits.seen(), 1);
        EXPECT_EQ(set_process_property("name", "value"), "");
        EXPECT_EQ(inits.seen(), 1);
    });
}

TEST_F(ProcessPropertyDeathTest, ReportsAMutexThatCannotBeMadeAndTriesAgain) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        const test::FailCall fail(Call::PthreadMutexInit, ENOMEM, When().times(2));
        const std::string expected = "Mutex init error: " + std::string(std::strerror(EDOM));
        std::vector<std::string> reports;
        for (int i = 0; i < 2; ++i) {
            errno = EDOM;
            try {
                (void)(i == 0 ? get_process_property("name") : set_process_property("name", "1"));
            } catch (const std::runtime_error& error) {
                reports.emplace_back(error.what());
            }
        }

        EXPECT_EQ(reports, (std::vector<std::string>{expected, expected}));
        EXPECT_EQ(set_process_property("name", "2"), "");
        EXPECT_EQ(get_process_property("name"), "2");
    });
}

/// What threads that all set one property got and left: a chain, if one after the other did.
void expectChain(const std::vector<std::string>& replaced, const std::string& last) {
    std::multiset<std::string> seen(replaced.begin(), replaced.end());
    seen.insert(last);
    std::multiset<std::string> expected = {""};
    for (std::size_t i = 0; i < replaced.size(); ++i) {
        expected.insert(numbered("v", static_cast<int>(i)));
    }
    EXPECT_EQ(seen, expected);
}

TEST_F(ProcessPropertyDeathTest, IsFirstUsedByManyThreadsAtOnce) {
    for (int round = 0; round < 5; ++round) {
        EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
            constexpr int kThreads = 16;
            const test::CountCalls inits(Call::PthreadMutexInit, When().anyThread());
            std::vector<std::string> replaced(kThreads);

            test::runAtOnce(kThreads, [&](int i) {
                const std::string own = numbered("own", i);
                replaced[static_cast<std::size_t>(i)] =
                    set_process_property("common", numbered("v", i).c_str());
                EXPECT_EQ(set_process_property(own.c_str(), own.c_str()), "");
                EXPECT_EQ(get_process_property(own.c_str()), own);
            });

            expectChain(replaced, get_process_property("common"));
            for (int i = 0; i < kThreads; ++i) {
                EXPECT_EQ(get_process_property(numbered("own", i).c_str()), numbered("own", i));
            }
            EXPECT_EQ(inits.seen(), 1);
        });
    }
}

TEST_F(ProcessPropertyDeathTest, FirstUsedWhileAnotherThreadMakesTheTableItKeepsBothProperties) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        std::atomic<const void*> p_lock{nullptr};  // That of the creation.
        test::Event isMaking;
        test::Event otherIsThere;
        std::thread other([&] {
            (void)isMaking.wait();
            const test::RunAtCall atLock(
                Call::PthreadMutexLock, [&] { otherIsThere.set(); }, When().on(p_lock));
            EXPECT_EQ(set_process_property("other", "2"), "");
            otherIsThere.set();
        });
        {
            const test::ReplaceCall<int(pthread_mutex_t*)> atLock(
                Call::PthreadMutexLock,
                [&](pthread_mutex_t* p_mutex) {
                    p_lock = p_mutex;
                    return pthread_mutex_lock(p_mutex);
                },
                When());
            const test::RunAtCall atInit(Call::PthreadMutexInit, [&] {
                isMaking.set();
                (void)otherIsThere.wait();
            });
            EXPECT_EQ(set_process_property("first", "1"), "");
        }
        other.join();

        EXPECT_EQ(get_process_property("first"), "1");
        EXPECT_EQ(get_process_property("other"), "2");
    });
}

TEST(ProcessPropertyTest, SettingsByManyThreadsHappenOneAfterTheOther) {
    constexpr int kThreads = 8;
    constexpr int kEach = 500;
    const std::string name = newName();
    std::vector<std::string> replaced(kThreads * kEach);

    test::runAtOnce(kThreads, [&](int i) {
        for (int number = i * kEach; number < (i + 1) * kEach; ++number) {
            replaced[static_cast<std::size_t>(number)] =
                set_process_property(name.c_str(), numbered("v", number).c_str());
        }
    });

    expectChain(replaced, get_process_property(name.c_str()));
}

// The end of the process.

/// Ends the process at once with whether @p holds.
[[noreturn]] void endWith(bool holds) {
    if (!holds) std::fputs("the table did not answer as expected\n", stderr);
    std::_Exit(holds ? 0 : 1);
}

bool answersAsEmpty() {
    return get_process_property("name").empty() && get_process_property("unknown").empty() &&
           get_process_property(nullptr).empty() && set_process_property("name", "late").empty();
}

TEST_F(ProcessPropertyDeathTest, AnswersAsIfEmptyOnceItsEndHasCome) {
    EXPECT_EXIT(
        {
            // Runs after all that is registered from now on.
            (void)std::atexit([] { endWith(answersAsEmpty()); });
            set_process_property("name", "value");
            std::exit(2);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ProcessPropertyDeathTest, KeepsItsPropertiesUntilItsEnd) {
    EXPECT_EXIT(
        {
            set_process_property("name", "value");
            (void)std::atexit([] { endWith(get_process_property("name") == "value"); });
            std::exit(2);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ProcessPropertyDeathTest, CanBeFirstUsedWhileTheProcessExits) {
    EXPECT_EXIT(
        {
            (void)std::atexit([] {
                const bool wasNew = set_process_property("name", "value").empty();
                const std::string read = get_process_property("name");
                endWith(wasNew && (read.empty() || read == "value"));
            });
            std::exit(2);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(ProcessPropertyDeathTest, RefusesNullValuesAfterItsEndToo) {
    EXPECT_EXIT(
        {
            (void)std::atexit([] {
                try {
                    set_process_property("name", nullptr);
                    endWith(false);
                } catch (const std::logic_error&) {
                    endWith(true);
                }
            });
            set_process_property("name", "value");
            std::exit(2);
        },
        testing::ExitedWithCode(0), "");
}

// Never destroyed, for the threads outlive everything.
struct ExitStage {
    test::Event started;
    test::Event tableIsGone;
    test::Event answered;
    bool isEmpty = false;
};

ExitStage& exitStage() {
    static auto* const s_stage = new ExitStage;
    return *s_stage;
}

TEST_F(ProcessPropertyDeathTest, AnswersADetachedThreadOnceItsEndHasCome) {
    EXPECT_EXIT(
        {
            (void)exitStage();
            (void)std::atexit([] {
                exitStage().tableIsGone.set();
                endWith(exitStage().answered.wait() && exitStage().isEmpty);
            });
            set_process_property("name", "value");
            std::thread([] {
                exitStage().started.set();
                (void)exitStage().tableIsGone.wait();
                exitStage().isEmpty = answersAsEmpty();
                exitStage().answered.set();
            }).detach();
            (void)exitStage().started.wait();
            std::exit(2);
        },
        testing::ExitedWithCode(0), "");
}

constexpr int kBusyThreads = 4;
constexpr int kRoundsAfterTheEnd = 200;
std::atomic<bool> g_sawNonsense{false};

struct BusyStage {
    test::Countdown started{kBusyThreads};
    test::Countdown finished{kBusyThreads};
    std::atomic<bool> tableIsGone{false};
};

BusyStage& busyStage() {
    static auto* const s_stage = new BusyStage;
    return *s_stage;
}

bool isSense(const std::string& text) {
    return text.empty() || text == "a value that is too long to be kept within a string";
}

void useProperty() {
    const std::string replaced =
        set_process_property("name", "a value that is too long to be kept within a string");
    if (!isSense(replaced) || !isSense(get_process_property("name"))) g_sawNonsense = true;
}

void useUntilLongAfterTheEnd() {
    busyStage().started.arrive();
    while (!busyStage().tableIsGone) useProperty();
    for (int round = 0; round < kRoundsAfterTheEnd; ++round) useProperty();
    busyStage().finished.arrive();
}

TEST_F(ProcessPropertyDeathTest, IsUsedByDetachedThreadsWhileItEnds) {
    for (int round = 0; round < 5; ++round) {
        EXPECT_EXIT(
            {
                (void)busyStage();
                (void)std::atexit([] {
                    busyStage().tableIsGone = true;
                    endWith(busyStage().finished.wait() && !g_sawNonsense);
                });
                useProperty();
                for (int i = 0; i < kBusyThreads; ++i) {
                    std::thread(useUntilLongAfterTheEnd).detach();
                }
                (void)busyStage().started.wait();
                std::exit(2);
            },
            testing::ExitedWithCode(0), "");
    }
}

}  // namespace
