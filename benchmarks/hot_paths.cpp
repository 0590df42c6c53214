// Does each hot path of the library so often that its instructions can be counted from outside;
// instruction_counts.py does so.
//
//     hot_paths [--short | NAME...]
//
// With --short without those that take long.
//
// Each path is done in a process of its own, so that none changes another's figure: three times,
// the first to warm up and the third twice as often as the second. The difference of these two
// is what so many times cost. On standard output a line for each: process id, count, name.

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "hot_paths/hot_path.h"
#include "zor_debug/zor_debug_control.h"

namespace bench {

// A system call that nothing else makes: an emulator's log shows that one.
extern "C" __attribute__((noinline, visibility("default"))) void hotPathMark() {
    (void)syscall(SYS_getpgid, 0);
}

namespace {

HotPaths allPaths() {
    HotPaths paths;
    addEventPaths(&paths);
    addTaskPaths(&paths);
    addTimerPaths(&paths);
    addLoggingPaths(&paths);
    addUtilityPaths(&paths);
    addRecorderPaths(&paths);
    return paths;
}

void runThrice(const HotPath& path) {
    (void)zorDebugSetLevels("off");
    path.run(path.count);
    path.run(path.count);
    path.run(2 * path.count);
}

bool runInChild(const HotPath& path) {
    const pid_t child = fork();
    if (child == 0) {
        runThrice(path);
        _exit(0);
    }
    int status = -1;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
        (void)std::fprintf(stderr, "hot_paths: %s failed\n", path.name.c_str());
        return false;
    }
    (void)std::printf("%d %d %s\n", static_cast<int>(child), path.count, path.name.c_str());
    (void)std::fflush(stdout);  // Not twice, by the next child too.
    return true;
}

bool isWanted(const HotPath& path, const std::vector<std::string>& arguments) {
    if (arguments.empty()) return true;
    if (arguments.front() == "--short") return !path.isLong;
    return std::find(arguments.begin(), arguments.end(), path.name) != arguments.end();
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    bool isComplete = true;
    for (const bench::HotPath& path : bench::allPaths()) {
        if (bench::isWanted(path, arguments)) isComplete = bench::runInChild(path) && isComplete;
    }
    return isComplete ? 0 : 1;
}
