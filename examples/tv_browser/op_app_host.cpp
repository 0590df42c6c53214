#include "op_app_host.h"

#include <algorithm>

#include "patience.h"

namespace tv_browser {

OpAppHost::OpAppHost(Timeline& timeline) : Module(ModuleId::OpAppHost, timeline) {
    onNotice<ChannelNotice>(ModuleId::HbbtvController, EventType::Channel,
                            [this](const ChannelNotice& notice) { showBanner(notice); });
    onNotice<AppNotice>(ModuleId::ApplicationManager, EventType::AppState,
                        [this](const AppNotice& notice) { m_visibleApp.follow(notice); });
    onNotice<KeyRequest>(ModuleId::HbbtvController, EventType::UnusedKey,
                         [this](const KeyRequest& notice) { useKey(notice.key); });
}

void OpAppHost::showBanner(const ChannelNotice& notice) {
    note("shows the banner \"" + std::to_string(notice.channel) + "  " + notice.name + "\"");
}

void OpAppHost::useKey(const std::string& key) {
    if (key == "guide") return openGuide();
    if (key == "exit") return hideVisibleApp();
    if (key == "volume_up") return changeVolume(+1);
    if (key == "volume_down") return changeVolume(-1);
    note("has no use for key " + key + " either");
}

void OpAppHost::openGuide() {
    hideVisibleApp();
    note("opens the programme guide");
}

void OpAppHost::changeVolume(int step) {
    m_volume = std::clamp(m_volume + step, 0, 100);
    note("sets the volume to " + std::to_string(m_volume));
}

void OpAppHost::hideVisibleApp() {
    if (m_visibleApp.none()) return;
    // The application manager tells everybody what came of it.
    (void)ask(ModuleId::ApplicationManager,
              std::make_unique<AppRequest>(EventType::HideApp, "hide", m_visibleApp.name()),
              kPatienceWithManager);
}

}  // namespace tv_browser
