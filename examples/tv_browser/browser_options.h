// browser_options.h: what the command line asks for.

#ifndef TV_BROWSER_BROWSER_OPTIONS_H
#define TV_BROWSER_BROWSER_OPTIONS_H

#include <string>

namespace tv_browser {

struct BrowserOptions {
    std::string session;  ///< A file, or "-" for standard input.
    std::string url;      ///< The page to begin with; empty for none.
    std::string backend = "default";
    bool inputDisabled = false;
    std::string logFile;  ///< Where the log was sent; empty where it was left alone.
};

/// Reads the options. With --help it prints them and ends the process with status 0. Options
/// that are unknown are left alone, as in every program of the browser: they may be for the
/// engine. What decides on the log file was read before; see placeLog().
/// Returns whether the rest makes sense; if not, *p_why tells why it does not.
///
/// @param argc,argv  Of main(). What was understood is erased.
bool readOptions(int argc, char** argv, BrowserOptions* p_options, std::string* p_why);

}  // namespace tv_browser

#endif  // TV_BROWSER_BROWSER_OPTIONS_H
