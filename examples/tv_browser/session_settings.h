// session_settings.h: what holds for the whole process, known to every module.

#ifndef TV_BROWSER_SESSION_SETTINGS_H
#define TV_BROWSER_SESSION_SETTINGS_H

#include <string>

#include "browser_options.h"

namespace tv_browser {

/// Makes the options' settings known. Before the first module is made.
void publishSettings(const BrowserOptions& options);

/// What the engine draws with.
std::string backendSetting();

/// Whether keys get nowhere.
bool isInputDisabled();

}  // namespace tv_browser

#endif  // TV_BROWSER_SESSION_SETTINGS_H
