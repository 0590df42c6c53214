// failures.h: which calls fail; see testkit/fail_call.h.

#ifndef TESTKIT_KIT_FAILURES_H
#define TESTKIT_KIT_FAILURES_H

#include "testkit/fail_call.h"

namespace tevalon::testkit::kit {

inline constexpr int kNoFailure = -1;

/// Counts a use; the error that it is to fail with, or kNoFailure.
int failureOf(Call call);

}  // namespace tevalon::testkit::kit

#endif  // TESTKIT_KIT_FAILURES_H
