#include "thread_account.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace test {
namespace {

std::string contentOf(pid_t thread, const char* name) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/" + name);
    std::ostringstream content;
    content << file.rdbuf();
    EXPECT_FALSE(content.str().empty()) << "thread " << thread << " has no " << name;
    return content.str();
}

// The fields 14 and 15 of stat; the second, the name, may contain blanks and parentheses.
double cpuSecondsOf(pid_t thread) {
    const std::string stat = contentOf(thread, "stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 1));
    std::string skipped;
    for (int field = 3; field < 14; ++field) fields >> skipped;
    long userTicks = -1;
    long systemTicks = -1;
    fields >> userTicks >> systemTicks;
    EXPECT_TRUE(fields) << stat;
    return static_cast<double>(userTicks + systemTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

long wakeUpsOf(pid_t thread) {
    std::istringstream lines(contentOf(thread, "status"));
    const std::string key = "voluntary_ctxt_switches:";
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, key.size(), key) == 0) return std::atol(line.c_str() + key.size());
    }
    ADD_FAILURE() << "the kernel does not count the waits of thread " << thread;
    return 0;
}

}  // namespace

std::set<pid_t> threadIds() {
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/task"), closedir);
    std::set<pid_t> ids;
    if (folder == nullptr) return ids;
    while (const dirent* const p_entry = readdir(folder.get())) {
        const pid_t id = std::atoi(p_entry->d_name);
        if (id > 0) ids.insert(id);
    }
    return ids;
}

pid_t threadMadeBy(const std::function<void()>& start) {
    const std::set<pid_t> before = threadIds();
    start();
    const std::set<pid_t> after = threadIds();
    std::vector<pid_t> made;
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                        std::back_inserter(made));
    EXPECT_EQ(made.size(), 1U);
    return made.size() == 1 ? made.front() : 0;
}

ThreadAccount accountOf(pid_t thread) {
    return {cpuSecondsOf(thread), wakeUpsOf(thread)};
}

}  // namespace test
