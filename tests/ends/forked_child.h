// forked_child.h: runs a part of a test in a forked child of the test's own process, threads and
// all.

#ifndef TESTS_ENDS_FORKED_CHILD_H
#define TESTS_ENDS_FORKED_CHILD_H

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "support/fault_injection.h"

namespace test {

/// A child that hangs is ended by a signal.
inline constexpr unsigned kLongestChildSeconds = 40;

/// In the child of a process with threads no thread can begin or end under the thread sanitizer,
/// whose runtime dies of it, nor under the emulator, which does so too.
#if defined(__SANITIZE_THREAD__) || defined(TEVALON_TEST_EMULATED)
inline constexpr bool kChildrenHaveThreads = false;
#else
inline constexpr bool kChildrenHaveThreads = true;
#endif
#define SKIP_WITHOUT_THREADS_IN_CHILDREN() \
    if (!::test::kChildrenHaveThreads)     \
    GTEST_SKIP() << "neither under the thread sanitizer nor under the emulator"

/// In the child, where the test framework has nobody to tell.
#define CHECK_IN_CHILD(condition)                                                              \
    do {                                                                                       \
        if (condition) break;                                                                  \
        std::fprintf(stderr, "%s:%d: in the child: not %s\n", __FILE__, __LINE__, #condition); \
        _exit(1);                                                                              \
    } while (false)

/// fork(). The address sanitizer's allocator, unlike the C library's, may be locked in the child
/// for good: with it not before all other threads sleep.
pid_t forkQuietly();

/// As waitpid() tells it: 0 where the process has ended with status 0.
inline int statusOf(pid_t child) {
    int status = -1;
    return waitpid(child, &status, 0) == child ? status : -1;
}

/// Returns how a forked child has ended, after @p body.
template <typename Body>
int runInForkedChild(Body body) {
    const pid_t child = forkQuietly();
    if (child != 0) return child > 0 ? statusOf(child) : -1;
    (void)alarm(kLongestChildSeconds);
    body();
    _exit(0);
}

}  // namespace test

#endif  // TESTS_ENDS_FORKED_CHILD_H
