// browser_engine.h: loads the pages of applications and shows one of them.

#ifndef TV_BROWSER_BROWSER_ENGINE_H
#define TV_BROWSER_BROWSER_ENGINE_H

#include <map>
#include <string>

#include "module.h"
#include "page.h"
#include "page_life.h"
#include "pool_work.h"

namespace tv_browser {

/// Asks nobody.
class BrowserEngine : public Module {
public:
    explicit BrowserEngine(Timeline& timeline);

private:
    Reply load(const PageRequest& request);
    Reply show(const ShowPageRequest& request);
    Reply hide(const std::string& app);
    Reply drop(const std::string& app);
    Reply pressKey(const PageKeyRequest& request);

    void noteDigests(const Page& page, const std::string& html);

    /// Notes, on the thread that does it, that @p what is done there.
    PoolWork::Work chore(const std::string& what);

    // Handlers only, so without a lock.
    std::map<std::string, Page> m_pages;  // By application.
    std::string m_shownApp;               // Empty when none is.
    PageLife m_life;
    PoolWork m_work;  // Last: waits for its work, which notes what it does.
};

}  // namespace tv_browser

#endif  // TV_BROWSER_BROWSER_ENGINE_H
