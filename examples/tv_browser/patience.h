// patience.h: how long a module waits for another one's reply.

#ifndef TV_BROWSER_PATIENCE_H
#define TV_BROWSER_PATIENCE_H

#include <chrono>

namespace tv_browser {

// The further up the asker, the longer: whoever is asked must have the time to give up on
// those that it asks in turn, and to say so.
constexpr std::chrono::milliseconds kPatienceWithEngine{400};
constexpr std::chrono::milliseconds kPatienceWithManager{600};
constexpr std::chrono::milliseconds kPatienceOfPeople{800};
constexpr std::chrono::milliseconds kPatienceWithCalled{1000};

}  // namespace tv_browser

#endif  // TV_BROWSER_PATIENCE_H
