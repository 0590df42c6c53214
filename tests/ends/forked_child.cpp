#include "ends/forked_child.h"

#include <filesystem>
#include <fstream>
#include <string>

namespace test {
namespace {

#ifdef __SANITIZE_ADDRESS__

const pid_t g_parent = getpid();

bool doOthersSleep() {
    const std::string self = std::to_string(gettid());
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        if (task.path().filename() == self) continue;
        std::ifstream file(task.path() / "stat");
        std::string line;
        // "id (name) state ...": one that has just ended has no such line.
        if (std::getline(file, line) && line.substr(line.rfind(')'), 3) != ") S") return false;
    }
    return true;
}

#endif

}  // namespace

pid_t forkQuietly() {
#ifdef __SANITIZE_ADDRESS__
    constexpr int kMostTries = 2000;  // Some never do.
    for (int i = 0; i < kMostTries && !doOthersSleep(); ++i) (void)usleep(50);
#endif
    return fork();
}

}  // namespace test

#ifdef __SANITIZE_ADDRESS__
// What only the parent's threads knew of is no leak of the child's.
extern "C" int __lsan_is_turned_off() {  // NOLINT: its name.
    return getpid() != test::g_parent ? 1 : 0;
}
#endif
