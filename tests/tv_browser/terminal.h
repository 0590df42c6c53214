// terminal.h: runs a program on a terminal.

#ifndef TESTS_TV_BROWSER_TERMINAL_H
#define TESTS_TV_BROWSER_TERMINAL_H

#include <string>
#include <utility>
#include <vector>

namespace test {

struct TerminalResult {
    int exitStatus = -1;  ///< -1 when a signal ended it.
    std::string shown;    ///< All that it wrote to the terminal; line ends are "\n".
};

/// Runs @p arguments to its end with a new terminal of so many columns as its standard input,
/// output and error, and with @p variables set beside ours. @p typed is typed on it at once, and
/// shown there too.
TerminalResult runOnTerminal(const std::vector<std::string>& arguments, unsigned short columns,
                             const std::vector<std::pair<std::string, std::string>>& variables,
                             const std::string& typed = "");

/// What is left without colours.
std::string withoutColours(const std::string& shown);

}  // namespace test

#endif  // TESTS_TV_BROWSER_TERMINAL_H
