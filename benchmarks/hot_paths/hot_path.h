// hot_path.h: a piece of work whose instructions are counted.

#ifndef BENCHMARKS_HOT_PATHS_HOT_PATH_H
#define BENCHMARKS_HOT_PATHS_HOT_PATH_H

#include <functional>
#include <string>
#include <vector>

namespace bench {

/// To be found by its name by those who count: all that is executed from an odd call to the next
/// counts, by whichever thread.
extern "C" void hotPathMark();

/// Counts while it lives. One for each call of HotPath::run.
class Counted {
public:
    Counted() { hotPathMark(); }
    ~Counted() { hotPathMark(); }

    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
};

/// Work that takes the same instructions each time: no two threads are at it at once.
struct HotPath {
    std::string name;
    int count;                     ///< How often it is done, and then twice as often.
    std::function<void(int)> run;  ///< Does it so often in a Counted scope.
    bool isLong = false;           ///< Too long for an emulator that logs each instruction.
};

using HotPaths = std::vector<HotPath>;

void addEventPaths(HotPaths* p_paths);
void addTaskPaths(HotPaths* p_paths);
void addTimerPaths(HotPaths* p_paths);
void addLoggingPaths(HotPaths* p_paths);
void addUtilityPaths(HotPaths* p_paths);
void addRecorderPaths(HotPaths* p_paths);

}  // namespace bench

#endif  // BENCHMARKS_HOT_PATHS_HOT_PATH_H
