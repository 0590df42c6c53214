// remote_control.h: the keys that a viewer can press.

#ifndef TV_BROWSER_REMOTE_CONTROL_H
#define TV_BROWSER_REMOTE_CONTROL_H

#include <string>

namespace tv_browser {

bool isKey(const std::string& name);

/// The names that isKey() knows, separated by commas.
std::string keyNames();

}  // namespace tv_browser

#endif  // TV_BROWSER_REMOTE_CONTROL_H
