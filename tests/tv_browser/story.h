// story.h: what a timeline tells, without the times.

#ifndef TESTS_TV_BROWSER_STORY_H
#define TESTS_TV_BROWSER_STORY_H

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace test {

/// The rows and chapters of a timeline: "viewer -> hbbtv_controller: key red" or, for what a
/// module does by itself, "browser_engine draws ...". Columns are a blank apart; the title, the
/// seconds and the durations are gone.
std::vector<std::string> storyOf(const std::string& output);

/// The seconds at the front of the rows and chapters.
std::vector<double> secondsOf(const std::string& output);

/// Whether the story has all of @p expected in this order, whatever stands between them.
testing::AssertionResult tellsInOrder(const std::vector<std::string>& story,
                                      const std::vector<std::string>& expected);

/// How many lines of the story hold @p part.
int timesTold(const std::vector<std::string>& story, const std::string& part);

/// All that was written to @p p_file, a file that can be read as well.
std::string contentsOf(std::FILE* p_file);

}  // namespace test

#endif  // TESTS_TV_BROWSER_STORY_H
