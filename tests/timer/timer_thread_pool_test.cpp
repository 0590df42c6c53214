// The pool is one per process: each test has a process of its own.

#include "base/timer/timer_thread_pool.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "support/fresh_process.h"
#include "support/threads.h"
#include "timer/timer_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::timer;
using test::Call;
using test::FailCall;
using test::LogCapture;
using test::LogEntry;

constexpr double kNow = 0.1;  // On the clock: due long since.
constexpr double kFar = 1e9;

LogEntry workerLine(std::uint16_t level, const std::string& message) {
    return poolLine(level, "postWorkerTask", message);
}

LogEntry madeLine(int index) {
    return workerLine(kLogAlways, "Crate Worker Thread: " + std::to_string(index) + "\n");
}

LogEntry countLine(int count) {
    return workerLine(kLogInfo, "Worker Count: " + std::to_string(count) + "\n");
}

LogEntry chosenLine(int index, int load) {
    return workerLine(kLogInfo, "Post To Worker " + std::to_string(index) +
                                    " : taskcount: " + std::to_string(load) + "\n");
}

/// Posts to the workers; the pool's lines about it.
std::vector<LogEntry> linesOfPosting(LogCapture& log, const std::shared_ptr<TimerTaskBase>& task) {
    log.clear();
    TimerThreadPool::postWorkerTask(task);
    return linesOf("postWorkerTask", log.entriesWithoutLineNumbers());
}

using Lines = std::vector<LogEntry>;

std::shared_ptr<TestTask> farTask() {
    return makeTask([] {}, kFar);
}

/// Runs @p work as a task that @p post posts, and waits for it.
template <typename Post, typename Work>
void runOn(Post post, Work work) {
    test::Event done;
    post(makeTask(
        [&] {
            work();
            done.set();
        },
        kNow));
    EXPECT_TRUE(done.wait());
}

TEST(TimerThreadPoolTest, IsOneAndMakesNoThread) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogAlways);
        test::CountCalls created(Call::PthreadCreate);
        TimerThreadPool* const p_pool = TimerThreadPool::GetInstance();

        EXPECT_NE(p_pool, nullptr);
        EXPECT_EQ(TimerThreadPool::getInstance(), p_pool);
        TimerThreadPool::init(2);
        EXPECT_EQ(TimerThreadPool::GetInstance(), p_pool);
        EXPECT_EQ(created.seen(), 0);
    });
}

TEST(TimerThreadPoolTest, ManyThreadsGetTheSameOne) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogAlways);
        TimerThreadPool* pools[8] = {};
        test::runAtOnce(8, [&](int i) { pools[i] = TimerThreadPool::GetInstance(); });
        for (const TimerThreadPool* const p_pool : pools) EXPECT_EQ(p_pool, pools[0]);
    });
}

TEST(TimerThreadPoolTest, ThreadsKnowThemselves) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        const auto who = [] {
            return std::string(TimerThreadPool::isMainThread() ? "m" : "") +
                   (TimerThreadPool::isForegroundThread() ? "f" : "") +
                   (TimerThreadPool::isBackgroundThread() ? "b" : "");
        };
        EXPECT_EQ(who(), "");
        std::string on[4];
        const auto runOnAll = [&] {
            runOn(TimerThreadPool::postMainThreadTask, [&] { on[0] = who(); });
            runOn(TimerThreadPool::postForegroundTask, [&] { on[1] = who(); });
            runOn(TimerThreadPool::postBackgroundTask, [&] { on[2] = who(); });
            runOn(TimerThreadPool::postWorkerTask, [&] { on[3] = who(); });
        };
        runOnAll();
        EXPECT_EQ(on[0], "m");
        EXPECT_EQ(on[1], "f");
        EXPECT_EQ(on[2], "b");
        EXPECT_EQ(on[3], "");
        EXPECT_EQ(who(), "");
    });
}

TEST(TimerThreadPoolTest, ThreadsHaveNamesThatTellThemApart) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        std::vector<std::string> names;
        const auto note = [&] {
            char name[16] = "";
            (void)pthread_getname_np(pthread_self(), name, sizeof(name));
            names.emplace_back(name);
        };
        runOn(TimerThreadPool::postMainThreadTask, note);
        runOn(TimerThreadPool::postForegroundTask, note);
        runOn(TimerThreadPool::postBackgroundTask, note);
        TimerThreadPool::postWorkerTask(farTask());
        runOn(TimerThreadPool::postWorkerTask, note);

        EXPECT_EQ(names, (std::vector<std::string>{"Timer:main", "Timer:foregrnd", "Timer:backgrnd",
                                                   "Timer:work1"}));
    });
}

TEST(TimerThreadPoolTest, PostingToTheMainThreadIsLogged) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        const auto task = makeTask([] {}, kNow, 7);
        TimerThreadPool* const p_pool = TimerThreadPool::GetInstance();
        log.clear();

        TimerThreadPool::postMainThreadTask(task);

        // The main thread is the first of the pool's fields.
        EXPECT_EQ(log.entriesWithoutLineNumbers().front(),
                  poolLine(kLogDebug, "postMainThreadTask",
                           "Post task:(" + address(task.get()) +
                               " - id:7) to mainThread:" + address(p_pool) + ".\n"));
    });
}

TEST(TimerThreadPoolTest, PostingToTheOtherNamedThreadsIsNotLogged) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        runOn(TimerThreadPool::postForegroundTask, [] {});
        runOn(TimerThreadPool::postBackgroundTask, [] {});

        for (const std::string& text : log.texts()) {
            EXPECT_EQ(text.find("timer_thread_pool.cpp"), std::string::npos) << text;
        }
    });
}

TEST(TimerThreadPoolTest, NamedThreadsFireInOrderAndNotBeforeTheirTime) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        for (const auto post :
             {TimerThreadPool::postMainThreadTask, TimerThreadPool::postForegroundTask,
              TimerThreadPool::postBackgroundTask}) {
            FireLog fires;
            double firedAt = 0.0;
            test::Event posted;
            test::Event done;
            post(makeTask([&] { EXPECT_TRUE(posted.wait()); }, kNow));
            const double due = monotonicNow() + 0.05;
            post(makeTask(
                [&] {
                    firedAt = monotonicNow();
                    fires.add(2);
                    done.set();
                },
                due));
            post(makeTask([&] { fires.add(1); }, kNow));
            posted.set();
            EXPECT_TRUE(done.wait());
            EXPECT_EQ(fires.fired(), (std::vector<int>{1, 2}));
            EXPECT_GE(firedAt, due);
        }
    });
}

TEST(TimerThreadPoolTest, WorkersAreMadeUpToTheLimitWhileQueuesAreNotEmpty) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;

        EXPECT_EQ(linesOfPosting(log, farTask()), Lines{madeLine(0)});
        EXPECT_EQ(linesOfPosting(log, farTask()), Lines{madeLine(1)});
        // Loads 1 and 1: a tie goes to the lowest index.
        EXPECT_EQ(linesOfPosting(log, farTask()), (Lines{countLine(2), chosenLine(0, 1)}));
        EXPECT_EQ(linesOfPosting(log, farTask()), (Lines{countLine(2), chosenLine(1, 1)}));
        EXPECT_EQ(linesOfPosting(log, farTask()), (Lines{countLine(2), chosenLine(0, 2)}));
    });
}

TEST(TimerThreadPoolTest, ChoosingAWorkerIsTracedAsAWhole) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        TimerThreadPool::postWorkerTask(farTask());
        TimerThreadPool::postWorkerTask(farTask());
        log.clear();

        const auto task = makeTask([] {}, kFar, 7);
        TimerThreadPool::postWorkerTask(task);

        std::vector<LogEntry> written = log.entriesWithoutLineNumbers();
        written.erase(std::remove_if(written.begin(), written.end(),
                                     [](const LogEntry& entry) {
                                         return entry.text.find(":run(): ") != std::string::npos;
                                     }),
                      written.end());
        ASSERT_EQ(written.size(), 5U);
        EXPECT_EQ(written[0], traceIn("timer_thread_pool.cpp", "postWorkerTask"));
        EXPECT_EQ(written[1], countLine(2));
        EXPECT_EQ(written[2], chosenLine(0, 1));
        EXPECT_NE(written[3].text.find("Insert new task:(" + address(task.get()) + " - id:7).\n"),
                  std::string::npos);
        EXPECT_EQ(written[4], traceOut("timer_thread_pool.cpp", "postWorkerTask"));
    });
}

TEST(TimerThreadPoolTest, ATaskInHandCountsAsOne) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        Holder holder;
        EXPECT_EQ(linesOfPosting(log, holder.task()), Lines{madeLine(0)});
        EXPECT_TRUE(holder.waitUntilHeld());

        // Worker 0 is busy, but its queue is empty.
        EXPECT_EQ(linesOfPosting(log, farTask()), Lines{});
        EXPECT_EQ(linesOfPosting(log, farTask()), Lines{madeLine(1)});
        // Loads 2 and 1, then 2 and 2, then 3 and 2.
        EXPECT_EQ(linesOfPosting(log, farTask()), (Lines{countLine(2), chosenLine(1, 1)}));
        EXPECT_EQ(linesOfPosting(log, farTask()), (Lines{countLine(2), chosenLine(0, 2)}));
        EXPECT_EQ(linesOfPosting(log, farTask()), (Lines{countLine(2), chosenLine(1, 2)}));
        holder.letGo();
    });
}

TEST(TimerThreadPoolTest, TheFirstEmptyQueueHasPrecedence) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        Holder first;
        Holder second;
        Holder other;
        const auto postNow = [&](Holder& holder) {
            holder.task()->setNextFireTime(kNow);
            return linesOfPosting(log, holder.task());
        };
        EXPECT_EQ(postNow(first), Lines{madeLine(0)});
        EXPECT_TRUE(first.waitUntilHeld());
        EXPECT_EQ(postNow(second), Lines{});  // Queued behind the first.
        EXPECT_EQ(postNow(other), Lines{madeLine(1)});
        EXPECT_TRUE(other.waitUntilHeld());
        first.letGo();
        EXPECT_TRUE(second.waitUntilHeld());

        // Both are busy, both queues are empty: worker 0.
        test::Event fired;
        EXPECT_EQ(linesOfPosting(log, makeTask([&] { fired.set(); }, kNow)), Lines{});
        second.letGo();
        EXPECT_TRUE(fired.wait());
        other.letGo();
    });
}

TEST(TimerThreadPoolTest, AnEmptyQueueOfALaterWorkerIsFoundToo) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        test::Event fired;
        EXPECT_EQ(linesOfPosting(log, farTask()), Lines{madeLine(0)});
        EXPECT_EQ(linesOfPosting(log, makeTask([&] { fired.set(); }, kNow)), Lines{madeLine(1)});
        EXPECT_TRUE(fired.wait());

        fired.reset();
        EXPECT_EQ(linesOfPosting(log, makeTask([&] { fired.set(); }, kNow)), Lines{});
        EXPECT_TRUE(fired.wait());
    });
}

TEST(TimerThreadPoolTest, WithoutWorkersTasksAreDropped) {
    for (const std::int32_t limit : {0, -1}) {
        EXPECT_HOLDS_IN_FRESH_PROCESS([limit] {
            LogCapture log;
            TimerThreadPool::init(limit);
            test::CountCalls created(Call::PthreadCreate);
            const auto task = makeTask([] {}, kNow);

            EXPECT_EQ(
                linesOfPosting(log, task),
                (Lines{countLine(0),
                       workerLine(kLogError, "No worker threads available. ignore task.\n")}));
            EXPECT_EQ(task.use_count(), 1);
            EXPECT_EQ(created.seen(), 0);
        });
    }
}

TEST(TimerThreadPoolTest, ALowerLimitKeepsTheWorkersThatExist) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        EXPECT_EQ(linesOfPosting(log, farTask()), Lines{madeLine(0)});
        EXPECT_EQ(linesOfPosting(log, farTask()), Lines{madeLine(1)});

        TimerThreadPool::init(1);

        EXPECT_EQ(linesOfPosting(log, farTask()), (Lines{countLine(2), chosenLine(0, 1)}));
        EXPECT_EQ(linesOfPosting(log, farTask()), (Lines{countLine(2), chosenLine(1, 1)}));
    });
}

TEST(TimerThreadPoolTest, AHigherLimitAllowsMore) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        TimerThreadPool::init(4);
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(linesOfPosting(log, farTask()), Lines{madeLine(i)});
        }
        EXPECT_EQ(linesOfPosting(log, farTask()), (Lines{countLine(4), chosenLine(0, 1)}));
        EXPECT_EQ(linesOfPosting(log, farTask()), (Lines{countLine(4), chosenLine(1, 1)}));
    });
}

TEST(TimerThreadPoolTest, BeyondAllLoadsItIsTheFirst) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        constexpr int kBeyond = 99999;
        LogCapture log(kLogInfo);
        const auto task = farTask();
        test::setLogLevel(kLogError);
        for (int i = 0; i < 2 * kBeyond; ++i) TimerThreadPool::postWorkerTask(task);
        test::setLogLevel(kLogInfo);

        EXPECT_EQ(linesOfPosting(log, task), (Lines{countLine(2), chosenLine(0, kBeyond)}));
        // Worker 1 has fewer now, and is not chosen all the same.
        EXPECT_EQ(linesOfPosting(log, task), (Lines{countLine(2), chosenLine(0, kBeyond)}));
    });
}

TEST(TimerThreadPoolTest, EmptyTasksAreRefusedAfterTheChoice) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        const LogEntry refusal = threadLine(kLogError, "postTask", "Invalid Empty task\n");
        test::CountCalls created(Call::PthreadCreate);

        TimerThreadPool::postForegroundTask(nullptr);
        TimerThreadPool::postBackgroundTask(nullptr);
        EXPECT_EQ(log.entriesWithoutLineNumbers(), (Lines{refusal, refusal}));

        log.clear();
        TimerThreadPool::postWorkerTask(nullptr);
        EXPECT_EQ(log.entriesWithoutLineNumbers(), (Lines{madeLine(0), refusal}));
        EXPECT_EQ(created.seen(), 0);
    });
}

TEST(TimerThreadPoolTest, AThreadThatCannotBeMadeFailsThePost) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        const auto task = makeTask([] {}, kNow);
        for (const auto post :
             {TimerThreadPool::postMainThreadTask, TimerThreadPool::postForegroundTask,
              TimerThreadPool::postBackgroundTask, TimerThreadPool::postWorkerTask}) {
            FailCall noThread(Call::PthreadCreate, EAGAIN);
            try {
                post(task);
                ADD_FAILURE() << "did not throw";
            } catch (const std::runtime_error& error) {
                EXPECT_STREQ(error.what(), "Thread initialization failed");
            }
            EXPECT_EQ(task.use_count(), 1);
        }

        // The worker exists, and gets its thread with the next task.
        test::Event fired;
        EXPECT_EQ(linesOfPosting(log, makeTask([&] { fired.set(); }, kNow)), Lines{});
        EXPECT_TRUE(fired.wait());
        runOn(TimerThreadPool::postMainThreadTask, [] {});
    });
}

/// A task that posts another one when it goes.
class LastWish : public TimerTaskBase {
public:
    explicit LastWish(std::shared_ptr<TimerTaskBase> task) : m_task(std::move(task)) {}
    ~LastWish() override {
        test::Event posted;
        std::thread posting([&] {
            TimerThreadPool::postWorkerTask(m_task);
            posted.set();
        });
        EXPECT_TRUE(posted.wait());
        posting.detach();
    }

    LastWish(const LastWish&) = delete;
    LastWish& operator=(const LastWish&) = delete;

    void fire() override {}

private:
    const std::shared_ptr<TimerTaskBase> m_task;
};

TEST(TimerThreadPoolTest, ATaskThatCannotBePostedIsDestroyedUnlocked) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        static test::Event s_fired;
        auto task = std::make_shared<LastWish>(makeTask([] { s_fired.set(); }, kNow));
        FailCall noThread(Call::PthreadCreate, EAGAIN, test::When().nth(1));

        EXPECT_THROW(TimerThreadPool::postWorkerTask(std::move(task)), std::runtime_error);

        EXPECT_TRUE(s_fired.wait());
    });
}

TEST(TimerThreadPoolTest, AFailedLockIsLoggedAndTheTaskIsPosted) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log(kLogError);
        (void)TimerThreadPool::GetInstance();
        test::Event fired;
        const auto task = makeTask([&] { fired.set(); }, kNow);
        log.clear();
        {
            FailCall fail(Call::PthreadMutexLock, EINVAL, test::When().afterTheCall());
            errno = EDOM;
            TimerThreadPool::postWorkerTask(task);
        }

        EXPECT_TRUE(fired.wait());
        EXPECT_EQ(linesAt(kLogError, log.entries()),
                  (Lines{{kLogError,
                          "[B-LOG] auto_lock.h:31:AutoLock(): An runtime_error has been "
                          "caught:Mutex lock error: " +
                              std::string(std::strerror(EDOM)) + ".\n"}}));
    });
}

TEST(TimerThreadPoolTest, WithoutAMutexThereIsNone) {
    LogCapture log(kLogError);
    FailCall noMutex(Call::PthreadMutexInit, ENOMEM);
    errno = EDOM;
    try {
        TimerThreadPool pool;
        ADD_FAILURE() << "was made all the same";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), std::string("Mutex init error: ") + std::strerror(EDOM));
    }
}

TEST(TimerThreadPoolTest, DestructionGoesFromTheWorkersToTheMainThread) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        LogCapture log;
        std::vector<std::int32_t> ids;
        const auto note = [&] { ids.push_back(currentThread()); };
        runOn(TimerThreadPool::postMainThreadTask, note);
        runOn(TimerThreadPool::postForegroundTask, note);
        runOn(TimerThreadPool::postBackgroundTask, note);
        runOn(TimerThreadPool::postWorkerTask, note);
        log.clear();

        delete TimerThreadPool::GetInstance();

        Lines expected;
        for (auto id = ids.rbegin(); id != ids.rend(); ++id) {
            expected.push_back(threadLine(kLogAlways, "~TimerThread",
                                          "Destroy TimerThread:" + std::to_string(*id) + ".\n"));
        }
        EXPECT_EQ(linesOf("~TimerThread", log.entriesWithoutLineNumbers()), expected);
    });
}

TEST(TimerThreadPoolTest, OneThatIsDestroyedIsNotLookedForInAForkedChild) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        delete TimerThreadPool::GetInstance();

        const pid_t child = fork();
        if (child == 0) _exit(0);

        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    });
}

TEST(TimerThreadPoolTest, ManyThreadsPostAtOnce) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        constexpr int kPosters = 4;
        constexpr int kPosts = 300;
        LogCapture log(kLogAlways);
        test::Countdown left(kPosters * kPosts);
        std::mutex mutex;
        std::set<std::int32_t> workers;  // Guarded by mutex.
        test::runAtOnce(kPosters, [&](int i) {
            for (int n = 0; n < kPosts; ++n) {
                const auto task = makeTask(
                    [&] {
                        {
                            const std::lock_guard<std::mutex> lock(mutex);
                            workers.insert(currentThread());
                        }
                        left.arrive();
                    },
                    kNow);
                switch ((i + n) % 4) {
                    case 0:
                        TimerThreadPool::postMainThreadTask(task);
                        break;
                    case 1:
                        TimerThreadPool::postForegroundTask(task);
                        break;
                    case 2:
                        TimerThreadPool::postBackgroundTask(task);
                        break;
                    default:
                        TimerThreadPool::postWorkerTask(task);
                }
                (void)TimerThreadPool::isMainThread();
            }
        });

        EXPECT_TRUE(left.wait());
        EXPECT_LE(workers.size(), 5U);
        EXPECT_GE(workers.size(), 4U);
    });
}

}  // namespace
