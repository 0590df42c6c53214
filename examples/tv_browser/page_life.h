// page_life.h: what a page does by itself while it is shown.

#ifndef TV_BROWSER_PAGE_LIFE_H
#define TV_BROWSER_PAGE_LIFE_H

#include <functional>
#include <string>
#include <thread>

#include "base/simple_timer.h"
#include "base/synchronization/mutex.h"
#include "base/threading.h"

namespace tv_browser {

/// Lets the shown page's heart beat and has it poll its server; both rest while no page is
/// shown.
///
/// Thread-safety: belongs to one thread. The notes come from others.
class PageLife {
public:
    using Note = std::function<void(const std::string&)>;

    /// @param note  Called with what the page does, from threads of its own.
    explicit PageLife(Note note);
    ~PageLife();

    PageLife(const PageLife&) = delete;
    PageLife& operator=(const PageLife&) = delete;

    /// The page of this title is shown now, instead of the one before.
    void begin(const std::string& title);
    /// No page is shown any more.
    void end();

private:
    /// Polls for the page, paused while there is none. Only the first poll of each showing is
    /// told.
    class Poller : public tevalon::base::Threading::Runnable {
    public:
        explicit Poller(const Note& note);
        void execute() override;
        void beginFor(const std::string& title) TEVALON_EXCLUDES(m_titleMutex);

    private:
        std::string takeNews() TEVALON_EXCLUDES(m_titleMutex);

        const Note& m_note;
        tevalon::base::Mutex m_titleMutex;
        std::string m_newTitle TEVALON_GUARDED_BY(m_titleMutex);  // Empty once it was told.
    };

    const Note m_note;
    tevalon::base::simple_timer::Timer m_heartbeat;
    Poller m_poller;
    std::thread m_pollerThread;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_PAGE_LIFE_H
