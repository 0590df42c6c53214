// mistakes.h: what modules do wrong, for sessions that show how it is found.

#ifndef TV_BROWSER_MISTAKES_H
#define TV_BROWSER_MISTAKES_H

#include <chrono>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "base/event_dispatcher.h"

namespace tv_browser {

/// Thread-safety: an object belongs to one thread; the reminder is everybody's.
class Mistakes {
public:
    /// The one reminder of the process: whoever starts it relies on it, and anybody can stop it.
    /// Begins anew where it runs. Whatever @p onDue uses must be there until stopReminder().
    ///
    /// @param onDue  Called after @p delay, on a thread of the timer's.
    static void startReminder(std::chrono::milliseconds delay, std::function<void()> onDue);
    static void stopReminder();  ///< Waits for @p onDue where that runs.

    /// Keeps an event, and so its payload, for as long as the module lives.
    void keep(std::shared_ptr<tevalon::base::event_dispatcher::BrowserEvent> event) {
        m_kept.push_back(std::move(event));
    }

private:
    std::vector<std::shared_ptr<tevalon::base::event_dispatcher::BrowserEvent>> m_kept;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_MISTAKES_H
