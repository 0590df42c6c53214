// Hammers everything that has a thread from all sides at once, and says whether the counts add
// up in the end.
//
//     stress [--seconds=N]
//
// Exit status: 0 when they do, 1 when they do not or when it hangs, 2 for a wrong argument.

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <thread>

#include "stress/station.h"

namespace {

constexpr unsigned kDefaultSeconds = 2;
constexpr unsigned kMostSeconds = 7 * 24 * 3600;
constexpr unsigned kSecondsToSettle = 120;  // Far beyond what a loaded machine needs.
constexpr unsigned kThreadsPerStation = 2;

void reportHang(int) {
    constexpr std::string_view kText = "stress: something hangs\n";
    (void)!write(STDERR_FILENO, kText.data(), kText.size());
    _exit(1);
}

/// Ends the process when it takes longer than it should.
void armAlarm(unsigned seconds) {
    struct sigaction action {};
    action.sa_handler = reportHang;
    (void)sigaction(SIGALRM, &action, nullptr);
    (void)alarm(seconds + kSecondsToSettle);
}

/// Reads "--seconds=N"; false when it is something else.
bool parse(std::string_view argument, unsigned* p_seconds) {
    constexpr std::string_view kPrefix = "--seconds=";
    if (argument.substr(0, kPrefix.size()) != kPrefix) return false;
    const char* const p_end = argument.data() + argument.size();
    unsigned seconds = 0;
    const auto [p_rest, error] = std::from_chars(argument.data() + kPrefix.size(), p_end, seconds);
    if (error != std::errc() || p_rest != p_end || seconds > kMostSeconds) return false;
    *p_seconds = seconds;
    return true;
}

void hammer(const std::vector<std::unique_ptr<stress::Station>>& stations, unsigned seconds) {
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreadsPerStation * stations.size(); ++i) {
        threads.emplace_back([&, i] {
            stress::Station& station = *stations[i % stations.size()];
            std::mt19937 random(i);
            while (!isOver) station.step(random);
        });
    }
    std::this_thread::sleep_for(std::chrono::seconds(seconds));  // The duration itself.
    isOver = true;
    for (std::thread& thread : threads) thread.join();
}

/// Prints "7 posted = 4 fired + 3 left"; whether it is so.
bool print(const stress::Balance& balance) {
    std::printf("%10ld %s", balance.whole.count, balance.whole.what.c_str());
    const char* separator = " =";
    for (const stress::Balance::Item& part : balance.parts) {
        std::printf("%s %ld %s", separator, part.count, part.what.c_str());
        separator = " +";
    }
    std::printf("%s\n", balance.addsUp() ? "" : "   WRONG");
    return balance.addsUp();
}

}  // namespace

int main(int argc, char** argv) {
    unsigned seconds = kDefaultSeconds;
    if (argc > 2 || (argc == 2 && !parse(argv[1], &seconds))) {
        std::fprintf(stderr, "usage: stress [--seconds=N], N up to %u\n", kMostSeconds);
        return 2;
    }
    armAlarm(seconds);

    std::vector<std::unique_ptr<stress::Station>> stations;
    stations.push_back(stress::makeSimpleTimerStation());
    stations.push_back(stress::makeTimerThreadStation());
    stations.push_back(stress::makeTimerThreadPoolStation());
    stations.push_back(stress::makeWatchDogStation());
    stations.push_back(stress::makeEventHubStation());
    stations.push_back(stress::makeRunnableStation());
    hammer(stations, seconds);

    bool allAddUp = true;
    for (const auto& station : stations) {
        for (const stress::Balance& balance : station->settle()) {
            allAddUp = print(balance) && allAddUp;
        }
    }
    return allAddUp ? 0 : 1;
}
