// application_manager.h: launches, shows, hides and stops the applications.

#ifndef TV_BROWSER_APPLICATION_MANAGER_H
#define TV_BROWSER_APPLICATION_MANAGER_H

#include <map>
#include <string>

#include "module.h"
#include "operation_watch.h"

namespace tv_browser {

/// Knows which applications run, and tells everybody when that changes. Asks the browser
/// engine. Tells before it replies: who asked can rely on everybody having been told.
class ApplicationManager : public Module {
public:
    explicit ApplicationManager(Timeline& timeline);

private:
    Reply launch(const PageRequest& request);
    Reply load(const PageRequest& request);
    Reply show(const std::string& app);
    Reply hide(const std::string& app);
    Reply stopApp(const std::string& app);
    void stopAll();
    void standby() override { stopAll(); }

    Reply askEngine(EventType type, const std::string& verb, const std::string& app);
    void tellState(const std::string& app, AppState state);

    // Handlers only, so without a lock.
    std::map<std::string, std::string> m_running;  // Application to its instance.
    std::string m_visible;                         // Empty when none is.
    OperationWatch m_watch;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_APPLICATION_MANAGER_H
