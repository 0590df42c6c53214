// What the library's own families record of themselves, as tevalon-trace tells it.

#include <gtest/gtest.h>

#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "base/diagnostics.h"
#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/threading/current_thread.h"
#include "base/timer.h"
#include "recordings.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/log_capture.h"
#include "zor_debug/zor_debug_control.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;
using diagnostics::startRecording;
using diagnostics::Status;
using diagnostics::stopRecording;
using Lines = std::vector<std::string>;
using SharedEvent = std::shared_ptr<BrowserEvent>;

constexpr std::int32_t kSender = 101;
constexpr std::int32_t kReceiver = 107;
constexpr std::int32_t kType = 5;

/// Addresses become A, B and so on in the order in which they appear; times and waits their unit.
class Anonymous {
public:
    std::string operator()(std::string line) {
        std::smatch match;
        while (std::regex_search(line, match, std::regex("0x[0-9a-f]+"))) {
            const std::string address = match[0];
            const auto known = m_letters.emplace(
                address, static_cast<char>('A' + static_cast<int>(m_letters.size())));
            line.replace(static_cast<std::size_t>(match.position()), address.size(),
                         std::string(1, known.first->second));
        }
        return std::regex_replace(line, std::regex("-?[0-9]+\\.[0-9]+ ms"), "N ms");
    }

private:
    std::map<std::string, char> m_letters;
};

class RecordedFamiliesTest : public test::RecorderTest {
protected:
    RecordedFamiliesTest() {
        (void)diagnostics::nameModule(kReceiver, "tuner");
        EXPECT_EQ(startRecording(), Status::Ok);
    }

    /// What the threads of this name recorded, in their order; without long waits, of which there
    /// may be any number on a busy machine.
    Lines linesOf(const std::string& threadName) {
        const test::trace::Recording recording = test::readBytes(test::writtenBytes());
        Anonymous anonymous;
        Lines lines;
        for (const test::trace::Record& record : recording.records) {
            if (record.kind == test::record::Kind::Memory) continue;
            if (record.kind == test::record::Kind::Waited) continue;
            if (recording.threads.at(record.thread).name != threadName) continue;
            lines.push_back(anonymous(test::trace::sentenceOf(recording, record)));
        }
        return lines;
    }
    /// How often any thread recorded a wait that is told so.
    static long waits(const std::string& where, const std::string& forWhom = "") {
        const Lines lines = test::sentences(test::readBytes(test::writtenBytes()));
        return std::count_if(lines.begin(), lines.end(), [&](const std::string& line) {
            return std::regex_match(
                line, std::regex("waited [0-9.]+ ms " + where + " 0x[0-9a-f]+" + forWhom));
        });
    }
    Lines ownLines() {
        std::array<char, 16> name = {};
        (void)pthread_getname_np(pthread_self(), name.data(), name.size());
        return linesOf(name.data());
    }
};

/// A receiver with one handler, while it lives.
class Receiver {
public:
    explicit Receiver(EventHub::Handler handler) {
        m_hub.registerHandler(kType, std::move(handler));
        evtdispch_register_hub(&m_hub);
    }
    ~Receiver() { evtdispch_unregister_hub(&m_hub); }

    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

private:
    EventHub m_hub{kReceiver};
};

TEST_F(RecordedFamiliesTest, AnEventThatIsAnswered) {
    EventHub sender(kSender);
    {
        const Receiver receiver([](const SharedEvent& event) { event->replyResult(42); });
        EXPECT_EQ(sender.sendEventSync(sender.createEvent(kType), kReceiver, 5000), 42);
    }

    EXPECT_EQ(
        ownLines(),
        (Lines{"hub A of 107 (tuner) registered", "event B type 5 from 101 created",
               "event B type 5 from 101 sent to 107 (tuner)",
               "event B type 5 from 101 queued for 107 (tuner), queue length 1",
               "event B type 5 waited for, at most 5000 ms", "hub A of 107 (tuner) unregistered"}));
    EXPECT_EQ(linesOf("Evt:107"), (Lines{"hub A of 107 (tuner) thread started",
                                         "event B type 5 from 101 handler of 107 (tuner) begun",
                                         "event B type 5 replied 42",
                                         "event B type 5 from 101 handler of 107 (tuner) ended",
                                         "hub A of 107 (tuner) thread ended"}));
}

TEST_F(RecordedFamiliesTest, AnEventThatIsHandledAndNeverAnswered) {
    EventHub sender(kSender);
    {
        const Receiver receiver([](const SharedEvent&) {});
        EXPECT_EQ(sender.sendEventSync(sender.createEvent(kType), kReceiver, 300),
                  kEventResultTimeout);
    }

    const Lines own = ownLines();
    ASSERT_EQ(own.size(), 7U);
    EXPECT_EQ(own[4], "event B type 5 waited for, at most 300 ms");
    EXPECT_EQ(own[5], "event B type 5 waited for in vain, 300 ms");
    const Lines ofHandler = linesOf("Evt:107");
    ASSERT_EQ(ofHandler.size(), 5U);
    EXPECT_EQ(ofHandler[2], "event B type 5 from 101 handler of 107 (tuner) ended");
    EXPECT_EQ(ofHandler[3], "event B type 5 from 101 ended without a reply though one waits");
}

TEST_F(RecordedFamiliesTest, EventsThatAreRefused) {
    const EventHub sender(kSender);
    const Receiver receiver([](const SharedEvent&) {});
    SharedEvent event = sender.createEvent(kType + 1);

    EXPECT_EQ(evtdispch_send_event(event, kReceiver + 1), -1);
    EXPECT_EQ(evtdispch_send_event(event, kReceiver), -1);
    EXPECT_EQ(evtdispch_send_event(nullptr, kReceiver), 2);

    EXPECT_EQ(ownLines(),
              (Lines{"hub A of 107 (tuner) registered", "event B type 6 from 101 created",
                     "event B type 6 from 101 sent to 108",
                     "event B type 6 from 101 refused by 108: no hub of that module",
                     "event B type 6 from 101 sent to 107 (tuner)",
                     "event B type 6 from 101 refused by 107 (tuner): no handler takes it",
                     "event C type 0 from 0 refused by 107 (tuner): no event, or it could not be "
                     "armed"}));
}

TEST_F(RecordedFamiliesTest, AnEventForAQueueThatIsFull) {
    const EventHub sender(kSender);
    EventHub receiver(kReceiver);
    test::Event isThere;
    test::Event mayGo;
    receiver.registerHandler(kType, [&](const SharedEvent&) {
        isThere.set();
        EXPECT_TRUE(mayGo.wait());
    });
    evtdispch_register_hub(&receiver);
    receiver.setQueueLimit(1);
    EXPECT_EQ(evtdispch_send_event(sender.createEvent(kType), kReceiver), 0);
    EXPECT_TRUE(isThere.wait());
    EXPECT_EQ(evtdispch_send_event(sender.createEvent(kType), kReceiver), 0);
    SharedEvent third = sender.createEvent(kType);

    EXPECT_EQ(evtdispch_send_event(third, kReceiver), 3);

    const Lines lines = ownLines();
    mayGo.set();
    evtdispch_unregister_hub(&receiver);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().substr(lines.back().find(" type")),
              " type 5 from 101 refused by 107 (tuner): its queue is full");
}

TEST_F(RecordedFamiliesTest, ATaskThatWasDueBeforeAnybodyCanSay) {
    test::Event isDone;
    timer::TimerThread thread;
    const auto task = std::make_shared<timer::CallableTimerTask>([&] { isDone.set(); }, 9);
    task->setNextFireTime(-1e30);

    thread.postTask(task);

    ASSERT_TRUE(isDone.wait());
    thread.stop();
    const Lines own = ownLines();
    ASSERT_EQ(own.size(), 1U);
    EXPECT_EQ(own[0].substr(0, 12), "task A id 9 ");
}

// Within what 64 bits of nanoseconds hold.
TEST_F(RecordedFamiliesTest, WhenTasksAreDue) {
    timespec now = {};
    ASSERT_EQ(clock_gettime(CLOCK_MONOTONIC, &now), 0);
    now = {now.tv_sec + 1, 0};
    const test::ReplaceCall<int(clockid_t, timespec*)> clock(test::Call::ClockGettime,
                                                             [&](clockid_t, timespec* p_now) {
                                                                 *p_now = now;
                                                                 return 0;
                                                             });
    timer::TimerThread thread;
    std::int32_t tasks = 0;
    const auto due = [&](double fireTime) {
        const auto task = std::make_shared<timer::CallableTimerTask>([] {}, ++tasks);
        task->setNextFireTime(fireTime);
        thread.postTask(task);
        const std::string begin = " id " + std::to_string(tasks) + " session " +
                                  std::to_string(task->sessionId()) + " posted, due in ";
        std::string found;
        for (const std::string& line : test::sentences(test::readBytes(test::writtenBytes()))) {
            const std::size_t place = line.find(begin);
            if (place != std::string::npos) found = line.substr(place + begin.size());
        }
        return found;
    };
    const auto seconds = static_cast<double>(now.tv_sec);

    EXPECT_EQ(due(seconds + 500), "500000.000 ms");
    EXPECT_EQ(due(seconds - 5), "-5000.000 ms");
    EXPECT_EQ(due(1e30), "9000000000000.000 ms");
    EXPECT_EQ(due(-1e30), "-9000000000000.000 ms");
}

TEST_F(RecordedFamiliesTest, AWaitInsideAnUnregister) {
    EventHub sender(kSender);
    EventHub receiver(kReceiver);
    test::Event isThere;
    test::Event isJoined;
    std::atomic<int> handlerThread{0};
    receiver.registerHandler(kType, [&](const SharedEvent&) {
        handlerThread = tevalon::base::currentThread();
        isThere.set();
        (void)isJoined.wait();
        std::this_thread::sleep_for(std::chrono::milliseconds(2));  // Longer than what is short.
    });
    evtdispch_register_hub(&receiver);
    sender.sendEvent(sender.createEvent(kType), kReceiver);
    ASSERT_TRUE(isThere.wait());

    {
        const test::RunAtCall atJoin(test::Call::PthreadJoin, [&] { isJoined.set(); });
        evtdispch_unregister_hub(&receiver);
    }

    EXPECT_EQ(waits("inside an unregister of", " for thread " + std::to_string(handlerThread)), 1);
}

TEST_F(RecordedFamiliesTest, TasksThatAreRunAndCancelled) {
    test::Event isDone;
    timer::TimerThread thread;
    const auto later = std::make_shared<timer::CallableTimerTask>([] {}, 8);
    thread.postTask(later, 1'000'000);
    thread.postTask(std::make_shared<timer::CallableTimerTask>([&] { isDone.set(); }, 9), 0);
    ASSERT_TRUE(isDone.wait());
    thread.cancelTaskByTaskId(8);
    thread.stop();

    const std::string session = std::to_string(later->sessionId());
    const Lines own = ownLines();
    ASSERT_EQ(own.size(), 3U);
    EXPECT_EQ(own[0], "task A id 8 session " + session + " posted, due in N ms");
    EXPECT_EQ(own[1].substr(0, 12), "task B id 9 ");
    EXPECT_EQ(own[2], "task A id 8 session " + session + " cancelled");
    const Lines ofWorker = linesOf("TimerThread");
    ASSERT_EQ(ofWorker.size(), 2U);
    EXPECT_EQ(ofWorker[0].substr(ofWorker[0].rfind(' ')), " begun");
    EXPECT_EQ(ofWorker[1].substr(ofWorker[1].rfind(' ')), " ended");
}

TEST_F(RecordedFamiliesTest, WorkThatIsCancelledByItsHandle) {
    timer::TimerThread thread;
    timer::TaskHandle handle = thread.post([] {}, 1'000'000);
    EXPECT_TRUE(handle.cancel());
    EXPECT_FALSE(handle.cancel());
    thread.stop();

    const Lines own = ownLines();
    ASSERT_EQ(own.size(), 2U);
    const std::string task = own[1].substr(0, own[1].rfind(' '));
    EXPECT_EQ(own[0], task + " posted, due in N ms");
    EXPECT_EQ(own[1], task + " cancelled");
}

TEST_F(RecordedFamiliesTest, ATimerThatIsDueAndOneThatIsStopped) {
    test::Event hasRun;
    {
        simple_timer::Timer due(
            "due", {0, 1, 0},
            [](simple_timer::Timer*, void* p_event) { static_cast<test::Event*>(p_event)->set(); },
            &hasRun, simple_timer::ONCE);
        simple_timer::Timer stopped(
            "stopped", {1000, 0, 0}, [](simple_timer::Timer*, void*) {}, nullptr,
            simple_timer::ONCE);
        due.start();
        stopped.start();
        ASSERT_TRUE(hasRun.wait());
        stopped.stop();
    }

    EXPECT_EQ(ownLines(), (Lines{"timer A 'due' started, due in N ms",
                                 "timer B 'stopped' started, due in N ms", "timer B stopped"}));
    EXPECT_EQ(linesOf("SimpleTimer"), (Lines{"timer A due"}));
    EXPECT_EQ(linesOf("T:due"), (Lines{"timer A 'due' run begun", "timer A run ended"}));
}

TEST_F(RecordedFamiliesTest, NoWaitIsOneOfADestructorThatFindsNoRun) {
    auto timer = std::make_unique<simple_timer::Timer>(
        "idle", simple_timer::TimeoutTime{1, 0, 0}, [](simple_timer::Timer*, void*) {}, nullptr,
        simple_timer::ONCE);
    {
        time_t now = 1'000'000'000;  // Each reading is a second later.
        const test::ReplaceCall<int(clockid_t, timespec*)> clock(test::Call::ClockGettime,
                                                                 [&](clockid_t, timespec* p_time) {
                                                                     *p_time = {++now, 0};
                                                                     return 0;
                                                                 });
        timer.reset();
    }

    EXPECT_EQ(waits("inside the destructor of"), 0);
}

TEST_F(RecordedFamiliesTest, AWatchThatIsOverdue) {
    timer::WatchDog dog;
    dog.beginWatch(timer::WatchDog::eWatchID_StartUp, 0.0);
    while (dog.checkTimers().empty()) {
    }
    dog.stopWatch(timer::WatchDog::eWatchID_StartUp);

    EXPECT_EQ(ownLines(), (Lines{"watch 1 begun, allowed N ms", "watch 1 overdue after N ms",
                                 "watch 1 ended"}));
}

/// Holds up whoever logs that it starts the timer "holder", for as long as it takes another thread
/// to get where it waits for the lock, and a little longer.
struct SlowOutput {
    static void capture(void* p_self, const DebugLevelRecord*, const char* p_text, std::size_t) {
        if (std::strstr(p_text, "Begin inster timer:'holder'") == nullptr) return;
        auto* const p_slow = static_cast<SlowOutput*>(p_self);
        p_slow->isHeld.set();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

    test::Event isHeld;
};

/// One thread starts a timer, held up with the scheduler's lock, and this one another timer.
void startTwoTimers() {
    SlowOutput output;
    simple_timer::Timer holder(
        "holder", {1000, 0, 0}, [](simple_timer::Timer*, void*) {}, nullptr, simple_timer::ONCE);
    simple_timer::Timer waiting(
        "waiting", {1000, 0, 0}, [](simple_timer::Timer*, void*) {}, nullptr, simple_timer::ONCE);
    zorDebugInstallCapture(SlowOutput::capture, &output);
    std::thread other([&] { holder.start(); });
    EXPECT_TRUE(output.isHeld.wait());
    waiting.start();
    other.join();
    zorDebugRemoveCapture();
}

// Again where the machine is so busy that this thread came to the lock too late.
TEST_F(RecordedFamiliesTest, ALongWaitForALock) {
    constexpr int kMostTries = 50;
    test::setLogLevel(kLogDebug);

    for (int i = 0; i < kMostTries && waits("for the lock of") == 0; ++i) startTwoTimers();

    test::setLogLevel(0);
    EXPECT_GE(waits("for the lock of"), 1);
}

}  // namespace
