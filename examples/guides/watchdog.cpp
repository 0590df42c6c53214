// watchdog.cpp: an operation that takes longer than it may.
#include <cstdio>
#include <future>

#include "base/timer.h"

using tevalon::base::timer::WatchDog;

int main() {
    std::promise<void> isReported;
    // The process's own is GlobalWatchDog(); one of one's own has its own callback.
    WatchDog watchDog;
    watchDog.setTimeoutCallback(
        [](void* p_context, WatchDog::WATCH_ID id, double seconds) {
            // Called again after each further period: only the first is of interest here.
            static bool isFirst = true;
            if (!isFirst) return;
            isFirst = false;
            std::printf("%s took longer than 0.2 s: %d\n", WatchDog::getWatchIdName(id),
                        seconds > 0.2);
            static_cast<std::promise<void>*>(p_context)->set_value();
        },
        &isReported);

    watchDog.beginWatch(WatchDog::eWatchID_app_show, 3600.0);
    watchDog.stopWatch(WatchDog::eWatchID_app_show);  // In time: nothing is said.

    watchDog.beginWatch(WatchDog::eWatchID_app_launch_new, 0.2);
    isReported.get_future().wait();  // The launch takes as long as that.
    watchDog.stopWatch(WatchDog::eWatchID_app_launch_new);
}
