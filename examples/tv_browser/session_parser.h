// session_parser.h: one line of a session, understood or refused.

#ifndef TV_BROWSER_SESSION_PARSER_H
#define TV_BROWSER_SESSION_PARSER_H

#include <optional>
#include <string>

#include "session_command.h"

namespace tv_browser {

struct ParsedLine {
    std::optional<Command> command;  ///< None for a refused line, or one that orders nothing.
    std::string error;               ///< Why the line was refused; empty when it was not.
};

/// Reads a line without its end (a carriage return may be left). Words are separated by blanks; a
/// word that starts with '#' and all behind it is a comment. Nothing is passed over in silence:
/// what is not understood to its last character is refused.
///
/// Looks at nothing but the line: a page's path is left as it stands.
ParsedLine parseLine(const std::string& typed);

/// All commands with their arguments, separated by commas.
std::string knownCommands();

}  // namespace tv_browser

#endif  // TV_BROWSER_SESSION_PARSER_H
