// op_app_host.h: hosts the operator's application, which is there on every channel.

#ifndef TV_BROWSER_OP_APP_HOST_H
#define TV_BROWSER_OP_APP_HOST_H

#include <string>

#include "module.h"
#include "visible_app.h"

namespace tv_browser {

/// Shows the channel banner and the programme guide, sets the volume, and takes every key
/// that no application had a use for. Asks the application manager.
class OpAppHost : public Module {
public:
    explicit OpAppHost(Timeline& timeline);

private:
    void showBanner(const ChannelNotice& notice);
    void useKey(const std::string& key);
    void openGuide();
    void changeVolume(int step);
    void hideVisibleApp();

    // Handlers only, so without a lock.
    VisibleApp m_visibleApp;
    int m_volume = 20;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_OP_APP_HOST_H
