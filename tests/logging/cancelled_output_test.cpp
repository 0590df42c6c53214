// A platform whose debug output is a cancellation point; the substitute's is none.

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>

#include "base/logging.h"
#include "base/simple_timer.h"
#include "support/fault_injection.h"
#include "support/fresh_process.h"
#include "support/log_capture.h"

/// In place of the library's, for all that the process loads.
extern "C" int zorDebugOutput0(const char*, ...) {
    pthread_testcancel();
    return 0;
}

namespace {

using namespace tevalon::base;

/// Leaves two traced scopes with its cancellation pending.
void* leaveTracedScopes(void*) {
    {
        BLOG_TRACE_SCOPE();
        const FunctionTracer tracer("run", "cancelled_output_test.cpp", 1);
        (void)pthread_cancel(pthread_self());
    }
    // The end of the thread, seen by a sanitizer, should not be an unwinding.
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    return nullptr;
}

// The line of a scope's end is written by a destructor, where cancellation would end the process.
TEST(CancelledOutputTest, ATracedScopeIsLeftWhole) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        test::setLogLevel(kLogDebug);
        pthread_t thread = {};
        ASSERT_EQ(pthread_create(&thread, nullptr, leaveTracedScopes, nullptr), 0);
        ASSERT_EQ(pthread_join(thread, nullptr), 0);
    });
}

/// Makes the process's first timer, whose scheduler gets no pipe, with its cancellation pending.
void* makeFirstTimer(void*) {
    {
        const test::FailCall noPipe(test::Call::Pipe2, EMFILE);
        (void)pthread_cancel(pthread_self());
        const simple_timer::Timer first(
            "first", {1, 0, 0}, [](simple_timer::Timer*, void*) {}, nullptr, simple_timer::ONCE);
    }
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    return nullptr;
}

TEST(CancelledOutputTest, ASchedulerThatCannotBeMadeIsNotTriedAgain) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        test::setLogLevel(kLogError);
        pthread_t thread = {};
        void* p_result = nullptr;
        ASSERT_EQ(pthread_create(&thread, nullptr, makeFirstTimer, nullptr), 0);
        ASSERT_EQ(pthread_join(thread, &p_result), 0);
        EXPECT_EQ(p_result, nullptr);
        const test::CountCalls pipes(test::Call::Pipe2);

        const simple_timer::Timer second(
            "second", {1, 0, 0}, [](simple_timer::Timer*, void*) {}, nullptr, simple_timer::ONCE);

        EXPECT_EQ(pipes.seen(), 0);
    });
}

}  // namespace
