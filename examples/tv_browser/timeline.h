// timeline.h: the story of a session as it happens.

#ifndef TV_BROWSER_TIMELINE_H
#define TV_BROWSER_TIMELINE_H

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

#include "base/synchronization/mutex.h"
#include "events.h"
#include "timeline_row.h"

namespace tv_browser {

/// Writes a row for each thing that happens, at once and whole, with the seconds since the
/// timeline was made.
///
/// Thread-safety: any thread may call any method. Rows stand in the order of their times.
class Timeline {
public:
    using Clock = std::chrono::steady_clock;

    /// @param p_output  Where the rows go. Not owned; must outlive the timeline.
    /// @param layout    How they look; never null.
    explicit Timeline(std::FILE* p_output,
                      std::unique_ptr<const RowLayout> layout = std::make_unique<PlainLayout>())
        : m_output(p_output), m_layout(std::move(layout)) {}

    /// Writes the title and explains the signs.
    ///
    /// @param title  One line, without its end.
    void begin(const std::string& title) TEVALON_EXCLUDES(m_mutex);

    void add(ModuleId module, Sign sign, const std::string& text) TEVALON_EXCLUDES(m_mutex);

    /// @param duration  Of the request that ended; shown in milliseconds behind the text.
    void add(ModuleId module, Sign sign, const std::string& text, Clock::duration duration)
        TEVALON_EXCLUDES(m_mutex);

    /// Starts a chapter.
    void chapter(const std::string& text) TEVALON_EXCLUDES(m_mutex);

    /// Writes a line behind an empty one, for what is no part of the story.
    void remark(const std::string& text) TEVALON_EXCLUDES(m_mutex);

    /// Whether every line could be written.
    bool complete() TEVALON_EXCLUDES(m_mutex);

private:
    void write(const std::string& lines) TEVALON_REQUIRES(m_mutex);
    double seconds() const;

    std::FILE* const m_output;
    const std::unique_ptr<const RowLayout> m_layout;
    const Clock::time_point m_start = Clock::now();
    tevalon::base::Mutex m_mutex;  // Leaf: nothing else is locked under it.
    bool m_complete TEVALON_GUARDED_BY(m_mutex) = true;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_TIMELINE_H
