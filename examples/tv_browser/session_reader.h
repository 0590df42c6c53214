// session_reader.h: the commands of a session, line by line.

#ifndef TV_BROWSER_SESSION_READER_H
#define TV_BROWSER_SESSION_READER_H

#include <cstddef>
#include <istream>
#include <string>

#include "session_command.h"

namespace tv_browser {

/// Reads commands as they are asked for, so that a session can be typed while it plays.
///
/// Belongs to one thread.
class SessionReader {
public:
    enum class Status {
        Ok,     ///< *p_command was written.
        End,    ///< No line is left.
        Error,  ///< The line was refused; see error(). The next call reads the one behind it.
    };

    /// @param input       Must outlive the reader.
    /// @param name        Of the session, for error().
    /// @param pageFolder  Where relative page paths start; "" for the working directory.
    SessionReader(std::istream& input, const std::string& name, const std::string& pageFolder);

    /// Blocks for the next line that holds a command. A page that a command names is found and
    /// readable at that moment, or the line is refused.
    Status next(Command* p_command);

    /// "name:line: why" of the line that was refused last; for the first one that was not
    /// understood, with the commands that are known.
    const std::string& error() const { return m_error; }

private:
    Status refuse(const std::string& why);
    std::string listOnce();
    bool findPage(Command* p_command, std::string* p_why) const;

    std::istream& m_input;
    const std::string m_name;
    const std::string m_pageFolder;
    std::size_t m_lineNumber = 0;  // Of the line read last, counted from 1.
    bool m_hasListedCommands = false;
    std::string m_error;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_SESSION_READER_H
