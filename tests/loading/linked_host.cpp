// A program that uses the library, and loads plugins that use it too.
//
// It is called with the way to go and the paths of both plugins.

#include <map>
#include <string>

#include "loading/loaded_plugin.h"
#include "loading/work.h"

namespace {

void loadBefore(const char* p_one, const char* p_two) {
    const LoadedPlugin one(p_one);
    const LoadedPlugin two(p_two);
    const int mainThread = one.work(1);

    checkSame(one.services(), two.services());
    checkSame(work::services(), one.services());
    check(mainThread > 0 && work::useEveryService(3) == mainThread, "the program's work runs too");
}

void loadAfter(const char* p_one, const char* p_two) {
    const Services own = work::services();
    const int mainThread = work::useEveryService(3);
    const LoadedPlugin one(p_one, RTLD_GLOBAL);
    const LoadedPlugin two(p_two);

    checkSame(one.services(), own);
    checkSame(two.services(), own);
    check(mainThread > 0 && one.work(1) == mainThread, "the plugins' work runs too");
}

// The program's timers, tasks, events and watches never rest, also when it exits.
void loadAtWork(const char* p_one, const char* p_two) {
    static const auto* const s_work = new work::EndlessWork;  // Never destroyed.
    s_work->waitForMore();
    for (int round = 0; round < 3; ++round) {
        {
            const LoadedPlugin one(p_one);
            const LoadedPlugin two(p_two);
            check(one.work(1) > 0 && two.work(2) > 0, "the plugins' work runs");
        }
        check(!isLoaded(p_one) && !isLoaded(p_two), "plugins go");
        s_work->waitForMore();
    }
}

const std::map<std::string, void (*)(const char*, const char*)> kWays = {
    {"load-before", loadBefore},
    {"load-after", loadAfter},
    {"load-at-work", loadAtWork},
};

}  // namespace

int main(int argc, char** argv) {
    const auto way = argc == 4 ? kWays.find(argv[1]) : kWays.end();
    if (way == kWays.end()) return 2;
    way->second(argv[2], argv[3]);
    return 0;
}
