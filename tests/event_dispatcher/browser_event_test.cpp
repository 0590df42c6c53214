#include "base/event_dispatcher/browser_event.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <time.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "event_dispatcher/event_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;
using test::Call;
using test::LogCapture;
using test::LogEntry;
using test::When;

using SteadyClock = std::chrono::steady_clock;
using ClockWait = int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);

LogEntry eventCppLine(std::uint16_t level, const std::string& function,
                      const std::string& message) {
    return eventLine(level, "event.cpp", function, message);
}

const LogEntry kNotArmed =
    eventCppLine(kLogError, "waitForResult", "waitResultMtx or waitResultCv is NULL.\n");

/// Progress at the debug level is not looked at.
class BrowserEventTest : public testing::Test {
protected:
    LogCapture m_log{kLogInfo};
    BrowserEvent m_event{3, 5, nullptr};
};

// Construction and destruction.

TEST_F(BrowserEventTest, HoldsWhatItWasMadeOf) {
    std::atomic<int> deletions{0};
    auto* const p_param = new CountedParam(&deletions);

    const BrowserEvent event(3, -5, p_param);

    EXPECT_EQ(event.srcModule, 3);
    EXPECT_EQ(event.eventType, -5);
    EXPECT_EQ(event.param, p_param);
    EXPECT_EQ(event.waitResultMtx, nullptr);
    EXPECT_EQ(event.waitResultCv, nullptr);
    EXPECT_FALSE(event.replied);
    EXPECT_EQ(event.result, kEventResultNone);
}

TEST_F(BrowserEventTest, AllocatesNothingWhenItIsMade) {
    test::CountCalls allocations(Call::New);

    const BrowserEvent event(1, 2, nullptr);

    EXPECT_EQ(allocations.seen(), 0);
}

TEST_F(BrowserEventTest, DeletesItsPayloadOnceThroughTheDerivedDestructor) {
    std::atomic<int> deletions{0};

    { const BrowserEvent event(1, 2, new CountedParam(&deletions)); }

    EXPECT_EQ(deletions, 1);
}

TEST_F(BrowserEventTest, DeletesItsPayloadWithTheLastReference) {
    std::atomic<int> deletions{0};
    auto first = std::make_shared<BrowserEvent>(1, 2, new CountedParam(&deletions));
    auto second = first;

    first.reset();
    const int whileHeld = deletions;
    second.reset();

    EXPECT_EQ(whileHeld, 0);
    EXPECT_EQ(deletions, 1);
}

TEST_F(BrowserEventTest, FreesWhatItWasArmedWith) {
    std::atomic<int> deletions{0};
    test::CountCalls destroyed(Call::PthreadCondDestroy);

    {
        BrowserEvent event(1, 2, new CountedParam(&deletions));
        event.initWaitResultCv();
    }

    EXPECT_EQ(destroyed.seen(), 1);
    EXPECT_EQ(deletions, 1);
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(BrowserEventTest, FreesWhatItWasArmedWithAfterReplies) {
    test::CountCalls destroyed(Call::PthreadCondDestroy);

    {
        BrowserEvent event(1, 2, nullptr);
        event.initWaitResultCv();
        event.replyResult(7);
        event.replyResult(8);
    }

    EXPECT_EQ(destroyed.seen(), 1);
}

TEST_F(BrowserEventTest, IsAPlainClassThatIsNotCopied) {
    EXPECT_FALSE(std::is_polymorphic<BrowserEvent>::value);
    EXPECT_FALSE(std::is_copy_constructible<BrowserEvent>::value);
    EXPECT_FALSE(std::is_copy_assignable<BrowserEvent>::value);
}

TEST_F(BrowserEventTest, HasItsFieldsInOrder) {
    const auto at = [](const auto& field) { return reinterpret_cast<std::uintptr_t>(&field); };

    EXPECT_EQ(at(m_event.srcModule), at(m_event));
    EXPECT_LT(at(m_event.srcModule), at(m_event.eventType));
    EXPECT_LT(at(m_event.eventType), at(m_event.param));
    EXPECT_LT(at(m_event.param), at(m_event.waitResultMtx));
    EXPECT_LT(at(m_event.waitResultMtx), at(m_event.waitResultCv));
    EXPECT_LT(at(m_event.waitResultCv), at(m_event.replied));
    EXPECT_LT(at(m_event.replied), at(m_event.result));
    EXPECT_EQ(sizeof m_event.replied, 1U);
    EXPECT_EQ(sizeof m_event.result, 4U);
}

TEST(EventParamTest, IsAPolymorphicBaseWithoutData) {
    EXPECT_TRUE(std::has_virtual_destructor<EventParam>::value);
    EXPECT_EQ(sizeof(EventParam), sizeof(void*));
}

class Volume : public EventParam {
public:
    std::int32_t intValue() override { return 40; }
};

TEST(EventParamTest, HasTheIntegerZeroUnlessADerivedOneSaysOtherwise) {
    EventParam base;
    const std::unique_ptr<EventParam> p_derived = std::make_unique<Volume>();

    EXPECT_EQ(base.intValue(), 0);
    EXPECT_EQ(p_derived->intValue(), 40);
}

TEST(EventParamTest, CanBeAllocatedInEveryWay) {
    struct alignas(128) Aligned : Volume {};
    struct Large : Volume {
        std::array<char, 1000> data{};
    };
    const std::unique_ptr<EventParam> p_plain(new Volume);
    const std::unique_ptr<EventParam> p_large(new Large);
    const std::unique_ptr<EventParam> p_aligned(new Aligned);
    const std::unique_ptr<EventParam> p_unthrown(new (std::nothrow) Volume);
    const std::unique_ptr<EventParam> p_alignedUnthrown(new (std::nothrow) Aligned);
    alignas(Volume) std::array<unsigned char, sizeof(Volume)> place;
    auto* const p_placed = new (place.data()) Volume;

    for (EventParam* const p_param :
         {p_plain.get(), p_large.get(), p_aligned.get(), p_unthrown.get(), p_alignedUnthrown.get(),
          static_cast<EventParam*>(p_placed)}) {
        EXPECT_EQ(p_param->intValue(), Volume().intValue());
    }
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p_aligned.get()) % 128, 0U);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p_alignedUnthrown.get()) % 128, 0U);
    p_placed->~Volume();
}

TEST(EventParamTest, OutOfMemoryIsToldAsByTheGlobalOperators) {
    struct Large : Volume {
        std::array<char, 1000> data{};
    };
    const test::FailCall noMemory(Call::New, 0, When().times(2));

    EXPECT_THROW(delete new Large, std::bad_alloc);
    EXPECT_EQ(new (std::nothrow) Large, nullptr);
}

// What the leak sanitizer would find, were the memory lost.
TEST(EventParamTest, AConstructorThatThrowsLeavesNothing) {
    struct Refusing : Volume {
        Refusing() { throw std::runtime_error("refused"); }
    };
    struct alignas(128) AlignedRefusing : Refusing {};
    struct LargeRefusing : Refusing {
        std::array<char, 1000> data{};
    };

    EXPECT_THROW(delete new Refusing, std::runtime_error);
    EXPECT_THROW(delete new (std::nothrow) Refusing, std::runtime_error);
    EXPECT_THROW(delete new AlignedRefusing, std::runtime_error);
    EXPECT_THROW(delete new (std::nothrow) AlignedRefusing, std::runtime_error);
    EXPECT_THROW(delete new LargeRefusing, std::runtime_error);
    alignas(Refusing) std::array<unsigned char, sizeof(Refusing)> place;
    EXPECT_THROW((void)new (place.data()) Refusing, std::runtime_error);
}

TEST(EventParamTest, HasItsVirtualOperationsInOrder) {
    const std::unique_ptr<EventParam> p_param = std::make_unique<Volume>();
    std::int32_t (*slots[3])(EventParam*) = {};
    const void* p_table = nullptr;
    std::memcpy(&p_table, static_cast<const void*>(p_param.get()), sizeof p_table);
    std::memcpy(slots, p_table, sizeof slots);

    // Behind the two destructors, where binary clients call it.
    EXPECT_EQ(slots[2](p_param.get()), 40);
}

TEST(EventResultTest, IsASignedWordWithTwoFixedValues) {
    EXPECT_EQ(sizeof(EventResult), 4U);
    EXPECT_EQ(static_cast<std::int32_t>(kEventResultNone), -1);
    EXPECT_EQ(static_cast<std::int32_t>(kEventResultTimeout), 1);
    EXPECT_EQ(kAnyModule, INT_MIN);
}

// Arming.

TEST_F(BrowserEventTest, ArmingMakesTheWaitObjects) {
    const std::int32_t status = m_event.initWaitResultCv();

    EXPECT_EQ(status, 0);
    EXPECT_NE(m_event.waitResultMtx, nullptr);
    EXPECT_NE(m_event.waitResultCv, nullptr);
    EXPECT_FALSE(m_event.replied);
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(BrowserEventTest, ArmingAgainKeepsTheWaitObjectsAndForgetsTheReply) {
    m_event.initWaitResultCv();
    const std::mutex* const p_mutex = m_event.waitResultMtx;
    const std::condition_variable* const p_condition = m_event.waitResultCv;
    m_event.replyResult(7);

    const std::int32_t status = m_event.initWaitResultCv();

    EXPECT_EQ(status, 0);
    EXPECT_EQ(m_event.waitResultMtx, p_mutex);
    EXPECT_EQ(m_event.waitResultCv, p_condition);
    EXPECT_FALSE(m_event.replied);
    EXPECT_EQ(m_event.waitForResult(0), kEventResultTimeout);
    const std::vector<LogEntry> expected = {
        eventCppLine(kLogInfo, "initWaitResultCv", "Already initialized.\n")};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(BrowserEventTest, ArmingForgetsAReplyGivenBefore) {
    m_event.replyResult(7);

    m_event.initWaitResultCv();

    EXPECT_FALSE(m_event.replied);
    EXPECT_EQ(m_event.waitForResult(0), kEventResultTimeout);
}

TEST_F(BrowserEventTest, ArmingWithAMutexAloneMakesBothAfresh) {
    const auto p_mutex = std::make_unique<std::mutex>();
    m_event.waitResultMtx = p_mutex.get();

    EXPECT_EQ(m_event.initWaitResultCv(), 0);

    EXPECT_NE(m_event.waitResultMtx, p_mutex.get());
    EXPECT_NE(m_event.waitResultMtx, nullptr);
    EXPECT_NE(m_event.waitResultCv, nullptr);
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(BrowserEventTest, ArmingWithAConditionVariableAloneMakesBothAfresh) {
    const auto p_condition = std::make_unique<std::condition_variable>();
    m_event.waitResultCv = p_condition.get();

    EXPECT_EQ(m_event.initWaitResultCv(), 0);

    EXPECT_NE(m_event.waitResultCv, p_condition.get());
    EXPECT_NE(m_event.waitResultCv, nullptr);
    EXPECT_NE(m_event.waitResultMtx, nullptr);
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(BrowserEventTest, ArmingOutOfMemoryLeavesItUnarmedAndMayBeTriedAgain) {
    long failures = 0;
    for (int n = 1;; ++n) {
        BrowserEvent event(3, 5, nullptr);
        std::int32_t status = -1;
        long hits = 0;
        {
            test::FailCall fail(Call::New, 0, When().nth(n));
            EXPECT_NO_THROW(status = event.initWaitResultCv());
            hits = fail.hits();
        }
        EXPECT_EQ(status, 0);
        if (hits == 0) break;
        ++failures;
        EXPECT_EQ(event.waitResultMtx, nullptr);
        EXPECT_EQ(event.waitResultCv, nullptr);
        EXPECT_EQ(event.waitForResult(0), kEventResultNone);

        EXPECT_EQ(event.initWaitResultCv(), 0);
        EXPECT_EQ(event.waitForResult(0), kEventResultTimeout);
    }
    EXPECT_GT(failures, 0);
}

// Replying.

TEST_F(BrowserEventTest, AReplyIsStored) {
    m_event.initWaitResultCv();

    m_event.replyResult(7);

    EXPECT_TRUE(m_event.replied);
    EXPECT_EQ(m_event.result, 7);
}

TEST_F(BrowserEventTest, AReplyToAnUnarmedEventIsJustStored) {
    test::CountCalls notified(Call::PthreadCondBroadcast, When().everyTime());

    m_event.replyResult(7);

    EXPECT_TRUE(m_event.replied);
    EXPECT_EQ(m_event.result, 7);
    EXPECT_EQ(notified.seen(), 0);
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(BrowserEventTest, ASecondReplyReplacesTheFirst) {
    m_event.initWaitResultCv();
    m_event.replyResult(7);

    m_event.replyResult(8);

    EXPECT_EQ(m_event.result, 8);
    EXPECT_EQ(m_event.waitForResult(0), 8);
}

TEST_F(BrowserEventTest, AReplyPassesAnyValueThrough) {
    for (const EventResult reply : {0, 2, -2, INT_MAX, INT_MIN}) {
        m_event.initWaitResultCv();
        m_event.replyResult(reply);

        EXPECT_EQ(m_event.waitForResult(1000), reply);
    }
}

TEST_F(BrowserEventTest, AReplyOfOneOrMinusOneLooksLikeATimeoutOrAnUnarmedEvent) {
    m_event.initWaitResultCv();

    m_event.replyResult(1);
    EXPECT_EQ(m_event.waitForResult(-1), kEventResultTimeout);
    m_event.replyResult(-1);
    EXPECT_EQ(m_event.waitForResult(-1), kEventResultNone);

    EXPECT_TRUE(m_event.replied);
    EXPECT_TRUE(m_log.entries().empty());
}

// Once anybody can be told of the reply, the event may be used again.
TEST_F(BrowserEventTest, ArmingAgainAsTheReplyIsToldForgetsIt) {
    m_event.initWaitResultCv();
    {
        const test::RunAtCall atTelling(Call::PthreadCondBroadcast,
                                        [&] { m_event.initWaitResultCv(); });
        m_event.replyResult(7);
        EXPECT_EQ(atTelling.hits(), 1);
    }

    EXPECT_FALSE(m_event.replied);
    EXPECT_EQ(m_event.waitForResult(0), kEventResultTimeout);
}

/// What three waits return, of which one is limited, when @p reply comes after they have begun.
std::vector<std::int32_t> resultsOfWaits(EventResult reply, BrowserEvent& event) {
    constexpr std::size_t kWaiters = 3;
    // The hooks run before the wait, with the event's lock held: a reply comes after the wait.
    test::Countdown waiting(kWaiters);
    test::RunAtCall untimed(
        Call::PthreadCondWait, [&] { waiting.arrive(); },
        When().on(event.waitResultCv->native_handle()).anyThread().everyTime());
    test::RunAtCall timed(
        Call::PthreadCondClockwait, [&] { waiting.arrive(); },
        When().on(event.waitResultCv->native_handle()).anyThread().everyTime());
    std::vector<std::int32_t> results(kWaiters);
    std::vector<std::thread> waiters;
    for (std::size_t i = 0; i < kWaiters; ++i) {
        waiters.emplace_back([&, i] { results[i] = event.waitForResult(i == 0 ? 60000 : -1); });
    }

    EXPECT_TRUE(waiting.wait());
    event.replyResult(reply);
    for (std::thread& waiter : waiters) waiter.join();
    return results;
}

const std::vector<std::int32_t> kAllSeven = {7, 7, 7};

TEST_F(BrowserEventTest, AReplyWakesAllWhoWait) {
    m_event.initWaitResultCv();

    EXPECT_EQ(resultsOfWaits(7, m_event), kAllSeven);
}

TEST_F(BrowserEventTest, AReplyWakesAllWhoWaitOnObjectsOfAClient) {
    m_event.waitResultMtx = new std::mutex();
    m_event.waitResultCv = new std::condition_variable();

    EXPECT_EQ(resultsOfWaits(7, m_event), kAllSeven);
}

// The waiter may free them as soon as it has the lock.
TEST_F(BrowserEventTest, AReplyIsToldUnderTheLockOfAClient) {
    m_event.waitResultMtx = new std::mutex();
    m_event.waitResultCv = new std::condition_variable();
    bool isHeld = false;
    const test::RunAtCall atTelling(Call::PthreadCondBroadcast, [&] {
        std::thread([&] {
            isHeld = !m_event.waitResultMtx->try_lock();
            if (!isHeld) m_event.waitResultMtx->unlock();
        }).join();
    });

    m_event.replyResult(7);

    EXPECT_EQ(atTelling.hits(), 1);
    EXPECT_TRUE(isHeld);
}

/// Waits on the event's own objects, as a client may; false when nobody wakes it in time.
bool isWokenBy(EventResult reply, BrowserEvent& event, test::Countdown* p_waiting) {
    std::unique_lock<std::mutex> lock(*event.waitResultMtx);
    p_waiting->arrive();  // A reply needs the lock, and so comes after the wait has begun.
    while (event.result != reply) {
        if (event.waitResultCv->wait_for(lock, test::kPatience) == std::cv_status::timeout) {
            return false;
        }
    }
    return true;
}

/// How many of three such clients a reply wakes.
int countWokenBy(EventResult reply, BrowserEvent& event) {
    constexpr int kClients = 3;
    std::atomic<int> woken{0};
    test::Countdown waiting(kClients);
    std::vector<std::thread> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.emplace_back([&] { woken += isWokenBy(reply, event, &waiting) ? 1 : 0; });
    }
    EXPECT_TRUE(waiting.wait());
    event.replyResult(reply);
    for (std::thread& client : clients) client.join();
    return woken;
}

TEST_F(BrowserEventTest, EveryReplyWakesClientsThatWaitOnTheConditionVariableItself) {
    m_event.initWaitResultCv();

    EXPECT_EQ(countWokenBy(7, m_event), 3);
    EXPECT_EQ(countWokenBy(8, m_event), 3);  // There is a reply already.
    m_event.initWaitResultCv();
    EXPECT_EQ(countWokenBy(9, m_event), 3);
}

TEST_F(BrowserEventTest, EveryReplyWakesClientsThatWaitOnObjectsOfTheirOwn) {
    m_event.waitResultMtx = new std::mutex();
    m_event.waitResultCv = new std::condition_variable();

    EXPECT_EQ(countWokenBy(7, m_event), 3);
    EXPECT_EQ(countWokenBy(8, m_event), 3);
    EXPECT_EQ(m_event.waitForResult(-1), 8);
}

TEST_F(BrowserEventTest, ArmingKeepsTheObjectsOfAClient) {
    auto* const p_mutex = new std::mutex();
    auto* const p_condition = new std::condition_variable();
    m_event.waitResultMtx = p_mutex;
    m_event.waitResultCv = p_condition;
    m_event.replyResult(7);

    EXPECT_EQ(m_event.initWaitResultCv(), 0);

    EXPECT_EQ(m_event.waitResultMtx, p_mutex);
    EXPECT_EQ(m_event.waitResultCv, p_condition);
    EXPECT_FALSE(m_event.replied);
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(),
              std::vector<LogEntry>{
                  eventCppLine(kLogInfo, "initWaitResultCv", "Already initialized.\n")});
    EXPECT_EQ(countWokenBy(8, m_event), 3);
}

TEST_F(BrowserEventTest, AReplyNeedsNoConditionVariableOfAClient) {
    m_event.waitResultMtx = new std::mutex();

    m_event.replyResult(7);

    EXPECT_TRUE(m_event.replied);
    EXPECT_EQ(m_event.result, 7);
}

TEST_F(BrowserEventTest, ObjectsThatAClientHasTakenAwayAreNotFreedWithTheEvent) {
    // Nobody else can free them: kept, they are no leak.
    static auto& s_taken = *new std::vector<std::mutex*>;
    std::condition_variable* p_condition = nullptr;
    {
        BrowserEvent event(1, 2, nullptr);
        ASSERT_EQ(event.initWaitResultCv(), 0);
        s_taken.push_back(std::exchange(event.waitResultMtx, nullptr));
        p_condition = std::exchange(event.waitResultCv, nullptr);
        event.replyResult(7);
        EXPECT_EQ(event.result, 7);
    }

    EXPECT_TRUE(s_taken.back()->try_lock());
    s_taken.back()->unlock();
    p_condition->notify_all();
}

TEST_F(BrowserEventTest, ObjectsOfAClientAreFreedWithTheEvent) {
    test::CountCalls destroyed(Call::PthreadCondDestroy);
    {
        BrowserEvent event(1, 2, nullptr);
        event.waitResultMtx = new std::mutex();
        event.waitResultCv = new std::condition_variable();
    }

    EXPECT_EQ(destroyed.seen(), 1);
}

// Waiting.

TEST_F(BrowserEventTest, WaitingOnAnUnarmedEventIsReportedAndReturnsAtOnce) {
    m_event.replyResult(7);

    const std::int32_t unlimited = m_event.waitForResult(-1);
    const std::int32_t limited = m_event.waitForResult(1000);

    EXPECT_EQ(unlimited, kEventResultNone);
    EXPECT_EQ(limited, kEventResultNone);
    const std::vector<LogEntry> expected = {kNotArmed, kNotArmed};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(BrowserEventTest, WaitingOnAHalfArmedEventIsReported) {
    std::mutex mutex;
    std::condition_variable condition;

    m_event.waitResultMtx = &mutex;
    const std::int32_t withMutex = m_event.waitForResult(-1);
    m_event.waitResultMtx = nullptr;
    m_event.waitResultCv = &condition;
    const std::int32_t withCondition = m_event.waitForResult(-1);
    m_event.waitResultCv = nullptr;

    EXPECT_EQ(withMutex, kEventResultNone);
    EXPECT_EQ(withCondition, kEventResultNone);
    const std::vector<LogEntry> expected = {kNotArmed, kNotArmed};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(BrowserEventTest, AnEarlierReplyEndsAnyWaitAtOnce) {
    m_event.initWaitResultCv();
    m_event.replyResult(7);
    test::CountCalls waits(Call::PthreadCondWait, When().everyTime());

    EXPECT_EQ(m_event.waitForResult(100), 7);
    EXPECT_EQ(m_event.waitForResult(-1), 7);
    EXPECT_EQ(m_event.waitForResult(0), 7);
    EXPECT_EQ(m_event.waitForResult(-5), 7);
    EXPECT_EQ(waits.seen(), 0);
}

TEST_F(BrowserEventTest, ATimeoutThatHasPassedReturnsAtOnce) {
    m_event.initWaitResultCv();

    EXPECT_EQ(m_event.waitForResult(0), kEventResultTimeout);
    EXPECT_EQ(m_event.waitForResult(-5), kEventResultTimeout);
    EXPECT_EQ(m_event.waitForResult(-2), kEventResultTimeout);
    EXPECT_EQ(m_event.waitForResult(INT_MIN), kEventResultTimeout);

    EXPECT_FALSE(m_event.replied);
    EXPECT_EQ(m_event.result, kEventResultNone);
    EXPECT_TRUE(m_log.entries().empty());
}

TEST_F(BrowserEventTest, AFailedTimedWaitIsThrown) {
    m_event.initWaitResultCv();
    test::FailCall fail(Call::PthreadCondClockwait, EINVAL, When().everyTime());

    try {
        (void)m_event.waitForResult(30000);
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::error_code(EINVAL, std::generic_category()));
    }
    EXPECT_EQ(fail.hits(), 1);
}

TEST_F(BrowserEventTest, AFailedWaitWithoutLimitIsThrown) {
    m_event.initWaitResultCv();
    test::FailCall fail(Call::PthreadCondWait, EINVAL, When().everyTime());

    EXPECT_THROW((void)m_event.waitForResult(-1), std::system_error);
    EXPECT_EQ(fail.hits(), 1);
}

TEST_F(BrowserEventTest, ATimeoutDoesNotPassEarly) {
    m_event.initWaitResultCv();
    const SteadyClock::time_point start = SteadyClock::now();

    const std::int32_t result = m_event.waitForResult(50);

    EXPECT_EQ(result, kEventResultTimeout);
    EXPECT_GE(SteadyClock::now() - start, std::chrono::milliseconds(50));
}

TEST_F(BrowserEventTest, ALateReplyIsStoredForTheNextWait) {
    m_event.initWaitResultCv();
    ASSERT_EQ(m_event.waitForResult(1), kEventResultTimeout);

    m_event.replyResult(7);

    EXPECT_TRUE(m_event.replied);
    EXPECT_EQ(m_event.waitForResult(0), 7);
}

TEST_F(BrowserEventTest, AnUnlimitedWaitEndsWithTheReplyOnly) {
    m_event.initWaitResultCv();
    constexpr long kWakeUps = 5;
    // Five waits return without a reply; it comes when the sixth begins.
    test::FailCall wakeUps(Call::PthreadCondWait, 0, When().times(kWakeUps));
    test::Event sixth;
    test::RunAtCall atSixth(
        Call::PthreadCondWait, [&] { sixth.set(); }, When().nth(kWakeUps + 1));
    std::thread replier([&] {
        (void)sixth.wait();
        m_event.replyResult(7);
    });

    const std::int32_t result = m_event.waitForResult(-1);
    replier.join();

    EXPECT_EQ(result, 7);
    EXPECT_EQ(wakeUps.hits(), kWakeUps);
}

TEST_F(BrowserEventTest, AnUnlimitedWaitNeedsNoClock) {
    m_event.initWaitResultCv();
    test::ReplaceCall<int(pthread_cond_t*, pthread_mutex_t*)> wait(
        Call::PthreadCondWait, [&](pthread_cond_t*, pthread_mutex_t*) {
            m_event.replied = true;
            m_event.result = 7;
            return 0;
        });
    test::FailCall clock(Call::ClockGettime, EINVAL, When().everyTime());
    test::CountCalls timedWaits(Call::PthreadCondClockwait, When().everyTime());

    const std::int32_t result = m_event.waitForResult(-1);

    EXPECT_EQ(result, 7);
    EXPECT_EQ(timedWaits.seen(), 0);
}

// What a failed reading has left behind is no time.
TEST_F(BrowserEventTest, ALimitedWaitWithoutAClockIsOverAtOnce) {
    m_event.initWaitResultCv();
    test::ReplaceCall<int(clockid_t, timespec*)> clock(Call::ClockGettime,
                                                       [](clockid_t, timespec* p_time) {
                                                           *p_time = {1000000000, 0};
                                                           errno = EINVAL;
                                                           return -1;
                                                       });
    timespec deadline = {-1, -1};
    test::ReplaceCall<int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)> wait(
        Call::PthreadCondClockwait,
        [&](pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec* p_deadline) {
            deadline = *p_deadline;
            return ETIMEDOUT;
        });

    const std::int32_t result = m_event.waitForResult(60000);

    EXPECT_EQ(result, 1);
    EXPECT_EQ(deadline.tv_sec, 0);
    EXPECT_EQ(deadline.tv_nsec, 0);
    EXPECT_EQ(wait.hits(), 1);
}

TEST_F(BrowserEventTest, ALimitedWaitGoesOnAfterWakeUpsWithoutAReply) {
    m_event.initWaitResultCv();
    constexpr long kWakeUps = 5;
    test::FailCall wakeUps(Call::PthreadCondClockwait, 0, When().times(kWakeUps));
    test::Event sixth;
    test::RunAtCall atSixth(
        Call::PthreadCondClockwait, [&] { sixth.set(); }, When().nth(kWakeUps + 1));
    std::thread replier([&] {
        (void)sixth.wait();
        m_event.replyResult(7);
    });

    const std::int32_t result = m_event.waitForResult(60000);
    replier.join();

    EXPECT_EQ(result, 7);
    EXPECT_EQ(wakeUps.hits(), kWakeUps);
}

std::chrono::nanoseconds toDuration(const timespec& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

TEST_F(BrowserEventTest, ALimitedWaitHasItsDeadlineOnTheMonotonicClock) {
    m_event.initWaitResultCv();
    for (const std::int32_t timeout : {1, 3000, 5000000, INT_MAX}) {
        m_event.replied = false;
        clockid_t usedClock = -1;
        timespec deadline = {};
        test::ReplaceCall<ClockWait> wait(
            Call::PthreadCondClockwait,
            [&](pthread_cond_t*, pthread_mutex_t*, clockid_t clock, const timespec* p_deadline) {
                usedClock = clock;
                deadline = *p_deadline;
                m_event.replied = true;
                m_event.result = 7;
                return 0;
            });
        timespec before = {};
        timespec after = {};

        clock_gettime(CLOCK_MONOTONIC, &before);
        const std::int32_t result = m_event.waitForResult(timeout);
        clock_gettime(CLOCK_MONOTONIC, &after);

        EXPECT_EQ(result, 7);
        EXPECT_EQ(usedClock, CLOCK_MONOTONIC);
        EXPECT_GE(toDuration(deadline), toDuration(before) + std::chrono::milliseconds(timeout));
        EXPECT_LE(toDuration(deadline), toDuration(after) + std::chrono::milliseconds(timeout));
    }
}

TEST_F(BrowserEventTest, AReplyThatComesAsTheDeadlinePassesCounts) {
    m_event.initWaitResultCv();
    test::ReplaceCall<ClockWait> wait(
        Call::PthreadCondClockwait, [&](pthread_cond_t*, pthread_mutex_t* p_mutex, clockid_t clock,
                                        const timespec* p_deadline) {
            pthread_mutex_unlock(p_mutex);
            clock_nanosleep(clock, TIMER_ABSTIME, p_deadline, nullptr);
            m_event.replyResult(7);
            pthread_mutex_lock(p_mutex);
            return ETIMEDOUT;
        });

    const std::int32_t result = m_event.waitForResult(1);

    EXPECT_EQ(result, 7);
    EXPECT_EQ(wait.hits(), 1);
}

TEST_F(BrowserEventTest, AReplyFromAnotherThreadEndsALimitedWait) {
    m_event.initWaitResultCv();
    test::Event waiting;
    test::RunAtCall atWait(Call::PthreadCondClockwait, [&] { waiting.set(); });
    std::thread replier([&] {
        (void)waiting.wait();
        m_event.replyResult(7);
    });

    const std::int32_t result = m_event.waitForResult(60000);
    replier.join();

    EXPECT_EQ(result, 7);
}

TEST_F(BrowserEventTest, ReleasesItsLockAfterEachWayOfReturning) {
    m_event.initWaitResultCv();

    (void)m_event.waitForResult(0);
    EXPECT_TRUE(m_event.waitResultMtx->try_lock());
    m_event.waitResultMtx->unlock();
    m_event.replyResult(7);
    EXPECT_TRUE(m_event.waitResultMtx->try_lock());
    m_event.waitResultMtx->unlock();
    (void)m_event.waitForResult(-1);
    EXPECT_TRUE(m_event.waitResultMtx->try_lock());
    m_event.waitResultMtx->unlock();
}

TEST_F(BrowserEventTest, ALockThatFailsReachesTheCaller) {
    m_event.initWaitResultCv();
    test::FailCall fail(Call::PthreadMutexLock, EINVAL,
                        When().on(m_event.waitResultMtx->native_handle()).times(3));

    EXPECT_THROW(m_event.replyResult(7), std::system_error);
    EXPECT_THROW(m_event.waitForResult(0), std::system_error);
    EXPECT_THROW(m_event.waitForResult(-1), std::system_error);

    EXPECT_FALSE(m_event.replied);
    EXPECT_EQ(m_event.waitForResult(0), kEventResultTimeout);
}

TEST_F(BrowserEventTest, RepliesThatRaceWithTimeoutsAreSeenWholeOrNotAtAll) {
    constexpr int kRounds = 300;
    int odd = 0;
    for (int round = 0; round < kRounds; ++round) {
        BrowserEvent event(1, 2, nullptr);
        event.initWaitResultCv();
        std::thread replier([&] { event.replyResult(7); });

        const std::int32_t result = event.waitForResult(round % 2);
        replier.join();

        if (result != 7 && result != kEventResultTimeout) ++odd;
        if (event.waitForResult(0) != 7) ++odd;
    }
    EXPECT_EQ(odd, 0);
}

}  // namespace
