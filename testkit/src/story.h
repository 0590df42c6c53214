// story.h: a failing schedule, told for people.

#ifndef TESTKIT_SRC_STORY_H
#define TESTKIT_SRC_STORY_H

#include <cstdio>

#include "runner.h"

namespace tevalon::testkit {

/// Tells the run that the record holds: which thread ran when, what it did at which source line,
/// and what each waits for in the end.
void tellStory(const RunRecord& record, FILE* p_out);

}  // namespace tevalon::testkit

#endif  // TESTKIT_SRC_STORY_H
