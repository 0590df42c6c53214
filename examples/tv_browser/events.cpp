#include "events.h"

namespace tv_browser {
namespace {

constexpr ModuleId kModulesWithMailbox[] = {ModuleId::ApplicationManager, ModuleId::HbbtvController,
                                            ModuleId::BrowserEngine, ModuleId::OpAppHost};

const char* textOf(AppState state) {
    switch (state) {
        case AppState::Hidden:
            return "runs hidden";
        case AppState::Visible:
            return "is visible";
        case AppState::Stopped:
            return "has stopped";
    }
    return "is in an unknown state";
}

}  // namespace

const char* nameOf(ModuleId module) {
    switch (module) {
        case ModuleId::ApplicationManager:
            return "application_manager";
        case ModuleId::HbbtvController:
            return "hbbtv_controller";
        case ModuleId::BrowserEngine:
            return "browser_engine";
        case ModuleId::OpAppHost:
            return "op_app_host";
        case ModuleId::Session:
            return "session";
        case ModuleId::Viewer:
            return "viewer";
        case ModuleId::Broadcaster:
            return "broadcaster";
        case ModuleId::Nobody:
            return "nobody";
        case ModuleId::Everybody:
            return "everybody";
    }
    return "unknown module";
}

std::optional<ModuleId> moduleNamed(const std::string& name) {
    for (const ModuleId module : kModulesWithMailbox) {
        if (name == nameOf(module)) return module;
    }
    return std::nullopt;
}

std::string moduleNames() {
    std::string names;
    for (const ModuleId module : kModulesWithMailbox) {
        if (!names.empty()) names += ", ";
        names += nameOf(module);
    }
    return names;
}

const char* textOf(Reply reply) {
    switch (reply) {
        case Reply::NotDelivered:
            return "could not be delivered";
        case Reply::Ok:
            return "ok";
        case Reply::TimedOut:
            return "no answer in time";
        case Reply::NotRunning:
            return "not running";
        case Reply::AlreadyRunning:
            return "already running";
        case Reply::NoSuchChannel:
            return "no such channel";
        case Reply::PageUnreadable:
            return "page cannot be read";
        case Reply::KeyNotUsed:
            return "page has no use for it";
        case Reply::KeyPassedOn:
            return "passed on to op_app_host";
        case Reply::ModuleSilent:
            return "no answer from further down";
        case Reply::Failed:
            return "failed";
    }
    return "unknown reply";
}

AppNotice::AppNotice(const std::string& app_, AppState state_)
    : Message(EventType::AppState, app_ + " " + textOf(state_)), app(app_), state(state_) {}

}  // namespace tv_browser
