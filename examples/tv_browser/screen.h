// screen.h: standard output while a session plays.

#ifndef TV_BROWSER_SCREEN_H
#define TV_BROWSER_SCREEN_H

#include <cstdio>
#include <memory>

#include "timeline_row.h"

namespace tv_browser {

/// Where the story goes: standard output, which it has for itself if that is a terminal. What the
/// library prints there, and writes to the log as well, is then dropped.
///
/// One at a time, and while no other thread writes to standard output; its destructor makes that
/// what it was.
class Screen {
public:
    Screen();
    ~Screen();

    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    bool isTerminal() const { return m_story != stdout; }

    /// Where the story is to be written. Ends with the screen.
    std::FILE* story() const { return m_story; }

    /// How it is to look there.
    std::unique_ptr<const RowLayout> layout() const;

private:
    std::FILE* m_story = stdout;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_SCREEN_H
