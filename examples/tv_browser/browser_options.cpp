#include "browser_options.h"

#include <unistd.h>

#include <utility>

#include "base/utils.h"

namespace tv_browser {
namespace {

using tevalon::base::utils::CommandLine;

constexpr const char* kUsage =
    "Usage: tv_browser --session=FILE [options]\n"
    "Plays a session of a small TV browser: its story on standard output, the log on\n"
    "standard error; on a terminal the log goes into a file. The status is 0 when the\n"
    "session has ended, 2 when it makes no sense.\n\n";

bool chooseBackend(const CommandLine& commandLine, std::string* p_backend, std::string* p_why) {
    int chosen = 0;
    for (const auto& [option, backend] :
         {std::pair("sw", "software"), {"hw-dfb", "DirectFB"}, {"hw-gles", "OpenGL ES 2.0"}}) {
        if (!commandLine.HasOption(option)) continue;
        *p_backend = backend;
        ++chosen;
    }
    if (chosen > 1) *p_why = "only one of --sw, --hw-dfb and --hw-gles can be used";
    return chosen <= 1;
}

}  // namespace

bool readOptions(int argc, char** argv, BrowserOptions* p_options, std::string* p_why) {
    CommandLine commandLine(argc, argv, kUsage, "", true);
    commandLine.AddOption("session", 'S', true,
                          "Play the session in this file; '-' plays standard input, line by line",
                          true, nullptr);
    // placeLog() has read these two; here they are known and explained. Neither begins with the
    // other: the parser clears the first argument that holds an option's name.
    commandLine.AddOption("log", 'L', true, "Show the log beside the story on a terminal too",
                          false, nullptr);
    commandLine.AddOption("save-log", 'F', true,
                          "Where the log goes on a terminal instead of beside the story; "
                          "tv_browser.log by default",
                          true, nullptr);
    commandLine.Parse();

    // The parser moves what is no option to the end, and leaves optind in front of it.
    if (optind < argc) {
        *p_why = std::string("unexpected argument '") + argv[optind] +
                 "'; a session is given as --session=FILE";
        return false;
    }
    p_options->session = commandLine.GetOptionValue("session");
    p_options->url = commandLine.GetOptionValue("url");
    p_options->inputDisabled = commandLine.HasOption("disable-input");
    if (p_options->session.empty()) {
        *p_why =
            "which session? --session=FILE plays a file, --session=- standard input; "
            "--help tells more";
        return false;
    }
    return chooseBackend(commandLine, &p_options->backend, p_why);
}

}  // namespace tv_browser
