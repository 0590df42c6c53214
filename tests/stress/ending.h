// ending.h: the ways in which a process can end.

#ifndef TESTS_STRESS_ENDING_H
#define TESTS_STRESS_ENDING_H

#include <string_view>

namespace stress {

/// What a process that ends by a status ends with.
inline constexpr int kEndStatus = 7;

bool isWayToEnd(std::string_view way);

/// Ends the process in this way after so many microseconds, or returns what main() is to return.
int endAfter(unsigned microseconds, std::string_view way);

}  // namespace stress

#endif  // TESTS_STRESS_ENDING_H
