// What a forked child gets of each service whose threads and locks stay behind in its parent.

#include "ends/forked_child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/singleton.h"
#include "base/threading.h"
#include "base/timer.h"
#include "base/utils.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/fresh_process.h"
#include "support/log_capture.h"

namespace {

using namespace tevalon::base;
using event_dispatcher::BrowserEvent;
using event_dispatcher::EventHub;
using simple_timer::CONTINUE;
using simple_timer::ONCE;
using simple_timer::Timer;
using test::runInForkedChild;
using timer::CallableTimerTask;
using timer::TimerThread;
using timer::TimerThreadPool;
using timer::WatchDog;

constexpr simple_timer::TimeoutTime kSoon = {0, 1, 0};
constexpr simple_timer::TimeoutTime kLate = {3600, 0, 0};
constexpr std::int32_t kLateMs = 3600 * 1000;

// ---- simple timers ----

void ignore(Timer*, void*) {}

TEST(ForkedTimerTest, InheritedAndNewTimersFire) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    test::Event fired;
    Timer inherited(
        "inherited", kSoon, [&](Timer*, void*) { fired.set(); }, nullptr, ONCE);

    EXPECT_EQ(runInForkedChild([&] {
                  CHECK_IN_CHILD(inherited.start() == 0);
                  CHECK_IN_CHILD(fired.wait());
                  test::Event ownFired;
                  Timer own(
                      "own", kSoon, [&](Timer*, void*) { ownFired.set(); }, nullptr, ONCE);
                  CHECK_IN_CHILD(own.start() == 0);
                  CHECK_IN_CHILD(ownFired.wait());
              }),
              0);
    EXPECT_FALSE(fired.isSet());
}

TEST(ForkedTimerTest, AStartedTimerIsStoppedInTheChildAlone) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    Timer timer("late", kLate, ignore, nullptr, CONTINUE);
    ASSERT_EQ(timer.start(), 0);

    EXPECT_EQ(runInForkedChild([&] {
                  CHECK_IN_CHILD(!timer.isStarted());
                  CHECK_IN_CHILD(!timer.needStop());
                  CHECK_IN_CHILD(timer.changeTimeout({7200, 0, 0}) == 0);
                  CHECK_IN_CHILD(timer.start() == 0);
                  CHECK_IN_CHILD(timer.isStarted());
                  CHECK_IN_CHILD(timer.restart() == 0);
                  CHECK_IN_CHILD(timer.stop() == 0);
              }),
              0);
    EXPECT_TRUE(timer.isStarted());
}

std::string fileOf(int descriptor) {
    char text[64] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    (void)!readlink(link.c_str(), text, sizeof(text) - 1);
    return text;
}

/// What the process's descriptors lead to.
std::set<std::string> openFiles() {
    std::set<std::string> files;
    for (int descriptor = 0; descriptor < 256; ++descriptor) files.insert(fileOf(descriptor));
    return files;
}

TEST(ForkedTimerTest, WritesNothingToTheParentsScheduler) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    test::setLogLevel(0);
    Timer timer("inherited", kLate, ignore, nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);
    const std::set<std::string> parents = openFiles();

    EXPECT_EQ(runInForkedChild([&] {
                  int commands = 0;
                  const test::ReplaceCall<ssize_t(int, const void*, std::size_t)> write(
                      test::Call::Write, [&](int descriptor, const void*, std::size_t size) {
                          CHECK_IN_CHILD(parents.count(fileOf(descriptor)) == 0);
                          ++commands;
                          return static_cast<ssize_t>(size);
                      });
                  CHECK_IN_CHILD(timer.start() == 0);
                  CHECK_IN_CHILD(timer.stop() == 0);
                  Timer own("own", kLate, ignore, nullptr, ONCE);
                  CHECK_IN_CHILD(own.start() == 0);
                  CHECK_IN_CHILD(commands == 3);
              }),
              0);
}

// Where it has no pipe of its own they go to descriptor 0, as where there has never been one.
TEST(ForkedTimerTest, WithoutAPipeItWritesNothingToTheParentsScheduler) {
    test::setLogLevel(0);
    Timer timer("inherited", kLate, ignore, nullptr, ONCE);

    EXPECT_EQ(runInForkedChild([&] {
                  int own[2] = {-1, -1};
                  CHECK_IN_CHILD(pipe2(own, O_NONBLOCK) == 0);
                  CHECK_IN_CHILD(dup2(own[1], 0) == 0);
                  const test::FailCall noPipe(test::Call::Pipe2, EMFILE);
                  CHECK_IN_CHILD(timer.start() == 0);
                  int command = 0;
                  CHECK_IN_CHILD(read(own[0], &command, sizeof(command)) == sizeof(command));
              }),
              0);
}

TEST(ForkedTimerTest, TheNextStartMakesUpForALostCommandInTheChildAsWell) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    test::LogCapture log;
    Timer parents("parents", {1000, 0, 0}, ignore, nullptr, ONCE);
    Timer lost("lost", {2000, 0, 0}, ignore, nullptr, ONCE);
    Timer next("next", {3000, 0, 0}, ignore, nullptr, ONCE);
    ASSERT_EQ(parents.start(), 0);
    ASSERT_TRUE(log.waitFor("Waiting for timer('parents') expired"));

    EXPECT_EQ(runInForkedChild([&] {
                  test::setLogLevel(0);
                  {
                      const test::FailCall noWrite(test::Call::Write, EIO);
                      CHECK_IN_CHILD(lost.start() == 0);
                      CHECK_IN_CHILD(noWrite.hits() == 1);
                  }
                  const test::CountCalls commands(test::Call::Write, test::When().everyTime());
                  CHECK_IN_CHILD(next.start() == 0);
                  CHECK_IN_CHILD(commands.seen() == 1);
              }),
              0);
}

TEST(ForkedTimerTest, NoRunOfTheChildsIsToEndForAStopInTheParent) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    Timer timer("stopped", kLate, ignore, nullptr, CONTINUE);
    ASSERT_EQ(timer.stop(), 0);

    EXPECT_EQ(runInForkedChild([&] { CHECK_IN_CHILD(!timer.needStop()); }), 0);
    EXPECT_TRUE(timer.needStop());
}

TEST(ForkedTimerTest, ARunThatGoesOnInTheParentIsNotWaitedFor) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    test::Event runs;
    test::Event end;
    auto timer = std::make_unique<Timer>(
        "running", kSoon,
        [&](Timer*, void*) {
            runs.set();
            (void)end.wait();
        },
        nullptr, ONCE);
    ASSERT_EQ(timer->start(), 0);
    ASSERT_TRUE(runs.wait());

    EXPECT_EQ(runInForkedChild([&] {
                  CHECK_IN_CHILD(timer->stop() == 0);
                  timer.reset();
              }),
              0);
    end.set();
}

// ---- where a child comes out of client code ----

/// Forks where it is called, and lets the child come back from there: its thread, the only one,
/// ends.
class ForkHere {
public:
    void operator()() {
        m_child = test::forkQuietly();
        if (m_child == 0) {
            (void)alarm(test::kLongestChildSeconds);
            return;
        }
        m_isForked.set();
    }
    int status() {
        if (!m_isForked.wait()) return -1;
        return test::statusOf(m_child);
    }

private:
    std::atomic<pid_t> m_child{-1};
    test::Event m_isForked;
};

TEST(ForkedFromClientCodeTest, AHandlerOfATimerEndsTheChild) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    ForkHere forkHere;
    Timer timer(
        "forks", kSoon, [&](Timer*, void*) { forkHere(); }, nullptr, ONCE);
    ASSERT_EQ(timer.start(), 0);

    EXPECT_EQ(forkHere.status(), 0);
}

// The run that has forked is the parent's: nobody waits for it, nor does it come back to the timer.
TEST(ForkedFromClientCodeTest, AHandlerMayDestroyItsTimerInTheChild) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    ForkHere forkHere;
    std::unique_ptr<Timer> timer;
    const pid_t parent = getpid();
    timer = std::make_unique<Timer>(
        "forks", kSoon,
        [&](Timer*, void*) {
            forkHere();
            if (getpid() != parent) timer.reset();
        },
        nullptr, ONCE);
    ASSERT_EQ(timer->start(), 0);

    EXPECT_EQ(forkHere.status(), 0);
}

TEST(ForkedFromClientCodeTest, ATaskEndsTheChildAndNoOtherRunsThere) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    ForkHere forkHere;
    const pid_t parent = getpid();
    TimerThread thread;
    thread.postTask(std::make_shared<CallableTimerTask>([&] { forkHere(); }), 0);
    thread.postTask(std::make_shared<CallableTimerTask>([=] {
                        if (getpid() != parent) _exit(1);
                    }),
                    0);

    EXPECT_EQ(forkHere.status(), 0);
}

TEST(ForkedFromClientCodeTest, AHandlerOfEventsEndsTheChildAndNoOtherEventIsHandledThere) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    ForkHere forkHere;
    test::Event areQueued;
    const pid_t parent = getpid();
    EventHub hub(7);
    ASSERT_EQ(hub.registerHandler(1,
                                  [&](const std::shared_ptr<BrowserEvent>&) {
                                      (void)areQueued.wait();
                                      forkHere();
                                  }),
              0);
    ASSERT_EQ(hub.registerHandler(2,
                                  [=](const std::shared_ptr<BrowserEvent>&) {
                                      if (getpid() != parent) _exit(1);
                                  }),
              0);
    ASSERT_EQ(hub.receiveEvent(hub.createEvent(1)), 0);
    ASSERT_EQ(hub.receiveEvent(hub.createEvent(2)), 0);
    areQueued.set();

    EXPECT_EQ(forkHere.status(), 0);
}

TEST(ForkedFromClientCodeTest, AWatchdogsCallbackEndsTheChild) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    // Never destroyed: the child, which exits, would wait for the parent's threads in it.
    static auto& s_forkHere = *new ForkHere;
    static std::atomic<bool> s_isFirst{true};
    WatchDog dog;
    dog.setTimeoutCallback(
        [](void*, WatchDog::WATCH_ID, double) {
            if (s_isFirst.exchange(false)) s_forkHere();
        },
        nullptr);
    dog.beginWatch(WatchDog::eWatchID_app_show, 0.0);

    EXPECT_EQ(s_forkHere.status(), 0);
}

TEST(ForkedFromClientCodeTest, ANamedWatchsCallbackEndsTheChild) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    ForkHere forkHere;
    std::atomic<bool> isFirst{true};
    WatchDog dog;
    const timer::NamedWatch watch(dog, "forks", 0.0, [&](const std::string&, double) {
        if (isFirst.exchange(false)) forkHere();
    });

    EXPECT_EQ(forkHere.status(), 0);
}

TEST(ForkedFromClientCodeTest, AnExecutedJobGoesOnInTheChild) {
    class Job : public Threading::Runnable {
    public:
        Job() : Runnable(-1) {}
        void execute() override {
            if (m_rounds++ == 0) {
                m_child = fork();
                if (m_child == 0) (void)alarm(test::kLongestChildSeconds);
            }
            if (m_rounds == 3) stop();
        }
        int m_rounds = 0;
        pid_t m_child = -1;
    };
    Job job;

    ASSERT_EQ(job.run(), 0);
    if (job.m_child == 0) _exit(job.m_rounds == 3 ? 0 : 1);

    EXPECT_EQ(test::statusOf(job.m_child), 0);
}

// ---- timer threads ----

class ForkedTimerThreadTest : public testing::Test {
protected:
    ForkedTimerThreadTest() : m_thread(std::make_unique<TimerThread>()) {
        m_thread->postTask(std::make_shared<CallableTimerTask>([this] {
                               m_isBusy.set();
                               (void)m_end.wait();
                           }),
                           0);
        m_thread->postTask(std::make_shared<CallableTimerTask>([this] { ++m_parentsFired; }), 0);
        m_thread->postTask(std::make_shared<CallableTimerTask>([] {}), kLateMs);
    }
    ~ForkedTimerThreadTest() override { m_end.set(); }

    void SetUp() override { ASSERT_TRUE(m_isBusy.wait()); }

    test::Event m_isBusy;
    test::Event m_end;
    std::atomic<int> m_parentsFired{0};
    std::unique_ptr<TimerThread> m_thread;
};

TEST_F(ForkedTimerThreadTest, HasNeitherTasksNorAWorkerInTheChild) {
    EXPECT_EQ(runInForkedChild([this] {
                  CHECK_IN_CHILD(m_thread->threadId() == -1);
                  CHECK_IN_CHILD(!m_thread->isBusy());
                  CHECK_IN_CHILD(m_thread->taskCount() == 0);
                  CHECK_IN_CHILD(!m_thread->hasTask());
                  CHECK_IN_CHILD(m_thread->popFirstTask() == nullptr);
                  m_thread->cancelTaskByTaskId(0);
                  m_thread->stop();
                  m_thread.reset();
              }),
              0);
    EXPECT_TRUE(m_thread->isBusy());
    EXPECT_EQ(m_thread->taskCount(), 2);
}

TEST_F(ForkedTimerThreadTest, HasNoFirstTaskInTheChildWhateverIsAskedFirst) {
    EXPECT_EQ(runInForkedChild([this] {
                  CHECK_IN_CHILD(m_thread->popFirstTask() == nullptr);
                  m_thread.reset();
              }),
              0);
    EXPECT_EQ(m_thread->taskCount(), 2);
}

TEST_F(ForkedTimerThreadTest, RunsTheChildsTasksThere) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    EXPECT_EQ(runInForkedChild([this] {
                  test::Event fired;
                  m_thread->postTask(std::make_shared<CallableTimerTask>([&] { fired.set(); }), 1);
                  CHECK_IN_CHILD(fired.wait());
                  m_thread->stop();
                  CHECK_IN_CHILD(m_parentsFired == 0);
                  m_thread->postTask(std::make_shared<CallableTimerTask>([] {}), kLateMs);
                  m_thread.reset();
              }),
              0);
}

TEST_F(ForkedTimerThreadTest, AChildsChildHasItsOwnAsWell) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    EXPECT_EQ(runInForkedChild([this] {
                  m_thread->postTask(std::make_shared<CallableTimerTask>([] {}), kLateMs);
                  CHECK_IN_CHILD(runInForkedChild([this] {
                                     CHECK_IN_CHILD(m_thread->taskCount() == 0);
                                     test::Event fired;
                                     m_thread->postTask(
                                         std::make_shared<CallableTimerTask>([&] { fired.set(); }),
                                         0);
                                     CHECK_IN_CHILD(fired.wait());
                                 }) == 0);
                  CHECK_IN_CHILD(m_thread->taskCount() == 1);
              }),
              0);
}

// Who stops the parent's worker has nothing to do with the child's.
TEST(ForkedTimerThreadStopTest, WhoForksDuringAStopStopsTheChildsWorkerToo) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    TimerThread thread;
    test::Event fired;
    thread.postTask(std::make_shared<CallableTimerTask>([&] { fired.set(); }), 0);
    ASSERT_TRUE(fired.wait());
    const auto forkHere = [&] {
        EXPECT_EQ(runInForkedChild([&] {
                      test::Event isInHand;
                      std::atomic<bool> isDone{false};
                      const auto task = [&] {
                          isInHand.set();
                          std::this_thread::sleep_for(std::chrono::milliseconds(50));
                          isDone = true;
                      };
                      thread.postTask(std::make_shared<CallableTimerTask>(task), 0);
                      CHECK_IN_CHILD(isInHand.wait());
                      thread.stop();
                      CHECK_IN_CHILD(isDone);
                  }),
                  0);
    };
    const test::RunAtCall atJoin(test::Call::PthreadJoin, forkHere);

    thread.stop();

    EXPECT_EQ(atJoin.hits(), 1);
}

// Another thread's post is about to start the worker.
TEST(ForkedTimerThreadStartTest, AStartThatIsClaimedInTheParentIsNotInTheChild) {
    test::setLogLevel(0);
    TimerThread thread;
    test::Event isClaimed;
    test::Event isForked;
    std::thread starting([&] {
        const test::RunAtCall atLine(test::Call::ZorDebugCheckLevel, [&] {
            isClaimed.set();
            (void)isForked.wait();
        });
        thread.postTask(std::make_shared<CallableTimerTask>([] {}), kLateMs);
    });
    ASSERT_TRUE(isClaimed.wait());

    EXPECT_EQ(runInForkedChild([&] {
                  const test::LogCapture log(kLogAlways);
                  const test::FailCall noThread(test::Call::PthreadCreate, EAGAIN);
                  bool isRefused = false;
                  try {
                      thread.postTask(std::make_shared<CallableTimerTask>([] {}), kLateMs);
                  } catch (const std::runtime_error&) {
                      isRefused = true;
                  }
                  CHECK_IN_CHILD(isRefused);
                  const std::vector<std::string> lines = log.texts();
                  CHECK_IN_CHILD(lines.size() == 1);
                  CHECK_IN_CHILD(lines[0].find("Need start TimerThread.") != std::string::npos);
              }),
              0);
    isForked.set();
    starting.join();
    test::setLogLevel(kLogError);
}

TEST(ForkedPoolTest, StartsAnewInTheChild) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    test::Event runs;
    test::Event end;
    const auto block = std::make_shared<CallableTimerTask>([&] {
        runs.set();
        (void)end.wait();
    });
    TimerThreadPool::postMainThreadTask(block);
    ASSERT_TRUE(runs.wait());
    TimerThreadPool::postWorkerTask(block);

    EXPECT_EQ(runInForkedChild([&] {
                  CHECK_IN_CHILD(!TimerThreadPool::isMainThread());
                  test::Countdown fired(4);
                  std::atomic<int> onMain{0};
                  const auto post = [&](auto postTo) {
                      auto task = std::make_shared<CallableTimerTask>([&] {
                          if (TimerThreadPool::isMainThread()) ++onMain;
                          fired.arrive();
                      });
                      task->setNextFireTime(0.001);
                      postTo(task);
                  };
                  post(TimerThreadPool::postMainThreadTask);
                  post(TimerThreadPool::postForegroundTask);
                  post(TimerThreadPool::postBackgroundTask);
                  post(TimerThreadPool::postWorkerTask);
                  CHECK_IN_CHILD(fired.wait());
                  CHECK_IN_CHILD(onMain == 1);
              }),
              0);
    end.set();
    // Its tasks use what is here.
    while (block.use_count() > 1) std::this_thread::yield();
}

// ---- hubs ----

constexpr std::int32_t kModule = 7;
constexpr std::int32_t kAsk = 1;
constexpr std::int32_t kBlock = 2;
constexpr std::int32_t kCount = 3;

class ForkedHubTest : public testing::Test {
protected:
    void SetUp() override {
        (void)m_hub->registerHandler(
            kAsk, [](const std::shared_ptr<BrowserEvent>& event) { event->replyResult(42); });
        (void)m_hub->registerHandler(kBlock, [this](const std::shared_ptr<BrowserEvent>&) {
            m_isBusy.set();
            (void)m_end.wait();
        });
        (void)m_hub->registerHandler(kCount,
                                     [this](const std::shared_ptr<BrowserEvent>&) { ++m_counted; });
        ASSERT_EQ(event_dispatcher::evtdispch_register_hub(m_hub.get()), 0);
        ASSERT_EQ(send(kBlock), 0);
        ASSERT_EQ(send(kCount), 0);
        ASSERT_TRUE(m_isBusy.wait());
    }
    void TearDown() override {
        m_end.set();
        (void)event_dispatcher::evtdispch_unregister_hub(m_hub.get());
    }

    std::int32_t send(std::int32_t type) {
        return m_hub->sendEvent(m_hub->createEvent(type), kModule);
    }
    std::int32_t ask() { return m_hub->sendEventSync(m_hub->createEvent(kAsk), kModule, -1); }

    /// Its thread, which is busy, is to look at it next.
    void sendAsyncToItself() {
        const auto count = [this](event_dispatcher::EventResult,
                                  const std::shared_ptr<BrowserEvent>&) { ++m_called; };
        ASSERT_EQ(m_hub->sendAsync(m_hub->createEvent(kCount), kModule, -1, count), 0);
    }

    test::Event m_isBusy;
    test::Event m_end;
    std::atomic<int> m_counted{0};
    std::atomic<int> m_called{0};
    std::unique_ptr<EventHub> m_hub = std::make_unique<EventHub>(kModule);
};

TEST_F(ForkedHubTest, IsNotRegisteredInTheChild) {
    EXPECT_EQ(runInForkedChild([this] {
                  CHECK_IN_CHILD(send(kCount) == -1);
                  CHECK_IN_CHILD(ask() == -1);
                  CHECK_IN_CHILD(event_dispatcher::evtdispch_unregister_hub(m_hub.get()) == 0);
                  m_hub.reset();
              }),
              0);
    EXPECT_EQ(send(kCount), 0);
}

TEST_F(ForkedHubTest, RegisteredInTheChildItHandlesTheChildsEvents) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    EXPECT_EQ(runInForkedChild([this] {
                  CHECK_IN_CHILD(event_dispatcher::evtdispch_register_hub(m_hub.get()) == 0);
                  CHECK_IN_CHILD(ask() == 42);
                  CHECK_IN_CHILD(m_counted == 0);
                  CHECK_IN_CHILD(event_dispatcher::evtdispch_unregister_hub(m_hub.get()) == 0);
                  m_hub.reset();
              }),
              0);
}

TEST_F(ForkedHubTest, TakesHandlersAndDirectEventsInTheChild) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    EXPECT_EQ(runInForkedChild([this] {
                  test::Event handled;
                  CHECK_IN_CHILD(m_hub->receiveEvent(m_hub->createEvent(kCount)) == 0);
                  CHECK_IN_CHILD(
                      m_hub->registerHandler(
                          9, [&](const std::shared_ptr<BrowserEvent>&) { handled.set(); }) == 0);
                  CHECK_IN_CHILD(m_hub->receiveEvent(m_hub->createEvent(9)) == 0);
                  CHECK_IN_CHILD(handled.wait());
                  CHECK_IN_CHILD(m_counted == 1);
                  m_hub->onHubUnregistered();
              }),
              0);
}

TEST_F(ForkedHubTest, DestroyedInTheChildItDoesNotCallBackForTheParent) {
    sendAsyncToItself();

    EXPECT_EQ(runInForkedChild([this] {
                  m_hub.reset();
                  CHECK_IN_CHILD(m_called == 0);
              }),
              0);
}

TEST_F(ForkedHubTest, CallsBackInTheChildForWhatIsSentThere) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    sendAsyncToItself();

    EXPECT_EQ(runInForkedChild([this] {
                  EventHub receiver(kModule + 1);
                  CHECK_IN_CHILD(receiver.registerHandler(
                                     kAsk, [](const std::shared_ptr<BrowserEvent>& event) {
                                         event->replyResult(42);
                                     }) == 0);
                  CHECK_IN_CHILD(event_dispatcher::evtdispch_register_hub(&receiver) == 0);
                  test::Event called;
                  event_dispatcher::EventResult result = 0;
                  CHECK_IN_CHILD(m_hub->sendAsync(m_hub->createEvent(kAsk), kModule + 1, -1,
                                                  [&](event_dispatcher::EventResult reply,
                                                      const std::shared_ptr<BrowserEvent>&) {
                                                      result = reply;
                                                      called.set();
                                                  }) == 0);
                  CHECK_IN_CHILD(called.wait());
                  CHECK_IN_CHILD(result == 42);
                  m_hub->onHubUnregistered();
                  CHECK_IN_CHILD(m_called == 0);
                  CHECK_IN_CHILD(event_dispatcher::evtdispch_unregister_hub(&receiver) == 0);
              }),
              0);
}

// Nor does anything that the parent's thread was about to do.
TEST_F(ForkedHubTest, TheChildsThreadNeedsNoMemoryToHandleEvents) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    sendAsyncToItself();

    EXPECT_EQ(runInForkedChild([this] {
                  std::unique_ptr<test::FailCall> noMemory;
                  const test::RunAtCall atStart(test::Call::PthreadCreate, [&] {
                      noMemory = std::make_unique<test::FailCall>(
                          test::Call::New, 0, test::When().anyThread().everyTime());
                  });
                  CHECK_IN_CHILD(m_hub->queueLength() == 0);
                  CHECK_IN_CHILD(atStart.hits() == 1);
                  const test::PassCalls pass;
                  CHECK_IN_CHILD(event_dispatcher::evtdispch_register_hub(m_hub.get()) == 0);
                  CHECK_IN_CHILD(ask() == 42);
              }),
              0);
}

TEST_F(ForkedHubTest, UnregisteredFirstOfAllInTheChildItWaitsForNobody) {
    EXPECT_EQ(runInForkedChild([this] {
                  const test::CountCalls joined(test::Call::PthreadJoin);
                  m_hub->onHubUnregistered();
                  CHECK_IN_CHILD(joined.seen() == 0);
              }),
              0);
}

// The events are the child's as well; who waits for their replies is not.
TEST_F(ForkedHubTest, AReplyInTheChildIsNoneForTheParentsSend) {
    constexpr std::size_t kSends = 2;
    std::vector<std::shared_ptr<BrowserEvent>> kept;
    test::Countdown areKept(kSends);
    EventHub receiver(kModule + 1);
    ASSERT_EQ(receiver.registerHandler(kAsk,
                                       [&](const std::shared_ptr<BrowserEvent>& event) {
                                           kept.push_back(event);
                                           areKept.arrive();
                                       }),
              0);
    ASSERT_EQ(event_dispatcher::evtdispch_register_hub(&receiver), 0);
    std::atomic<event_dispatcher::EventResult> sum{0};
    test::Countdown areCalled(kSends);
    for (std::size_t i = 0; i < kSends; ++i) {
        ASSERT_EQ(m_hub->sendAsync(m_hub->createEvent(kAsk), kModule + 1, -1,
                                   [&](event_dispatcher::EventResult reply,
                                       const std::shared_ptr<BrowserEvent>&) {
                                       sum += reply;
                                       areCalled.arrive();
                                   }),
                  0);
    }
    ASSERT_TRUE(areKept.wait());
    // A thread that replies is just in the hub's list of sends: behind the event's lock, twice.
    test::Event isReplying;
    test::Event isForked;
    std::thread replying([&] {
        const test::RunAtCall holdTheLocks(
            test::Call::PthreadMutexUnlock,
            [&] {
                isReplying.set();
                (void)isForked.wait();
            },
            test::When().nth(3));
        kept[0]->replyResult(40);
    });
    ASSERT_TRUE(isReplying.wait());

    EXPECT_EQ(runInForkedChild([&] {
                  kept[1]->replyResult(1);
                  m_hub.reset();
                  kept.clear();
                  CHECK_IN_CHILD(sum == 0);
              }),
              0);
    isForked.set();
    replying.join();
    kept[1]->replyResult(2);
    m_end.set();
    EXPECT_TRUE(areCalled.wait());
    EXPECT_EQ(sum, 42);
    EXPECT_EQ(event_dispatcher::evtdispch_unregister_hub(&receiver), 0);
}

TEST(ForkedIdleHubTest, WithoutHandlersItHasNoThreadInTheChild) {
    EventHub hub(kModule);

    EXPECT_EQ(runInForkedChild([&] {
                  const test::CountCalls threads(test::Call::PthreadCreate);
                  CHECK_IN_CHILD(event_dispatcher::evtdispch_register_hub(&hub) == 0);
                  CHECK_IN_CHILD(hub.queueLength() == 0);
                  CHECK_IN_CHILD(threads.seen() == 0);
              }),
              0);
}

TEST_F(ForkedHubTest, UnregisteredInTheParentAtThatMomentItStillStartsAnewInTheChild) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    test::Event joining;
    const test::RunAtCall atJoin(
        test::Call::PthreadJoin, [&] { joining.set(); }, test::When().anyThread());
    std::thread unregistering(
        [this] { (void)event_dispatcher::evtdispch_unregister_hub(m_hub.get()); });
    EXPECT_TRUE(joining.wait());

    EXPECT_EQ(runInForkedChild([this] {
                  test::Event left;
                  test::Event handled;
                  const auto leave = [&](const std::shared_ptr<BrowserEvent>&) {
                      m_hub->onHubUnregistered();
                      left.set();
                  };
                  CHECK_IN_CHILD(m_hub->registerHandler(8, leave) == 0);
                  CHECK_IN_CHILD(m_hub->receiveEvent(m_hub->createEvent(8)) == 0);
                  CHECK_IN_CHILD(left.wait());
                  CHECK_IN_CHILD(
                      m_hub->registerHandler(
                          9, [&](const std::shared_ptr<BrowserEvent>&) { handled.set(); }) == 0);
                  CHECK_IN_CHILD(m_hub->receiveEvent(m_hub->createEvent(9)) == 0);
                  CHECK_IN_CHILD(handled.wait());
              }),
              0);
    m_end.set();
    unregistering.join();
}

// Although the parent's thread waits.
TEST(ForkedWaitingHubTest, NobodyIsWokenInTheChildWhereThereIsNoThread) {
    test::setLogLevel(0);
    test::Event waits;
    const test::RunAtCall atWait(
        test::Call::SemWait, [&] { waits.set(); }, test::When().anyThread());
    EventHub hub(kModule);
    ASSERT_EQ(hub.registerHandler(kCount, [](const std::shared_ptr<BrowserEvent>&) {}), 0);
    ASSERT_TRUE(waits.wait());

    EXPECT_EQ(runInForkedChild([&] {
                  const test::FailCall noThread(test::Call::PthreadCreate, EAGAIN,
                                                test::When().everyTime());
                  const test::CountCalls wakeUps(test::Call::SemPost);
                  CHECK_IN_CHILD(hub.receiveEvent(hub.createEvent(kCount)) == 0);
                  CHECK_IN_CHILD(noThread.hits() == 1);
                  CHECK_IN_CHILD(wakeUps.seen() == 0);
              }),
              0);
}

TEST(ForkedDispatcherTest, OneThatIsGoneIsNotLookedForInTheChild) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        { const event_dispatcher::EventDispatcher gone; }

        EXPECT_EQ(runInForkedChild([] {}), 0);
    });
}

TEST_F(ForkedHubTest, DestroyedInTheChildItWaitsForNobody) {
    EXPECT_EQ(runInForkedChild([this] { m_hub.reset(); }), 0);
}

// ---- watchdogs ----

struct Reports {
    std::atomic<int> shows{0};
    std::atomic<int> others{0};

    static void add(void* p_self, WatchDog::WATCH_ID id, double) {
        auto& self = *static_cast<Reports*>(p_self);
        ++(id == WatchDog::eWatchID_app_show ? self.shows : self.others);
    }
};

TEST(ForkedWatchDogTest, WatchesTheChildsOperationsThere) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    Reports reports;
    auto dog = std::make_unique<WatchDog>();
    dog->setTimeoutCallback(Reports::add, &reports);
    dog->beginWatch(WatchDog::eWatchID_app_hide, 0.3);

    EXPECT_EQ(runInForkedChild([&] {
                  reports.others = 0;
                  dog->beginWatch(WatchDog::eWatchID_app_show, 0.3);
                  while (reports.shows < 2) (void)usleep(1000);
                  CHECK_IN_CHILD(reports.others == 0);
                  dog->stopWatch(WatchDog::eWatchID_app_show);
                  dog.reset();
              }),
              0);
}

TEST(ForkedWatchDogTest, TheProcesssOwnStartsAnew) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    Reports reports;
    timer::GlobalWatchDog()->setTimeoutCallback(Reports::add, &reports);

    EXPECT_EQ(runInForkedChild([&] {
                  timer::GlobalWatchDog()->beginWatch(WatchDog::eWatchID_app_show, 0.0);
                  while (reports.shows < 2) (void)usleep(1000);
              }),
              0);
    EXPECT_EQ(reports.shows, 0);
}

TEST(ForkedWatchDogTest, DestroyedInTheChildItWaitsForNobody) {
    auto dog = std::make_unique<WatchDog>();

    EXPECT_EQ(runInForkedChild([&] {
                  const test::CountCalls joined(test::Call::PthreadJoin);
                  dog.reset();
                  CHECK_IN_CHILD(joined.seen() == 0);
              }),
              0);
}

TEST(ForkedWatchDogTest, StoppedItStaysStopped) {
    Reports reports;
    WatchDog dog;
    dog.setTimeoutCallback(Reports::add, &reports);

    EXPECT_EQ(runInForkedChild([&] {
                  dog.stop();
                  dog.beginWatch(WatchDog::eWatchID_app_show, 0.0);
                  CHECK_IN_CHILD(dog.checkTimers().empty());
                  CHECK_IN_CHILD(reports.shows == 1);
              }),
              0);
}

TEST(ForkedWatchDogTest, StoppedItNeitherStartsNorJoinsAThread) {
    auto dog = std::make_unique<WatchDog>();

    EXPECT_EQ(runInForkedChild([&] {
                  const test::CountCalls created(test::Call::PthreadCreate);
                  const test::CountCalls joined(test::Call::PthreadJoin);
                  dog->stop();
                  dog->stopWatch(WatchDog::eWatchID_app_show);
                  dog.reset();
                  CHECK_IN_CHILD(created.seen() == 0);
                  CHECK_IN_CHILD(joined.seen() == 0);
              }),
              0);
}

// In each child another one of its methods is the first that is called.
TEST(ForkedWatchDogTest, TakesEveryCallInTheChildThoughItsLockWasHeld) {
    WatchDog dog;
    dog.stop();  // It has no thread in the children.
    test::Event isHeld;
    test::Event areForked;
    std::thread thread([&] {
        dog.beginWatch(WatchDog::eWatchID_app_show, 0.0);  // The log has read its settings then.
        const test::RunAtCall holdTheLock(test::Call::PthreadMutexUnlock, [&] {
            isHeld.set();
            (void)areForked.wait();
        });
        dog.beginWatch(WatchDog::eWatchID_app_show, 0.0);
    });
    ASSERT_TRUE(isHeld.wait());

    EXPECT_EQ(runInForkedChild([&] { dog.setTimeoutCallback(nullptr, nullptr); }), 0);
    EXPECT_EQ(runInForkedChild([&] { dog.beginWatch(WatchDog::eWatchID_app_show, 1.0); }), 0);
    EXPECT_EQ(runInForkedChild([&] { dog.stopWatch(WatchDog::eWatchID_app_show); }), 0);
    EXPECT_EQ(runInForkedChild([&] { CHECK_IN_CHILD(dog.checkTimers().empty()); }), 0);

    areForked.set();
    thread.join();
}

// A thread that cannot be had is reported as where there was none yet, and the next use tries
// again.
TEST(ForkedWatchDogTest, WithoutAThreadItSaysSoAndTriesAgain) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    Reports reports;
    WatchDog dog;
    dog.setTimeoutCallback(Reports::add, &reports);

    EXPECT_EQ(runInForkedChild([&] {
                  std::string what;
                  try {
                      const test::FailCall fail(test::Call::PthreadCreate, EAGAIN);
                      dog.beginWatch(WatchDog::eWatchID_app_show, 0.0);
                  } catch (const std::runtime_error& error) {
                      what = error.what();
                  }
                  CHECK_IN_CHILD(what == "Thread initialization failed");
                  dog.beginWatch(WatchDog::eWatchID_app_show, 0.0);
                  while (reports.shows == 0) (void)usleep(1000);
              }),
              0);
}

// ---- the rest ----

TEST(ForkedRunnableTest, IsGivenAThreadOfTheChilds) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    class Job : public Threading::Runnable {
    public:
        Job() : Runnable(1) {}
        void execute() override { ++rounds; }
        std::atomic<int> rounds{0};
    };
    Job job;
    std::thread thread([&] { (void)job.run(); });
    while (job.rounds == 0) std::this_thread::yield();
    job.pause();

    EXPECT_EQ(runInForkedChild([&] {
                  CHECK_IN_CHILD(!job.running());
                  const int before = job.rounds;
                  std::thread own([&] { (void)job.run(); });
                  job.resume();
                  while (job.rounds == before) std::this_thread::yield();
                  job.stop();
                  own.join();
              }),
              0);
    job.stop();
    thread.join();
}

// To destroy a condition variable that somebody waits for is to wait for him.
TEST(ForkedRunnableTest, DestroyedInTheChildItWaitsForNobody) {
    class Job : public Threading::Runnable {
    public:
        Job() : Runnable(-1) {}
        void execute() override { rounds.fetch_add(1); }
        std::atomic<int> rounds{0};
    };
    auto job = std::make_unique<Job>();
    test::Event waits;
    std::thread thread([&] {
        const test::RunAtCall atWait(test::Call::PthreadCondWait, [&] { waits.set(); });
        (void)job->run();
    });
    job->pause();
    ASSERT_TRUE(waits.wait());
    for (int i = 0; i < 10 && !HasFailure();
         ++i) {  // Most of the times after it has gone to sleep.
        (void)usleep(100);
        EXPECT_EQ(runInForkedChild([&] { job.reset(); }), 0);
    }
    job->resume();
    job->stop();
    thread.join();
}

// In each child another one of its methods is the first that is called.
TEST(ForkedRunnableTest, TakesEveryCallInTheChildThoughItsLockWasHeld) {
    class Job : public Threading::Runnable {
    public:
        Job() : Runnable(-1) {}
        void execute() override { stop(); }
    };
    Job job;
    test::Event isHeld;
    test::Event isForked;
    std::thread thread([&] {
        const test::RunAtCall holdTheLock(test::Call::PthreadMutexUnlock, [&] {
            isHeld.set();
            (void)isForked.wait();
        });
        (void)job.running();
    });
    ASSERT_TRUE(isHeld.wait());

    EXPECT_EQ(runInForkedChild([&] { CHECK_IN_CHILD(job.running()); }), 0);
    EXPECT_EQ(runInForkedChild([&] {
                  job.pause();
                  CHECK_IN_CHILD(!job.running());
              }),
              0);
    EXPECT_EQ(runInForkedChild([&] {
                  job.resume();
                  CHECK_IN_CHILD(job.running());
              }),
              0);
    EXPECT_EQ(runInForkedChild([&] {
                  job.stop();
                  CHECK_IN_CHILD(!job.running());
              }),
              0);
    EXPECT_EQ(runInForkedChild([&] { CHECK_IN_CHILD(job.run() == 0); }), 0);

    isForked.set();
    thread.join();
}

TEST(ForkedPropertiesTest, StayAsTheyAre) {
    (void)base::set_process_property("kept", "value");

    EXPECT_EQ(runInForkedChild([] {
                  CHECK_IN_CHILD(base::get_process_property("kept") == "value");
                  CHECK_IN_CHILD(base::set_process_property("kept", "other") == "value");
              }),
              0);
    EXPECT_EQ(base::get_process_property("kept"), "value");
}

// A fork waits for whoever is just changing one, so that the child gets it changed.
TEST(ForkedPropertiesTest, OneThatIsJustBeingSetIsSetInTheChild) {
    static int s_number = 0;
    const std::string name = "new" + std::to_string(++s_number);
    const void* p_lock = nullptr;
    {
        const test::ReplaceCall<int(pthread_mutex_t*)> atLock(
            test::Call::PthreadMutexLock, [&](pthread_mutex_t* p_mutex) {
                p_lock = p_mutex;
                return pthread_mutex_lock(p_mutex);
            });
        (void)base::set_process_property("earlier", "value");
    }
    test::Event isChanging;
    test::Event isForking;
    test::Event isForked;
    std::thread setter([&] {
        const test::RunAtCall holdTheLock(test::Call::New, [&] {
            isChanging.set();
            (void)isForking.wait();
        });
        (void)base::set_process_property(name.c_str(), "value");  // Allocates only its entry.
        (void)isForked.wait();
    });
    ASSERT_TRUE(isChanging.wait());
    {
        const test::RunAtCall atLock(
            test::Call::PthreadMutexLock, [&] { isForking.set(); }, test::When().on(p_lock));
        EXPECT_EQ(runInForkedChild([&] {
                      CHECK_IN_CHILD(base::get_process_property(name.c_str()) == "value");
                      CHECK_IN_CHILD(base::get_process_property("earlier") == "value");
                  }),
                  0);
    }
    isForking.set();
    isForked.set();
    setter.join();
}

TEST(ForkedSingletonTest, OneThatIsJustBeingCreatedIsCreatedAnew) {
    static test::Event s_isCreating;
    static test::Event s_go;
    static const pid_t s_parent = getpid();
    struct Service {
        Service() {
            if (getpid() != s_parent) return;
            s_isCreating.set();
            (void)s_go.wait();
        }
        static Service* get() {
            return Singleton<Service, DefaultSingletonTraits<Service>, Service>::GetInstance();
        }
    };
    Service* p_created = nullptr;
    std::thread creator([&] { p_created = Service::get(); });
    ASSERT_TRUE(s_isCreating.wait());
    std::thread waiter([] { (void)Service::get(); });

    EXPECT_EQ(runInForkedChild([] {
                  Service* const p_own = Service::get();
                  CHECK_IN_CHILD(p_own != nullptr && p_own == Service::get());
              }),
              0);
    s_go.set();
    creator.join();
    waiter.join();
    EXPECT_EQ(Service::get(), p_created);
}

TEST(ForkedSingletonTest, OneWhoseConstructorForksIsFinishedInBoth) {
    static pid_t s_child;
    struct Service {
        Service() { s_child = fork(); }
        static Service* get() {
            return Singleton<Service, DefaultSingletonTraits<Service>, Service>::GetInstance();
        }
    };
    Service* const p_created = Service::get();
    if (s_child == 0) {
        (void)alarm(test::kLongestChildSeconds);
        _exit(p_created == Service::get() ? 0 : 1);
    }

    EXPECT_EQ(test::statusOf(s_child), 0);
}

/// Stands in the creation of the instances of @p words, on a thread of its own.
class Creations {
public:
    explicit Creations(std::vector<std::intptr_t>* p_words)
        : m_thread([this, p_words] {
              std::list<internal::CreationScope> scopes;
              for (std::intptr_t& word : *p_words) scopes.emplace_back(&word);
              m_isWithin.set();
              (void)m_end.wait();
          }) {
        (void)m_isWithin.wait();
    }
    ~Creations() {
        m_end.set();
        m_thread.join();
    }

    Creations(const Creations&) = delete;
    Creations& operator=(const Creations&) = delete;

private:
    test::Event m_isWithin;
    test::Event m_end;
    std::thread m_thread;
};

constexpr std::size_t kMostCreations = 16;  // That a child learns of.

TEST(ForkedSingletonTest, AsManyAsCanBeCreatedAtOnceAreCreatedAnew) {
    std::intptr_t earlier = internal::kNoInstance;
    for (int i = 0; i < 100; ++i) const internal::CreationScope isOver(&earlier);
    const std::vector<std::intptr_t> before(kMostCreations + 1, internal::kInstanceBeingCreated);
    std::vector<std::intptr_t> words = before;
    const Creations creations(&words);

    EXPECT_EQ(runInForkedChild([&] {
                  for (std::size_t i = 0; i < kMostCreations; ++i) {
                      CHECK_IN_CHILD(words[i] == internal::kNoInstance);
                  }
                  CHECK_IN_CHILD(words[kMostCreations] == internal::kInstanceBeingCreated);
              }),
              0);
    EXPECT_EQ(words, before);
}

TEST(ForkedSingletonTest, AsManyCanBeCreatedAtOnceInTheChild) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    std::vector<std::intptr_t> parents(kMostCreations, internal::kInstanceBeingCreated);
    const Creations creations(&parents);

    EXPECT_EQ(runInForkedChild([&] {
                  std::vector<std::intptr_t> own(kMostCreations, internal::kInstanceBeingCreated);
                  const Creations ownCreations(&own);
                  CHECK_IN_CHILD(runInForkedChild([&] {
                                     for (const std::intptr_t word : own) {
                                         CHECK_IN_CHILD(word == internal::kNoInstance);
                                     }
                                 }) == 0);
              }),
              0);
}

// A creation's thread leaves the scope a little after it has stored the instance.
TEST(ForkedSingletonTest, OneThatIsFinishedOrCreatedByTheForkingThreadStaysAsItIs) {
    const auto finished = reinterpret_cast<std::intptr_t>(&kMostCreations);
    std::vector<std::intptr_t> others = {finished, internal::kInstanceBeingCreated};
    const Creations creations(&others);
    std::intptr_t own = internal::kInstanceBeingCreated;
    const internal::CreationScope ownCreation(&own);

    EXPECT_EQ(runInForkedChild([&] {
                  CHECK_IN_CHILD(others[0] == finished);
                  CHECK_IN_CHILD(others[1] == internal::kNoInstance);
                  CHECK_IN_CHILD(own == internal::kInstanceBeingCreated);
              }),
              0);
}

}  // namespace
