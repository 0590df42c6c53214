#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/event.h"
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
