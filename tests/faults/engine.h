// engine.h: counts the calls that the library makes into the system and the C library, and makes
// one of them, or one and all that follow, fail.
//
// A call is known by who made it: the functions of the library that are on the stack, and how many
// times they have been there. Unlike a running number, that is the same in each run, whatever the
// threads do meanwhile.

#ifndef TESTS_FAULTS_ENGINE_H
#define TESTS_FAULTS_ENGINE_H

#include <cstddef>
#include <cstdint>

namespace faults {

/// Whose calls count.
enum class Module : std::uint8_t { Library, ZorDebug, Program };

/// Lines for the script that has started this process. None allocates, and none is subject to the
/// failures.
void openReport();
void report(const char* p_format, ...) __attribute__((format(printf, 1, 2)));

/// As the script gives it; see faults.py. Null: none.
void planFailure(const char* p_text);
/// What each call fails with once all fail.
void planLaterFailures(const char* p_text);

/// From here on calls count, and fail as planned. Those of the program itself count only where it
/// is the module: it then stands for the code that the public headers put into a client.
void startCounting(Module module);
/// No more failures. Calls still count, and blocks are still followed.
void calmDown();
/// Whether all calls fail once one has.
[[nodiscard]] bool isAllFailing();
/// How often the library has made a call until now.
[[nodiscard]] long callsOf(const char* name);

/// Waits until no more than so many blocks of the library's are alive, a few seconds at most; less
/// than none stands for: until their number does not change any more.
void waitForBlocks(long expected);
/// Writes what was counted and what is still alive.
void reportCounts();

/// For the definition of free(): whether the block was one of the library's.
bool blockIsFreed(const void* p_block);

}  // namespace faults

#endif  // TESTS_FAULTS_ENGINE_H
