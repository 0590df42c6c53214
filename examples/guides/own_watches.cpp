// own_watches.cpp: watches that end with their scope, of the fixed set and of one's own.
#include <chrono>
#include <cstdio>
#include <future>
#include <string>

#include "base/timer.h"

using namespace std::chrono_literals;
using namespace tevalon::base::timer;

int main() {
    {
        // Of the fixed set, on the process's watchdog: in time, however the scope is left.
        const ScopedWatch watch(WatchDog::eWatchID_app_show, 1h);
    }

    std::promise<void> isReported;
    {
        // Of one's own, with a name and a callback of its own; nothing is logged.
        const NamedWatch watch(
            "tune", 100ms, [&isReported](const std::string& name, double seconds) {
                static bool isFirst = true;
                if (!isFirst) return;
                isFirst = false;
                std::printf("%s took longer than 0.1 s: %d\n", name.c_str(), seconds > 0.1);
                isReported.set_value();
            });
        isReported.get_future().wait();  // The channel takes as long as that.
    }
    std::printf("not watched any more\n");
}
