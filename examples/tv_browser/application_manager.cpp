#include "application_manager.h"

#include <functional>
#include <optional>
#include <utility>

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

// Tells the viewer of a launch that takes long, until it is over.
class LoadingMessage {
public:
    using Note = std::function<void(const std::string&)>;

    LoadingMessage(const std::string& app, Note note)
        : m_text("\"loading " + app + "\""), m_note(std::move(note)) {
        m_timer.emplace(
            "launch", kLongLaunch, [this](Timer*, void*) { putUp(); }, nullptr,
            tevalon::base::simple_timer::ONCE);
        (void)m_timer->start();  // Without it the viewer waits without a word.
    }
    ~LoadingMessage() {
        m_timer.reset();  // Waits for a handler that runs; after it nothing is put up any more.
        if (m_isUp) m_note("takes down " + m_text);
    }

    LoadingMessage(const LoadingMessage&) = delete;
    LoadingMessage& operator=(const LoadingMessage&) = delete;

private:
    void putUp() {
        m_note("puts up " + m_text);
        m_isUp = true;
    }

    const std::string m_text;
    const Note m_note;
    bool m_isUp = false;  // The handler's until the timer has gone.
    std::optional<Timer> m_timer;
};

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
    const Reply loaded = load(request);
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

Reply ApplicationManager::load(const PageRequest& request) {
    const LoadingMessage message(request.app, [this](const std::string& text) { note(text); });
    return ask(
        ModuleId::BrowserEngine,
        std::make_unique<PageRequest>(EventType::LoadPage, "load", request.app, request.file),
        kPatienceWithEngine);
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
