// hbbtv_controller.h: the channel, the broadcaster's signals, and where a key goes.

#ifndef TV_BROWSER_HBBTV_CONTROLLER_H
#define TV_BROWSER_HBBTV_CONTROLLER_H

#include <cstdint>
#include <string>

#include "module.h"
#include "visible_app.h"

namespace tv_browser {

/// Asks the application manager and the browser engine.
class HbbtvController : public Module {
public:
    explicit HbbtvController(Timeline& timeline);

private:
    Reply tune(std::int32_t channel);
    Reply pressKey(const std::string& key);
    Reply signalStart(const PageRequest& request);
    Reply signalStop(const std::string& app);
    Reply passOn(const std::string& key);

    // Handlers only, so without a lock.
    std::int32_t m_channel = 0;  // 0: none yet.
    VisibleApp m_visibleApp;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_HBBTV_CONTROLLER_H
