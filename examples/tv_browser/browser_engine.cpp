#define BLOG_TAG "TvBrowser"

#include "browser_engine.h"

#include <cstdio>
#include <cstring>

#include "base/logging.h"
#include "base/utils.h"
#include "session_settings.h"
#include "text_file.h"

namespace tv_browser {

using tevalon::base::kLogWarn;
using tevalon::base::utils::CheckSum;
using tevalon::base::utils::MD5;

BrowserEngine::BrowserEngine(Timeline& timeline)
    : Module(ModuleId::BrowserEngine, timeline),
      m_life([this](const std::string& text) { note(text); }) {
    onRequest<PageRequest>(EventType::LoadPage,
                           [this](const PageRequest& request) { return load(request); });
    onRequest<ShowPageRequest>(EventType::ShowPage,
                               [this](const ShowPageRequest& request) { return show(request); });
    onRequest<AppRequest>(EventType::HidePage,
                          [this](const AppRequest& request) { return hide(request.app); });
    onRequest<AppRequest>(EventType::DropPage,
                          [this](const AppRequest& request) { return drop(request.app); });
    onRequest<PageKeyRequest>(EventType::KeyToPage,
                              [this](const PageKeyRequest& request) { return pressKey(request); });
    note("draws with the " + backendSetting() + " backend");
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
    noteDigests(page, html);
    m_work.onWorkerThread(chore("decodes \"" + page.title + "\""));
    m_work.onBackgroundThread(chore("caches \"" + page.title + "\""));
    m_pages[request.app] = page;
    return Reply::Ok;
}

// What a broadcaster asks for when a page does not look as it was sent.
void BrowserEngine::noteDigests(const Page& page, const std::string& html) {
    MD5 md5(html);
    const auto* p_bytes = reinterpret_cast<const unsigned char*>(html.data());
    char crc[9];
    std::snprintf(crc, sizeof crc, "%08X",
                  CheckSum().crc_32(p_bytes, static_cast<unsigned int>(html.size())));
    note("\"" + page.title + "\" has MD5 " + md5.hexDigest() + ", CRC-32 " + crc);
}

Reply BrowserEngine::show(const ShowPageRequest& request) {
    const auto page = m_pages.find(request.app);
    if (page == m_pages.end()) return Reply::NotRunning;
    m_shownApp = request.app;
    const std::string& title = page->second.title;
    note("draws \"" + title + "\"");
    note("gives \"" + title + "\" the values " + request.values.convertToStringType());
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
