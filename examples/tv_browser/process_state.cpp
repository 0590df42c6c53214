#include "process_state.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/diagnostics.h"
#include "events.h"

namespace tv_browser {
namespace {

namespace diagnostics = tevalon::base::diagnostics;

struct EventName {
    EventType type;
    const char* name;
};

constexpr EventName kEventNames[] = {
    {EventType::Tune, "tune"},
    {EventType::PressKey, "press key"},
    {EventType::SignalStart, "signal start"},
    {EventType::SignalStop, "signal stop"},
    {EventType::LaunchApp, "launch app"},
    {EventType::ShowApp, "show app"},
    {EventType::HideApp, "hide app"},
    {EventType::StopApp, "stop app"},
    {EventType::LoadPage, "load page"},
    {EventType::ShowPage, "show page"},
    {EventType::HidePage, "hide page"},
    {EventType::DropPage, "drop page"},
    {EventType::KeyToPage, "key to page"},
    {EventType::UnusedKey, "unused key"},
    {EventType::Channel, "channel"},
    {EventType::AppState, "app state"},
    {EventType::SlowNextTime, "slow next time"},
    {EventType::Standby, "standby"},
    {EventType::CallOther, "call other"},
    {EventType::CallBack, "call back"},
    {EventType::Greeting, "greeting"},
    {EventType::Misdial, "misdial"},
    {EventType::Remind, "remind"},
    {EventType::Silence, "silence"},
    {EventType::Hoard, "hoard"},
    {EventType::PageData, "page data"},
};

struct CloseFile {
    void operator()(std::FILE* p_file) const { (void)std::fclose(p_file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

std::string contentsOf(std::FILE* p_file) {
    std::rewind(p_file);
    std::string text;
    char piece[4096];
    while (const std::size_t read = std::fread(piece, 1, sizeof(piece), p_file)) {
        text.append(piece, read);
    }
    return text;
}

}  // namespace

// Named already, or a library without names: neither is a failure.
void nameModulesAndEvents() {
    for (const ModuleId module : {ModuleId::ApplicationManager, ModuleId::HbbtvController,
                                  ModuleId::BrowserEngine, ModuleId::OpAppHost, ModuleId::Session,
                                  ModuleId::Viewer, ModuleId::Broadcaster, ModuleId::Nobody}) {
        (void)diagnostics::nameModule(static_cast<std::int32_t>(module), nameOf(module));
    }
    for (const EventName& event : kEventNames) {
        (void)diagnostics::nameEvent(static_cast<std::int32_t>(event.type), event.name);
    }
}

std::string stateOfProcess() {
    const File file(std::tmpfile());
    if (file == nullptr) return std::string("no state report: ") + std::strerror(errno);
    const diagnostics::Status status = diagnostics::writeState(fileno(file.get()));
    if (status == diagnostics::Status::NotSupported) {
        return "no state report: the library was built without it";
    }
    std::string report = contentsOf(file.get());
    while (!report.empty() && report.back() == '\n') report.pop_back();
    return report;
}

}  // namespace tv_browser
