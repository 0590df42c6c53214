// timeline_row.h: a line of the timeline, and how it looks in a file and on a terminal.

#ifndef TV_BROWSER_TIMELINE_ROW_H
#define TV_BROWSER_TIMELINE_ROW_H

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include "events.h"

namespace tv_browser {

/// What kind of thing happened: the sign in front of it.
enum class Sign {
    Does,     ///< A module does something.
    Asks,     ///< It sends a request, and waits for the reply.
    Tells,    ///< It sends a notice, and goes on.
    Replied,  ///< It got the reply.
    GaveUp,   ///< It got no reply in time, or got one too late.
};

/// One thing that happened.
struct Row {
    double seconds = 0;  ///< Since the timeline was made.
    ModuleId module = ModuleId::Session;
    Sign sign = Sign::Does;
    std::string text;
    std::optional<std::chrono::duration<double, std::milli>> duration = std::nullopt;
};

/// How the lines of a timeline look. All are returned with their line ends.
class RowLayout {
public:
    virtual ~RowLayout() = default;

    /// The title, what the signs mean, and the names of the columns.
    virtual std::string heading(const std::string& title) const = 0;
    virtual std::string row(const Row& row) const = 0;
    virtual std::string chapter(double seconds, const std::string& text) const = 0;
};

/// For files and pipes: one line a row, however long, in columns that never move.
class PlainLayout : public RowLayout {
public:
    std::string heading(const std::string& title) const override;
    std::string row(const Row& row) const override;
    std::string chapter(double seconds, const std::string& text) const override;
};

/// For a terminal: no line is wider than it, as long as it has 60 columns; what does not fit goes
/// on below itself. Each module has its colour.
class TerminalLayout : public RowLayout {
public:
    TerminalLayout(std::size_t columns, bool colours);

    std::string heading(const std::string& title) const override;
    std::string row(const Row& row) const override;
    std::string chapter(double seconds, const std::string& text) const override;

private:
    std::string painted(const char* colour, const std::string& text) const;

    const std::size_t m_columns;
    const bool m_colours;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_TIMELINE_ROW_H
