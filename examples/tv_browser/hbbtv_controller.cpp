#include "hbbtv_controller.h"

#include <cstddef>
#include <iterator>

#include "patience.h"

namespace tv_browser {
namespace {

constexpr const char* kChannelNames[] = {"City One", "Film Two", "Sport Three", "Kids Four"};

// Null when there is no such channel. Channels count from 1.
const char* channelName(std::int32_t channel) {
    const auto count = static_cast<std::int32_t>(std::size(kChannelNames));
    if (channel < 1 || channel > count) return nullptr;
    return kChannelNames[static_cast<std::size_t>(channel - 1)];
}

}  // namespace

HbbtvController::HbbtvController(Timeline& timeline) : Module(ModuleId::HbbtvController, timeline) {
    onRequest<TuneRequest>(EventType::Tune,
                           [this](const TuneRequest& request) { return tune(request.channel); });
    onRequest<KeyRequest>(EventType::PressKey,
                          [this](const KeyRequest& request) { return pressKey(request.key); });
    onRequest<PageRequest>(EventType::SignalStart,
                           [this](const PageRequest& request) { return signalStart(request); });
    onRequest<AppRequest>(EventType::SignalStop,
                          [this](const AppRequest& request) { return signalStop(request.app); });
    onNotice<AppNotice>(ModuleId::ApplicationManager, EventType::AppState,
                        [this](const AppNotice& notice) { m_visibleApp.follow(notice); });
}

Reply HbbtvController::tune(std::int32_t channel) {
    const char* name = channelName(channel);
    if (name == nullptr) return Reply::NoSuchChannel;
    if (channel == m_channel) return Reply::Ok;
    m_channel = channel;
    tell(ModuleId::Everybody, std::make_unique<ChannelNotice>(channel, name));
    return Reply::Ok;
}

Reply HbbtvController::pressKey(const std::string& key) {
    if (m_visibleApp.none()) return passOn(key);
    const Reply used =
        ask(ModuleId::BrowserEngine, std::make_unique<PageKeyRequest>(m_visibleApp.name(), key),
            kPatienceWithEngine);
    // The application may have been stopped meanwhile: then nobody used the key either.
    if (used == Reply::KeyNotUsed || used == Reply::NotRunning) return passOn(key);
    return passedUp(used);
}

Reply HbbtvController::signalStart(const PageRequest& request) {
    return passedUp(ask(
        ModuleId::ApplicationManager,
        std::make_unique<PageRequest>(EventType::LaunchApp, "launch", request.app, request.file),
        kPatienceWithManager));
}

Reply HbbtvController::signalStop(const std::string& app) {
    return passedUp(ask(ModuleId::ApplicationManager,
                        std::make_unique<AppRequest>(EventType::StopApp, "stop", app),
                        kPatienceWithManager));
}

Reply HbbtvController::passOn(const std::string& key) {
    tell(ModuleId::OpAppHost, std::make_unique<KeyRequest>(EventType::UnusedKey, key));
    return Reply::KeyPassedOn;
}

}  // namespace tv_browser
