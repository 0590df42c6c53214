// Hammers everything that has a thread from all sides at once, and says whether the counts add
// up in the end.
//
//     stress [--seconds=N]
//     stress --end=WAY --after=N
//
// Exit status: 0 when they do, 1 when they do not or when it hangs, 2 for a wrong argument. With
// --end the process ends in that way, N microseconds after everything has begun, with all at work:
// see ending.cpp.

#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <thread>

#include "stress/ending.h"
#include "stress/station.h"

namespace {

constexpr unsigned kDefaultSeconds = 2;
constexpr unsigned kMostSeconds = 7 * 24 * 3600;
constexpr unsigned kMostMicroseconds = 100 * 1000 * 1000;
constexpr std::string_view kEnd = "--end=";
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

/// Reads @p prefix and a number up to @p most; false when it is something else.
bool parse(std::string_view argument, std::string_view prefix, unsigned most, unsigned* p_number) {
    if (argument.substr(0, prefix.size()) != prefix) return false;
    const char* const p_end = argument.data() + argument.size();
    unsigned number = 0;
    const auto [p_rest, error] = std::from_chars(argument.data() + prefix.size(), p_end, number);
    if (error != std::errc() || p_rest != p_end || number > most) return false;
    *p_number = number;
    return true;
}

using Stations = std::vector<std::unique_ptr<stress::Station>>;

Stations makeStations() {
    Stations stations;
    stations.push_back(stress::makeSimpleTimerStation());
    stations.push_back(stress::makeTimerThreadStation());
    stations.push_back(stress::makeTimerThreadPoolStation());
    stations.push_back(stress::makeWatchDogStation());
    stations.push_back(stress::makeEventHubStation());
    stations.push_back(stress::makeRunnableStation());
    return stations;
}

/// Never returns by itself, and nothing of it is ever destroyed.
int hammerAndEnd(std::string_view way, unsigned microseconds) {
    static const auto* const s_stations = new Stations(makeStations());
    for (unsigned i = 0; i < kThreadsPerStation * s_stations->size(); ++i) {
        std::thread([i] {
            stress::Station& station = *(*s_stations)[i % s_stations->size()];
            for (std::mt19937 random(i);;) station.step(random);
        }).detach();
    }
    return stress::endAfter(microseconds, way);
}

void hammer(const Stations& stations, unsigned seconds) {
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
    unsigned microseconds = 0;
    const std::string_view first = argc > 1 ? argv[1] : "";
    const bool isEnding = argc == 3 && first.substr(0, kEnd.size()) == kEnd &&
                          parse(argv[2], "--after=", kMostMicroseconds, &microseconds);
    if (isEnding && stress::isWayToEnd(first.substr(kEnd.size()))) {
        armAlarm(0);
        return hammerAndEnd(first.substr(kEnd.size()), microseconds);
    }
    if (argc > 2 || (argc == 2 && !parse(first, "--seconds=", kMostSeconds, &seconds))) {
        std::fprintf(stderr,
                     "usage: stress [--seconds=N], N up to %u\n"
                     "       stress --end=WAY --after=N, N up to %u\n",
                     kMostSeconds, kMostMicroseconds);
        return 2;
    }
    armAlarm(seconds);

    const Stations stations = makeStations();
    hammer(stations, seconds);

    bool allAddUp = true;
    for (const auto& station : stations) {
        for (const stress::Balance& balance : station->settle()) {
            allAddUp = print(balance) && allAddUp;
        }
    }
    return allAddUp ? 0 : 1;
}
