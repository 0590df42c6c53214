#include "soak/process_look.h"

#include <dirent.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "base/event_dispatcher.h"

namespace soak {
namespace {

using namespace tevalon::base::event_dispatcher;
using Clock = std::chrono::steady_clock;

constexpr std::int32_t kEchoModule = 1 << 20;
constexpr std::int32_t kEchoType = 1;
constexpr int kEchoes = 501;

long statusField(const char* name) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen("/proc/self/status", "r"),
                                                               std::fclose);
    char line[256];
    while (file != nullptr && std::fgets(line, sizeof(line), file.get()) != nullptr) {
        if (std::strncmp(line, name, std::strlen(name)) == 0) {
            return std::strtol(line + std::strlen(name) + 1, nullptr, 10);
        }
    }
    return 0;
}

long openDescriptors() {
    long count = -1;  // The folder's own.
    const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir("/proc/self/fd"), closedir);
    while (folder != nullptr && readdir(folder.get()) != nullptr) ++count;
    return count - 2;  // "." and "..".
}

double medianEchoUs() {
    EventHub hub(kEchoModule);
    (void)hub.registerHandler(
        kEchoType, [](const std::shared_ptr<BrowserEvent>& event) { event->replyResult(0); });
    (void)evtdispch_register_hub(&hub);
    std::vector<double> times;
    for (int i = 0; i < kEchoes; ++i) {
        const Clock::time_point begin = Clock::now();
        (void)hub.sendEventSync(hub.createEvent(kEchoType), kEchoModule, -1);
        times.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
    }
    (void)evtdispch_unregister_hub(&hub);
    std::nth_element(times.begin(), times.begin() + kEchoes / 2, times.end());
    return times[kEchoes / 2];
}

}  // namespace

Look look() {
    Look look;
    look.latencyUs = medianEchoUs();  // First: it starts a thread, and ends it.
    look.memoryKib = statusField("VmRSS");
    look.descriptors = openDescriptors();
    look.threads = statusField("Threads");
    return look;
}

void print(const char* when, const Look& look) {
    std::printf(
        "{\"when\": \"%s\", \"memory_kib\": %ld, \"descriptors\": %ld, \"threads\": %ld, "
        "\"latency_us\": %.1f}\n",
        when, look.memoryKib, look.descriptors, look.threads, look.latencyUs);
    (void)std::fflush(stdout);
}

bool hasSettled(const Look& then) {
    const Clock::time_point deadline = Clock::now() + std::chrono::minutes(1);
    while (statusField("Threads") > then.threads || openDescriptors() > then.descriptors) {
        if (Clock::now() > deadline) return false;
        // Nobody tells of a detached thread's end.
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

}  // namespace soak
