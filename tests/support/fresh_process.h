// fresh_process.h: for tests that need a process without a history: no threads, no singletons,
// counters at their start.

#ifndef TESTS_SUPPORT_FRESH_PROCESS_H
#define TESTS_SUPPORT_FRESH_PROCESS_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

namespace test {

/// Runs @p body, expectations and all, and ends the process with whether they held. A body that
/// hangs is ended by a signal.
template <typename Body>
[[noreturn]] void exitAfter(Body body) {
    constexpr unsigned kLongestRunSeconds = 120;
    (void)alarm(kLongestRunSeconds);
    body();
    std::exit(testing::Test::HasFailure() ? 1 : 0);
}

}  // namespace test

/// Runs a block, `[&] { ... }`, in a process of its own, in which nothing ran before but the
/// test up to here. What fails in it is printed there, and fails here.
#define EXPECT_HOLDS_IN_FRESH_PROCESS(...) \
    EXPECT_EXIT(::test::exitAfter(__VA_ARGS__), ::testing::ExitedWithCode(0), "")

#endif  // TESTS_SUPPORT_FRESH_PROCESS_H
