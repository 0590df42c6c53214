#include "screen.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace tv_browser {
namespace {

constexpr std::size_t kUsualColumns = 80;

// A stream of its own for the descriptor's file; null where there is none to be had.
std::FILE* reopened(int descriptor) {
    const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (copy < 0) return nullptr;
    std::FILE* p_stream = fdopen(copy, "w");
    if (p_stream == nullptr) (void)close(copy);
    return p_stream;
}

std::size_t columnsOf(int descriptor) {
    winsize size = {};
    const bool isKnown = ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
    return isKnown ? size.ws_col : kUsualColumns;
}

bool wantsColours() {
    const char* p_terminal = std::getenv("TERM");
    const bool isDumb = p_terminal != nullptr && std::strcmp(p_terminal, "dumb") == 0;
    const char* p_noColour = std::getenv("NO_COLOR");
    return !isDumb && (p_noColour == nullptr || *p_noColour == '\0');
}

}  // namespace

Screen::Screen() {
    if (isatty(STDOUT_FILENO) != 1) return;
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0) return;
    std::FILE* p_terminal = reopened(STDOUT_FILENO);
    if (p_terminal != nullptr) {
        (void)std::fflush(stdout);
        (void)dup2(nowhere, STDOUT_FILENO);
        m_story = p_terminal;
    }
    (void)close(nowhere);
}

Screen::~Screen() {
    if (m_story == stdout) return;
    (void)std::fflush(stdout);  // While it still goes nowhere.
    (void)dup2(fileno(m_story), STDOUT_FILENO);
    (void)std::fclose(m_story);
}

std::unique_ptr<const RowLayout> Screen::layout() const {
    if (!isTerminal()) return std::make_unique<PlainLayout>();
    return std::make_unique<TerminalLayout>(columnsOf(fileno(m_story)), wantsColours());
}

}  // namespace tv_browser
