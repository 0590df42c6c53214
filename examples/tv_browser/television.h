// television.h: the modules of the browser, wired up.

#ifndef TV_BROWSER_TELEVISION_H
#define TV_BROWSER_TELEVISION_H

#include "application_manager.h"
#include "browser_engine.h"
#include "hbbtv_controller.h"
#include "op_app_host.h"

namespace tv_browser {

/// Lifecycle: construct, turnOn(), turnOff(); destruction turns it off if need be.
/// Belongs to one thread.
class Television {
public:
    /// @param timeline  Must outlive the television.
    explicit Television(Timeline& timeline);
    ~Television() { turnOff(); }

    Television(const Television&) = delete;
    Television& operator=(const Television&) = delete;

    /// Starts every module. Returns whether all of them started.
    bool turnOn();

    /// Stops every module.
    void turnOff();

private:
    BrowserEngine m_engine;
    ApplicationManager m_manager;
    OpAppHost m_opAppHost;
    HbbtvController m_controller;

    // From those that are asked to those that ask: a module can reach all it needs as soon as
    // it has started, and until it has stopped.
    Module* const m_modules[4] = {&m_engine, &m_manager, &m_opAppHost, &m_controller};
};

}  // namespace tv_browser

#endif  // TV_BROWSER_TELEVISION_H
