#include "support/own_threads.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace bench {
namespace {

std::string folderOf(int thread) {
    return "/proc/self/task/" + std::to_string(thread);
}

double voluntarySwitches(int thread) {
    const std::string wanted = "voluntary_ctxt_switches:";
    std::ifstream file(folderOf(thread) + "/status");
    std::string word;
    while (file >> word) {
        double count = 0;
        if (word == wanted && file >> count) return count;
    }
    return 0;
}

// The first number of the file: nanoseconds on a processor.
double cpuSeconds(int thread) {
    std::ifstream file(folderOf(thread) + "/schedstat");
    double nanoseconds = 0;
    file >> nanoseconds;
    return nanoseconds * 1e-9;
}

}  // namespace

ThreadIds threadsNow() {
    ThreadIds threads;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
        threads.push_back(std::stoi(entry.path().filename().string()));
    }
    std::sort(threads.begin(), threads.end());
    return threads;
}

ThreadIds threadsSince(const ThreadIds& before) {
    const ThreadIds now = threadsNow();
    ThreadIds added;
    std::set_difference(now.begin(), now.end(), before.begin(), before.end(),
                        std::back_inserter(added));
    return added;
}

ThreadUsage usageOf(const ThreadIds& threads) {
    ThreadUsage usage;
    for (const int thread : threads) {
        usage.switches += voluntarySwitches(thread);
        usage.cpuSeconds += cpuSeconds(thread);
    }
    return usage;
}

}  // namespace bench
