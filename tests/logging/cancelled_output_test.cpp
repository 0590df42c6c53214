// A platform whose debug output is a cancellation point; the substitute's is none.

#include <gtest/gtest.h>
#include <pthread.h>

#include "base/logging.h"
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

}  // namespace
