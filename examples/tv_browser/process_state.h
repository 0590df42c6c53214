// process_state.h: what the browser process is doing, in its own names.

#ifndef TV_BROWSER_PROCESS_STATE_H
#define TV_BROWSER_PROCESS_STATE_H

#include <string>

namespace tv_browser {

/// Tells the library what the modules and events are called: its reports then name them.
void nameModulesAndEvents();

/// The library's state report; why there is none, where it cannot be had.
std::string stateOfProcess();

}  // namespace tv_browser

#endif  // TV_BROWSER_PROCESS_STATE_H
