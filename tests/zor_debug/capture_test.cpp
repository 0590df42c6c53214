#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/event.h"
#include "support/fault_injection.h"
#include "support/threads.h"
#include "zor_debug/zor_debug.h"
#include "zor_debug/zor_debug_control.h"

namespace {

struct Call {
    DebugLevelRecord record;
    std::string text;
};

struct Calls {
    std::mutex mutex;
    std::vector<Call> calls;

    static void add(void* p_context, const DebugLevelRecord* p_record, const char* p_text,
                    std::size_t length) {
        auto* p_self = static_cast<Calls*>(p_context);
        const std::lock_guard<std::mutex> lock(p_self->mutex);
        p_self->calls.push_back({*p_record, std::string(p_text, length)});
    }
};

class CaptureTest : public ::testing::Test {
protected:
    ~CaptureTest() override {
        zorDebugRemoveCapture();
        (void)zorDebugSetLevels(nullptr);
    }
};

TEST_F(CaptureTest, EachCallArrivesWithTheRecordThatWasCheckedLast) {
    Calls seen;
    DebugLevelRecord record = {1000, 0x5F, 0, 0};
    zorDebugInstallCapture(Calls::add, &seen);

    ASSERT_NE(zorDebugCheckLevelGetFrameAndChunk(&record), 0);
    zorDebugOutput0("a%d", 1);
    zorDebugOutput0("b\n");

    ASSERT_EQ(seen.calls.size(), 2U);
    EXPECT_EQ(seen.calls[0].text, "a1");
    EXPECT_EQ(seen.calls[1].text, "b\n");
    EXPECT_EQ(seen.calls[0].record.level, 1000);
    EXPECT_EQ(seen.calls[0].record.module, 0x5F);
}

TEST_F(CaptureTest, ALevelThatIsOffDoesNotBecomeTheRecord) {
    Calls seen;
    DebugLevelRecord on = {1, 7, 0, 0};
    DebugLevelRecord off = {5000, 8, 0, 0};
    zorDebugInstallCapture(Calls::add, &seen);

    ASSERT_NE(zorDebugCheckLevelGetFrameAndChunk(&on), 0);
    ASSERT_EQ(zorDebugCheckLevelGetFrameAndChunk(&off), 0);
    zorDebugOutput0("text");

    ASSERT_EQ(seen.calls.size(), 1U);
    EXPECT_EQ(seen.calls[0].record.level, 1);
    EXPECT_EQ(seen.calls[0].record.module, 7);
}

TEST_F(CaptureTest, ASecondCaptureReplacesTheFirst) {
    Calls first;
    Calls second;
    zorDebugInstallCapture(Calls::add, &first);
    zorDebugInstallCapture(Calls::add, &second);

    zorDebugOutput0("text");

    EXPECT_TRUE(first.calls.empty());
    EXPECT_EQ(second.calls.size(), 1U);
}

TEST_F(CaptureTest, WhatACaptureWritesItselfGoesToTheOutput) {
    const auto echo = [](void*, const DebugLevelRecord*, const char*, std::size_t) {
        zorDebugOutput0("echo\n");
    };
    zorDebugInstallCapture(echo, nullptr);
    ::testing::internal::CaptureStderr();

    zorDebugOutput0("text\n");

    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "echo\n");
}

TEST_F(CaptureTest, ACaptureCanRemoveItself) {
    static std::atomic<int> s_calls;
    s_calls = 0;
    const auto once = [](void*, const DebugLevelRecord*, const char*, std::size_t) {
        ++s_calls;
        zorDebugRemoveCapture();
    };
    zorDebugInstallCapture(once, nullptr);
    ::testing::internal::CaptureStderr();

    zorDebugOutput0("captured\n");
    zorDebugOutput0("written\n");

    EXPECT_EQ(s_calls, 1);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "written\n");
}

struct Gate {
    test::Event entered;
    test::Event release;
    std::atomic<bool> isLeft{false};

    static void pass(void* p_context, const DebugLevelRecord*, const char*, std::size_t) {
        auto* p_self = static_cast<Gate*>(p_context);
        p_self->entered.set();
        (void)p_self->release.wait();
        p_self->isLeft = true;
    }
};

TEST_F(CaptureTest, RemovalWaitsForTheThreadThatIsInside) {
    Gate gate;
    zorDebugInstallCapture(Gate::pass, &gate);
    std::thread writer([] { zorDebugOutput0("text"); });
    ASSERT_TRUE(gate.entered.wait());

    test::Event removing;
    bool wasLeftBeforeRemovalReturned = false;
    std::thread remover([&] {
        removing.set();
        zorDebugRemoveCapture();
        wasLeftBeforeRemovalReturned = gate.isLeft;
    });
    ASSERT_TRUE(removing.wait());
    gate.release.set();
    remover.join();
    writer.join();

    EXPECT_TRUE(wasLeftBeforeRemovalReturned);
}

// A capture that lets another thread begin to wait for it, and then does something.
struct Meeting {
    test::Event entered;
    test::Event awaited;
    std::function<void()> action;

    static void hold(void* p_context, const DebugLevelRecord*, const char*, std::size_t) {
        auto* p_self = static_cast<Meeting*>(p_context);
        p_self->entered.set();
        EXPECT_TRUE(p_self->awaited.wait());
        p_self->action();
    }

    // Has @p change made by another thread while the capture holds its writer.
    void meet(const std::function<void()>& change) {
        zorDebugInstallCapture(hold, this);
        std::thread writer([] { zorDebugOutput0("text"); });
        ASSERT_TRUE(entered.wait());
        // Who waits for the writer gives its processor away.
        const test::RunAtCall waiting(
            test::Call::SchedYield, [this] { awaited.set(); }, test::When().anyThread());
        std::thread changer(change);
        changer.join();
        writer.join();
    }
};

TEST_F(CaptureTest, ACaptureCanBeReplacedFromInsideWhileAnotherThreadReplacesIt) {
    Calls fromInside;
    Calls fromOutside;
    Meeting meeting;
    meeting.action = [&] { zorDebugInstallCapture(Calls::add, &fromInside); };

    meeting.meet([&] { zorDebugInstallCapture(Calls::add, &fromOutside); });
    zorDebugOutput0("after both");

    EXPECT_TRUE(fromOutside.calls.empty());
    ASSERT_EQ(fromInside.calls.size(), 1U);
    EXPECT_EQ(fromInside.calls[0].text, "after both");
}

TEST_F(CaptureTest, ACaptureThatIsBeingRemovedCanFork) {
    Meeting meeting;
    int status = -1;
    meeting.action = [&] {
        const pid_t child = fork();
        if (child == 0) _exit(7);
        EXPECT_EQ(waitpid(child, &status, 0), child);
    };

    meeting.meet([] { zorDebugRemoveCapture(); });

    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 7);
}

// A capture that knows its own context, and puts its twin in its place.
struct Twin {
    ZorDebugCapture function;
    Twin* p_other;
    std::atomic<int> calls{0};

    static std::atomic<int> s_strangers;

    template <int kNumber>
    static void swap(void* p_context, const DebugLevelRecord*, const char*, std::size_t) {
        auto* p_self = static_cast<Twin*>(p_context);
        if (p_self->function != &Twin::swap<kNumber>) ++s_strangers;
        ++p_self->calls;
        zorDebugInstallCapture(p_self->p_other->function, p_self->p_other);
    }
};

std::atomic<int> Twin::s_strangers{0};

TEST_F(CaptureTest, AFunctionIsNeverCalledWithTheContextOfAnother) {
    constexpr int kThreads = 3;
    constexpr int kTexts = 200000;
    Twin one = {&Twin::swap<1>, nullptr};
    Twin two = {&Twin::swap<2>, &one};
    one.p_other = &two;
    zorDebugInstallCapture(one.function, &one);

    test::runAtOnce(kThreads, [](int) {
        for (int i = 0; i < kTexts; ++i) zorDebugOutput0("text");
    });

    EXPECT_EQ(Twin::s_strangers, 0);
    EXPECT_EQ(one.calls + two.calls, kThreads * kTexts);
}

// Under the thread and address sanitizers a capture that is entered after its removal shows.
TEST_F(CaptureTest, CapturesComeAndGoUnderManyWriters) {
    (void)zorDebugSetFile("/dev/null");
    std::atomic<bool> stop{false};
    std::vector<std::thread> writers;
    for (int i = 0; i < 3; ++i) {
        writers.emplace_back([&stop] {
            while (!stop) zorDebugOutput0("text\n");
        });
    }

    std::size_t captured = 0;
    for (int round = 0; round < 100 || captured == 0; ++round) {
        Calls seen;
        zorDebugInstallCapture(Calls::add, &seen);
        std::this_thread::yield();
        zorDebugRemoveCapture();
        captured += seen.calls.size();
    }
    stop = true;
    for (std::thread& writer : writers) writer.join();
    (void)zorDebugSetFile(nullptr);

    EXPECT_GT(captured, 0U);
}

}  // namespace
