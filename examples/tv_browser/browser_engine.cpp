#define BLOG_TAG "TvBrowser"

#include "browser_engine.h"

#include <cstring>

#include "base/logging.h"
#include "text_file.h"

namespace tv_browser {

using tevalon::base::kLogWarn;

BrowserEngine::BrowserEngine(Timeline& timeline, const std::string& backend)
    : Module(ModuleId::BrowserEngine, timeline),
      m_life([this](const std::string& text) { note(text); }) {
    onRequest<PageRequest>(EventType::LoadPage,
                           [this](const PageRequest& request) { return load(request); });
    onRequest<AppRequest>(EventType::ShowPage,
                          [this](const AppRequest& request) { return show(request.app); });
    onRequest<AppRequest>(EventType::HidePage,
                          [this](const AppRequest& request) { return hide(request.app); });
    onRequest<AppRequest>(EventType::DropPage,
                          [this](const AppRequest& request) { return drop(request.app); });
    onRequest<PageKeyRequest>(EventType::KeyToPage,
                              [this](const PageKeyRequest& request) { return pressKey(request); });
    note("draws with the " + backend + " backend");
}

Reply BrowserEngine::load(const PageRequest& request) {
    std::string html;
    const int error = readTextFile(request.file.path, &html);
    if (error != 0) {
        BLOG(kLogWarn, "Cannot read page '%s': %s.\n", request.file.path.c_str(),
             std::strerror(error));
        return Reply::PageUnreadable;
    }
    const Page page = parsePage(html);
    note("loads \"" + page.title + "\", " + std::to_string(page.sizeBytes) + " bytes");
    m_work.onWorkerThread(chore("decodes \"" + page.title + "\""));
    m_work.onBackgroundThread(chore("caches \"" + page.title + "\""));
    m_pages[request.app] = page;
    return Reply::Ok;
}

Reply BrowserEngine::show(const std::string& app) {
    const auto page = m_pages.find(app);
    if (page == m_pages.end()) return Reply::NotRunning;
    m_shownApp = app;
    const std::string& title = page->second.title;
    note("draws \"" + title + "\"");
    m_work.onMainThread(chore("lays out \"" + title + "\""));
    m_work.onForegroundThread(chore("paints \"" + title + "\""));
    m_life.begin(title);
    return Reply::Ok;
}

Reply BrowserEngine::hide(const std::string& app) {
    if (m_pages.count(app) == 0) return Reply::NotRunning;
    if (m_shownApp != app) return Reply::Ok;
    m_shownApp.clear();
    m_life.end();
    note("clears the screen");
    return Reply::Ok;
}

Reply BrowserEngine::drop(const std::string& app) {
    const auto page = m_pages.find(app);
    if (page == m_pages.end()) return Reply::NotRunning;
    (void)hide(app);  // It is loaded, and need not be shown.
    note("drops \"" + page->second.title + "\"");
    m_pages.erase(page);
    return Reply::Ok;
}

Reply BrowserEngine::pressKey(const PageKeyRequest& request) {
    const auto page = m_pages.find(request.app);
    if (page == m_pages.end()) return Reply::NotRunning;
    const auto action = page->second.keys.find(request.key);
    if (action == page->second.keys.end()) return Reply::KeyNotUsed;
    note("\"" + page->second.title + "\" " + action->second);
    return Reply::Ok;
}

PoolWork::Work BrowserEngine::chore(const std::string& what) {
    return [this, what] { note(what + " on " + poolThreadName()); };
}

}  // namespace tv_browser
