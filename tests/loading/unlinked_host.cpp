// A program that does not know the library: only the plugins that it loads do.
//
// It is called with the way to go, and with the paths of both plugins and of the library.

#include <map>
#include <memory>
#include <string>
#include <thread>

#include "loading/loaded_plugin.h"

namespace {

struct Paths {
    const char* p_one;
    const char* p_two;
    const char* p_library;
};

void loadBoth(const Paths& paths, int mode) {
    const LoadedPlugin one(paths.p_one, mode);
    const LoadedPlugin two(paths.p_two, mode);
    const int mainThread = one.work(1);

    checkSame(one.services(), two.services());
    check(mainThread > 0, "everything works for the first plugin");
    check(two.work(2) == mainThread, "both plugins share a main timer thread");
}

void local(const Paths& paths) {
    loadBoth(paths, RTLD_LOCAL);
}

void global(const Paths& paths) {
    loadBoth(paths, RTLD_GLOBAL);
}

void atOnce(const Paths& paths) {
    // Unloaded one after the other: what the loader does then looks like a data race.
    std::unique_ptr<LoadedPlugin> one;
    std::unique_ptr<LoadedPlugin> two;
    const auto loadAndWork = [](const char* p_path, int moduleId, auto* p_plugin) {
        *p_plugin = std::make_unique<LoadedPlugin>(p_path);
        check((*p_plugin)->work(moduleId) > 0, "everything works");
    };
    std::thread first(loadAndWork, paths.p_one, 1, &one);
    std::thread second(loadAndWork, paths.p_two, 2, &two);
    first.join();
    second.join();

    checkSame(one->services(), two->services());
}

// What the library had begun before goes on: it stays when its users go.
void again(const Paths& paths) {
    Services first = {};
    int mainThread = 0;
    for (int round = 0; round < 4; ++round) {
        {
            const LoadedPlugin plugin(round % 2 == 0 ? paths.p_one : paths.p_two);
            const Services services = plugin.services();
            if (round == 0) first = services;
            checkSame(services, first);
            const int thread = plugin.work(1);
            if (round == 0) mainThread = thread;
            check(thread > 0 && thread == mainThread, "the threads outlive the plugins");
        }
        check(!isLoaded(paths.p_one) && !isLoaded(paths.p_two), "plugins go");
        check(isLoaded(paths.p_library), "the library stays");
    }
}

// With one plugin gone and the other at work.
void exitAtWork(const Paths& paths) {
    static const LoadedPlugin* const s_two = new LoadedPlugin(paths.p_two);  // Never unloaded.
    s_two->startEndlessWork();
    const LoadedPlugin one(paths.p_one);
    check(one.work(1) > 0, "everything works");
}

// The library by itself, never used.
void libraryAlone(const Paths& paths) {
    for (int round = 0; round < 3; ++round) {
        void* const p_library = dlopen(paths.p_library, RTLD_NOW | RTLD_LOCAL);
        check(p_library != nullptr, "the library can be loaded alone");
        check(dlclose(p_library) == 0, "it can be let go");
        check(isLoaded(paths.p_library), "it stays all the same");
    }
}

// The one entry point that is unmangled but no C.
void location(const Paths& paths) {
    using Function = std::string (*)(const char*, int, const char*);
    void* const p_library = dlopen(paths.p_library, RTLD_NOW | RTLD_LOCAL);
    const auto describe = reinterpret_cast<Function>(loadedSymbol(p_library, "dbg_location"));

    check(describe("x/z", 42, "start") == "x/z:42:start():", "dbg_location() tells the place");
    check(describe("z", 3, nullptr) == "z:3:", "it stops at what is missing");
    check(dlclose(p_library) == 0, "the library can be let go");
}

const std::map<std::string, void (*)(const Paths&)> kWays = {
    {"local", local},       {"global", global},           {"at-once", atOnce},
    {"again", again},       {"exit-at-work", exitAtWork}, {"library-alone", libraryAlone},
    {"location", location},
};

}  // namespace

int main(int argc, char** argv) {
    const auto way = argc == 5 ? kWays.find(argv[1]) : kWays.end();
    if (way == kWays.end()) return 2;
    const Paths paths = {argv[2], argv[3], argv[4]};
    check(!isLoaded(paths.p_library), "the program does not link the library");
    way->second(paths);
    return 0;
}
