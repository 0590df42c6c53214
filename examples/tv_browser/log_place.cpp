#include "log_place.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "browser_process.h"

namespace tv_browser {
namespace {

constexpr const char* kLogFileVariable = "ZOR_DEBUG_FILE";
constexpr const char* kUsualFile = "tv_browser.log";

struct Wishes {
    bool logInStory = false;
    std::string file = kUsualFile;
};

Wishes readWishes(int argc, const char* const* argv) {
    constexpr std::string_view kLong = "--save-log";
    constexpr std::string_view kShort = "-F";
    Wishes wishes;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--log" || argument == "-L") {
            wishes.logInStory = true;
        } else if ((argument == kLong || argument == kShort) && i + 1 < argc) {
            wishes.file = argv[++i];
        } else if (argument.substr(0, kLong.size() + 1) == "--save-log=") {
            wishes.file = argument.substr(kLong.size() + 1);
        } else if (argument.substr(0, kShort.size()) == kShort) {
            wishes.file = argument.substr(kShort.size());
        }
    }
    return wishes;
}

bool wouldMix() {
    const char* p_file = std::getenv(kLogFileVariable);
    const bool isSent = p_file != nullptr && *p_file != '\0';
    return isatty(STDOUT_FILENO) == 1 && isatty(STDERR_FILENO) == 1 && !isSent;
}

bool beginAnew(const std::string& path) {
    std::FILE* p_file = std::fopen(path.c_str(), "we");
    return p_file != nullptr && std::fclose(p_file) == 0;
}

}  // namespace

std::string placeLog(int argc, const char* const* argv) {
    const Wishes wishes = readWishes(argc, argv);
    if (!wouldMix() || wishes.logInStory) return "";
    if (!beginAnew(wishes.file)) {
        complain("cannot write the log to '" + wishes.file + "': " + std::strerror(errno) +
                 "; it stands in the story");
        return "";
    }
    return setenv(kLogFileVariable, wishes.file.c_str(), 1) == 0 ? wishes.file : "";
}

}  // namespace tv_browser
