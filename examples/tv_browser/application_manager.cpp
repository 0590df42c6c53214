#include "application_manager.h"

#include "base/simple_timer.h"
#include "base/utils.h"
#include "patience.h"

namespace tv_browser {
namespace {

using tevalon::base::container::CommonValue;
using tevalon::base::container::Point;
using tevalon::base::simple_timer::Timer;
using tevalon::base::timer::WatchDog;

// Beyond it the viewer is told that something is on its way.
constexpr tevalon::base::simple_timer::TimeoutTime kLongLaunch = {0, 150, 0};

// What a page gets to know: its instance, the size of the screen, whether it may take keys.
CommonValue valuesFor(const std::string& instance) {
    return CommonValue::Array{instance, Point{1280, 720}, true};
}

}  // namespace

ApplicationManager::ApplicationManager(Timeline& timeline)
    : Module(ModuleId::ApplicationManager, timeline),
      m_watch([this](const std::string& text) { note(text); }) {
    onRequest<PageRequest>(EventType::LaunchApp,
                           [this](const PageRequest& request) { return launch(request); });
    onRequest<AppRequest>(EventType::ShowApp,
                          [this](const AppRequest& request) { return show(request.app); });
    onRequest<AppRequest>(EventType::HideApp,
                          [this](const AppRequest& request) { return hide(request.app); });
    onRequest<AppRequest>(EventType::StopApp,
                          [this](const AppRequest& request) { return stopApp(request.app); });
    // Applications belong to their channel.
    onNotice<ChannelNotice>(ModuleId::HbbtvController, EventType::Channel,
                            [this](const ChannelNotice&) { stopAll(); });
}

Reply ApplicationManager::launch(const PageRequest& request) {
    if (m_running.count(request.app) != 0) return Reply::AlreadyRunning;
    const OperationWatch::Operation operation(m_watch, WatchDog::eWatchID_app_launch_new);
    Timer longLaunch(
        "launch", kLongLaunch,
        [this, &request](Timer*, void*) { note("puts up \"loading " + request.app + "\""); },
        nullptr, tevalon::base::simple_timer::ONCE);
    (void)longLaunch.start();  // Without it the viewer waits without a word.
    const Reply loaded =
        ask(ModuleId::BrowserEngine,
            std::make_unique<PageRequest>(EventType::LoadPage, "load", request.app, request.file),
            kPatienceWithEngine);
    if (loaded == Reply::TimedOut) {
        // It may still load the page some time, and nobody will want it then.
        tell(ModuleId::BrowserEngine,
             std::make_unique<AppRequest>(EventType::DropPage, "drop", request.app));
    }
    if (loaded != Reply::Ok) return passedUp(loaded);
    const std::string instance = tevalon::base::generateUUID();
    note("makes " + request.app + " instance " + instance);
    m_running[request.app] = instance;
    tellState(request.app, AppState::Hidden);
    return Reply::Ok;
}

Reply ApplicationManager::show(const std::string& app) {
    if (m_running.count(app) == 0) return Reply::NotRunning;
    if (m_visible == app) return Reply::Ok;
    const OperationWatch::Operation operation(m_watch, WatchDog::eWatchID_app_show);
    const Reply shown =
        ask(ModuleId::BrowserEngine,
            std::make_unique<ShowPageRequest>(app, valuesFor(m_running[app])), kPatienceWithEngine);
    if (shown != Reply::Ok) return passedUp(shown);
    if (!m_visible.empty()) tellState(m_visible, AppState::Hidden);
    m_visible = app;
    tellState(app, AppState::Visible);
    return Reply::Ok;
}

Reply ApplicationManager::hide(const std::string& app) {
    if (m_running.count(app) == 0) return Reply::NotRunning;
    if (m_visible != app) return Reply::Ok;
    const OperationWatch::Operation operation(m_watch, WatchDog::eWatchID_app_hide);
    const Reply hidden = askEngine(EventType::HidePage, "hide", app);
    if (hidden != Reply::Ok) return passedUp(hidden);
    m_visible.clear();
    tellState(app, AppState::Hidden);
    return Reply::Ok;
}

Reply ApplicationManager::stopApp(const std::string& app) {
    if (m_running.count(app) == 0) return Reply::NotRunning;
    const OperationWatch::Operation operation(m_watch, WatchDog::eWatchID_app_stop);
    // Whatever the engine replies, the application is over: the engine drops the page as soon
    // as it gets to it.
    const Reply dropped = askEngine(EventType::DropPage, "drop", app);
    m_running.erase(app);
    if (m_visible == app) m_visible.clear();
    tellState(app, AppState::Stopped);
    return passedUp(dropped);
}

void ApplicationManager::stopAll() {
    while (!m_running.empty()) {
        const std::string app = m_running.begin()->first;
        (void)stopApp(app);  // It is over in any case.
    }
}

Reply ApplicationManager::askEngine(EventType type, const std::string& verb,
                                    const std::string& app) {
    return ask(ModuleId::BrowserEngine, std::make_unique<AppRequest>(type, verb, app),
               kPatienceWithEngine);
}

void ApplicationManager::tellState(const std::string& app, AppState state) {
    tell(ModuleId::Everybody, std::make_unique<AppNotice>(app, state));
}

}  // namespace tv_browser
