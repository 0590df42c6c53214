// browser_process.h: the life of the browser, from its first session command to its last.

#ifndef TV_BROWSER_BROWSER_PROCESS_H
#define TV_BROWSER_BROWSER_PROCESS_H

#include <string>

#include "browser_options.h"

namespace tv_browser {

/// What the process ends with.
enum class ExitStatus {
    Ok = 0,
    Failed = 1,   ///< The browser could not do its work.
    Refused = 2,  ///< What it was given made no sense, or was not there.
};

/// Plays the session. A session from a file is read to its end first, and not played at all
/// if a line of it is refused; one from standard input is played up to that line. Reports a
/// failure on standard error.
ExitStatus runBrowser(const BrowserOptions& options);

/// Writes "tv_browser: " and @p why on standard error.
void complain(const std::string& why);

}  // namespace tv_browser

#endif  // TV_BROWSER_BROWSER_PROCESS_H
