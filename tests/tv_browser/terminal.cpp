#include "tv_browser/terminal.h"

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <regex>
#include <stdexcept>

namespace test {

TerminalResult runOnTerminal(const std::vector<std::string>& arguments, unsigned short columns,
                             const std::vector<std::pair<std::string, std::string>>& variables,
                             const std::string& typed) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    winsize size = {};
    size.ws_col = columns;

    int controller = -1;
    const pid_t child = forkpty(&controller, nullptr, nullptr, &size);
    if (child < 0) throw std::runtime_error("no terminal");
    if (child == 0) {
        for (const auto& [name, value] : variables) (void)setenv(name.c_str(), value.c_str(), 1);
        (void)execv(pointers[0], pointers.data());
        _exit(127);
    }

    TerminalResult result;
    if (write(controller, typed.data(), typed.size()) != static_cast<ssize_t>(typed.size())) {
        throw std::runtime_error("nothing typed");
    }
    char piece[4096];
    for (ssize_t got = 0; (got = read(controller, piece, sizeof piece)) > 0;) {
        result.shown.append(piece, static_cast<std::size_t>(got));
    }
    int status = 0;
    const pid_t ended = waitpid(child, &status, 0);
    (void)close(controller);
    if (ended == child && WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
    result.shown.erase(std::remove(result.shown.begin(), result.shown.end(), '\r'),
                       result.shown.end());
    return result;
}

std::string withoutColours(const std::string& shown) {
    return std::regex_replace(shown, std::regex("\033\\[[0-9;]*m"), "");
}

}  // namespace test
