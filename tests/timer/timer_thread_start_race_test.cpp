// A stop that comes while a post is about to start the thread.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "support/threads.h"
#include "timer/timer_fixtures.h"
#include "zor_debug/zor_debug_control.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::Call;
using test::When;

/// Holds the first thread that writes a line with a given text, there, until it is let go. Takes
/// the place of a LogCapture.
class HeldLine {
public:
    explicit HeldLine(std::string part)
        : m_part(std::move(part)), m_levelBefore(zorDebugGetLevel(kBlogModule)) {
        test::setLogLevel(kLogAlways);
        zorDebugInstallCapture(&HeldLine::capture, this);
    }
    ~HeldLine() {
        letGo();
        zorDebugRemoveCapture();
        test::setLogLevel(m_levelBefore);
    }

    HeldLine(const HeldLine&) = delete;
    HeldLine& operator=(const HeldLine&) = delete;

    [[nodiscard]] bool waitUntilHeld() { return m_held.wait(); }
    void letGo() { m_release.set(); }
    /// How often it was written.
    int count() const { return m_count; }

private:
    static void capture(void* p_self, const DebugLevelRecord*, const char* p_text,
                        std::size_t length) {
        const test::PassCalls pass;
        auto* const self = static_cast<HeldLine*>(p_self);
        if (std::string(p_text, length).find(self->m_part) == std::string::npos) return;
        ++self->m_count;
        if (self->m_isFirst.exchange(false)) {
            self->m_held.set();
            (void)self->m_release.wait();
        }
    }

    const std::string m_part;
    const std::uint16_t m_levelBefore;
    std::atomic<bool> m_isFirst{true};
    std::atomic<int> m_count{0};
    test::Event m_held;
    test::Event m_release;
};

class TimerThreadStartRaceTest : public testing::Test {
protected:
    void post(int number) {
        m_thread.postTask(makeTask([this, number] { m_fires.add(number); }), 0);
    }

    HeldLine m_line{"Need start TimerThread."};
    FireLog m_fires;
    TimerThread m_thread;
};

TEST_F(TimerThreadStartRaceTest, APostAndAStopBeforeTheStartMakeNoSecondThread) {
    std::thread starting([&] { post(1); });
    EXPECT_TRUE(m_line.waitUntilHeld());
    {
        test::CountCalls created(Call::PthreadCreate, When().anyThread().everyTime());

        m_thread.stop();
        post(2);
        m_line.letGo();
        starting.join();
        post(3);

        EXPECT_TRUE(m_fires.waitFor(3));
        EXPECT_EQ(created.seen(), 1);
        EXPECT_EQ(m_line.count(), 1);
    }

    // It ends with the next stop, and others come after it.
    test::CountCalls joined(Call::PthreadJoin, When().anyThread().everyTime());
    m_thread.stop();
    EXPECT_EQ(joined.seen(), 1);
    post(4);
    EXPECT_TRUE(m_fires.waitFor(4));
    m_thread.stop();
    EXPECT_EQ(joined.seen(), 2);
    EXPECT_EQ(m_thread.taskCount(), 0);
}

TEST_F(TimerThreadStartRaceTest, AfterAStopBeforeTheStartNobodyWaitsForATask) {
    std::thread starting([&] { post(1); });
    EXPECT_TRUE(m_line.waitUntilHeld());
    m_thread.stop();
    {
        const test::CountCalls waits(Call::PthreadCondClockwait);
        m_thread.waitNextTaskWithTimeOut(0.001);
        EXPECT_EQ(waits.seen(), 0);
    }
    m_line.letGo();
    starting.join();
    EXPECT_TRUE(m_fires.waitFor(1));
}

TEST_F(TimerThreadStartRaceTest, AStopThatAStartOvertakesEndsThatThreadToo) {
    test::Event posted;
    std::thread starting([&] {
        post(1);
        posted.set();
    });
    EXPECT_TRUE(m_line.waitUntilHeld());
    test::Event stopped;
    std::thread stopping([&] {
        test::RunAtCall overtaken(Call::PthreadMutexLock, [&] {
            m_line.letGo();
            (void)posted.wait();
        });
        m_thread.stop();
        stopped.set();
    });

    const bool hasReturned = stopped.wait();
    EXPECT_TRUE(hasReturned);
    if (!hasReturned) m_thread.stop();  // Lets the thread go that the other stop waits for.
    m_line.letGo();
    starting.join();
    stopping.join();

    post(2);
    EXPECT_TRUE(m_fires.waitFor(2));
    m_thread.stop();
    EXPECT_EQ(m_thread.taskCount(), 0);
}

// A worker that was stopped by its own task has left, but has not ended: it writes its last line.
// One post waits for its end, another one starts the next worker meanwhile.
TEST(TimerThreadLeftWorkerTest, ALateEndDoesNotDisturbTheNextWorker) {
    HeldLine line("Exiting Timer Thread...");
    FireLog fires;
    Holder holder;
    test::Event joining;
    test::Event posted;
    TimerThread thread;
    thread.postTask(makeTask([&] { thread.stop(); }), 0);
    ASSERT_TRUE(line.waitUntilHeld());
    test::CountCalls created(Call::PthreadCreate, When().anyThread().everyTime());
    std::thread waiting([&] {
        test::RunAtCall atJoin(Call::PthreadJoin, [&] { joining.set(); });
        thread.postTask(makeTask([&] { fires.add(1); }), 0);
        posted.set();
    });
    EXPECT_TRUE(joining.wait());
    EXPECT_TRUE(holder.hold(thread));

    line.letGo();

    EXPECT_TRUE(posted.wait());
    EXPECT_TRUE(thread.isBusy());
    holder.letGo();
    waiting.join();
    EXPECT_TRUE(fires.waitFor(1));
    EXPECT_EQ(created.seen(), 2);  // The other post's thread, and one worker.
}

// One post has claimed the start of the next worker, and is about to wait for the end of the one
// that has left. Another post has started the next one before.
TEST(TimerThreadLeftWorkerTest, ItsEndDoesNotStopTheNextWorker) {
    const test::LogCapture log(kLogAlways);
    FireLog fires;
    TimerThread thread;
    thread.postTask(makeTask([&] { thread.stop(); }), 0);
    ASSERT_TRUE(log.waitFor("Exiting Timer Thread..."));
    test::CountCalls created(Call::PthreadCreate, When().anyThread().everyTime());
    std::thread waiting([&] {
        const test::RunAtCall atLine(Call::ZorDebugCheckLevel, [&] {
            std::thread([&] { thread.postTask(makeTask([&] { fires.add(1); }), 0); }).join();
            EXPECT_TRUE(fires.waitFor(1));
        });
        thread.postTask(makeTask([&] { fires.add(2); }), 0);
    });
    waiting.join();

    EXPECT_TRUE(fires.waitFor(2));
    EXPECT_EQ(created.seen(), 2);  // The first post's thread, and one worker.
}

// The post has claimed the start of the next worker, and is in the join of the one that has left.
TEST(TimerThreadLeftWorkerTest, APostThatIsCancelledStartsTheNextWorker) {
    HeldLine line("Exiting Timer Thread...");
    FireLog fires;
    TimerThread thread;
    thread.postTask(makeTask([&] { thread.stop(); }), 0);
    ASSERT_TRUE(line.waitUntilHeld());

    bool isCancelled = true;
    std::thread posting([&] {
        test::RunAtCall atJoin(Call::PthreadJoin, [&] {
            (void)pthread_cancel(pthread_self());
            line.letGo();
        });
        thread.postTask(makeTask([&] { fires.add(1); }), 0);
        int ignored = 0;
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &ignored);
        isCancelled = false;
    });
    posting.join();

    EXPECT_FALSE(isCancelled);
    EXPECT_TRUE(fires.waitFor(1));
}

/// A task that starts its thread when it goes.
class LateStarter : public TimerTaskBase {
public:
    explicit LateStarter(TimerThread* p_thread) : m_thread(p_thread) {}
    ~LateStarter() override { m_thread->start(); }

    LateStarter(const LateStarter&) = delete;
    LateStarter& operator=(const LateStarter&) = delete;

    void fire() override {}

private:
    TimerThread* const m_thread;
};

TEST(TimerThreadDestructionTest, NothingStartsTheThreadAnyMore) {
    const test::LogCapture log(0);
    test::CountCalls created(Call::PthreadCreate, When().anyThread().everyTime());
    {
        TimerThread thread;
        thread.postTask(std::make_shared<LateStarter>(&thread), 3600 * 1000);
    }
    EXPECT_EQ(created.seen(), 1);
}

TEST(TimerThreadStartStormTest, TwoPostsAndAStopAtOnceLoseNeitherThreadsNorTasks) {
    constexpr int kRounds = 300;
    const test::LogCapture log(0);
    test::CountCalls created(Call::PthreadCreate, When().anyThread().everyTime());
    test::CountCalls joined(Call::PthreadJoin, When().anyThread().everyTime());
    for (int round = 0; round < kRounds; ++round) {
        std::atomic<int> fired{0};
        TimerThread thread;
        test::runAtOnce(3, [&](int i) {
            if (i == 0) {
                thread.stop();
            } else {
                thread.postTask(makeTask([&] { ++fired; }), 0);
            }
        });
        thread.stop();
        ASSERT_EQ(joined.seen(), created.seen()) << round;
        ASSERT_EQ(fired + thread.taskCount(), 2) << round;

        test::Event last;
        thread.postTask(makeTask([&] { last.set(); }), 0);
        ASSERT_TRUE(last.wait()) << round;
        ASSERT_EQ(fired, 2) << round;
    }
    EXPECT_EQ(joined.seen(), created.seen());
}

}  // namespace
