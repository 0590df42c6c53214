// browser_engine.h: loads the pages of applications and shows one of them.

#ifndef TV_BROWSER_BROWSER_ENGINE_H
#define TV_BROWSER_BROWSER_ENGINE_H

#include <map>
#include <string>

#include "module.h"
#include "page.h"

namespace tv_browser {

/// Asks nobody.
class BrowserEngine : public Module {
public:
    /// @param backend  What it draws with, for the timeline.
    BrowserEngine(Timeline& timeline, const std::string& backend);

private:
    Reply load(const PageRequest& request);
    Reply show(const std::string& app);
    Reply hide(const std::string& app);
    Reply drop(const std::string& app);
    Reply pressKey(const PageKeyRequest& request);

    // Handlers only, so without a lock.
    std::map<std::string, Page> m_pages;  // By application.
    std::string m_shownApp;               // Empty when none is.
};

}  // namespace tv_browser

#endif  // TV_BROWSER_BROWSER_ENGINE_H
