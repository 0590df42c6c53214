// events.h: what the modules of the browser say to each other.

#ifndef TV_BROWSER_EVENTS_H
#define TV_BROWSER_EVENTS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "base/container.h"
#include "base/event_dispatcher.h"

namespace tv_browser {

namespace evt = tevalon::base::event_dispatcher;

/// Who speaks. The first four have a mailbox and can be asked; the others only ask and tell.
enum class ModuleId : std::int32_t {
    ApplicationManager = 10,
    HbbtvController = 20,
    BrowserEngine = 30,
    OpAppHost = 40,
    Session = 100,
    Viewer = 101,
    Broadcaster = 102,
    Nobody = 199,  ///< Is told something by mistake; see mistakes.h.
    Everybody = evt::kAnyModule,
};

const char* nameOf(ModuleId module);

/// The module with a mailbox that has this name.
std::optional<ModuleId> moduleNamed(const std::string& name);

/// The names that moduleNamed() knows, separated by commas.
std::string moduleNames();

/// What is asked or told. A message of each type always has the same payload, named beside it.
enum class EventType : std::int32_t {
    Tune = 1,      ///< TuneRequest, to the HbbTV controller.
    PressKey,      ///< KeyRequest, to the HbbTV controller.
    SignalStart,   ///< PageRequest, to the HbbTV controller.
    SignalStop,    ///< AppRequest, to the HbbTV controller.
    LaunchApp,     ///< PageRequest, to the application manager.
    ShowApp,       ///< AppRequest, to the application manager.
    HideApp,       ///< AppRequest, to the application manager.
    StopApp,       ///< AppRequest, to the application manager.
    LoadPage,      ///< PageRequest, to the browser engine.
    ShowPage,      ///< ShowPageRequest, to the browser engine. Covers the page that was shown.
    HidePage,      ///< AppRequest, to the browser engine.
    DropPage,      ///< AppRequest, to the browser engine.
    KeyToPage,     ///< PageKeyRequest, to the browser engine.
    UnusedKey,     ///< KeyRequest, told to the operator application's host.
    Channel,       ///< ChannelNotice, told to everybody by the HbbTV controller.
    AppState,      ///< AppNotice, told to everybody by the application manager.
    SlowNextTime,  ///< SlowNotice, told to any module.
    Standby,       ///< Message, to any module, before it is stopped.
    CallOther,     ///< CallNotice, told to any module.
    CallBack,      ///< CallBackRequest, to any module.
    Greeting,      ///< Message, to any module.
    Misdial,       ///< Message, told to any module; this and the next ones are for mistakes.h.
    Remind,        ///< RemindNotice, told to any module.
    Silence,       ///< Message, told to any module.
    Hoard,         ///< HoardNotice, told to any module.
    PageData,      ///< PageDataNotice, told by a module to itself.
};

/// What a module replies.
enum class Reply : evt::EventResult {
    NotDelivered = evt::kEventResultNone,  ///< Never replied: the request did not arrive.
    Ok = 0,
    TimedOut = evt::kEventResultTimeout,  ///< Never replied: the module did not answer in time.
    NotRunning = 2,
    AlreadyRunning = 3,
    NoSuchChannel = 4,
    PageUnreadable = 5,
    KeyNotUsed = 6,
    KeyPassedOn = 7,
    ModuleSilent = 8,  ///< A module that had to be asked in turn did not answer in time.
    Failed = 9,
};

const char* textOf(Reply reply);

/// What a module replies when it had to ask another one, and got @p fromBelow.
inline Reply passedUp(Reply fromBelow) {
    return fromBelow == Reply::TimedOut ? Reply::ModuleSilent : fromBelow;
}

/// The base of all payloads. Must not change once it is sent.
struct Message : evt::EventParam {
    Message(EventType type_, std::string text_) : type(type_), text(std::move(text_)) {}

    const EventType type;
    const std::string text;  ///< What is asked or told, in words.

    // Set by the module that sends.
    std::chrono::steady_clock::time_point sentAt{};
    std::chrono::milliseconds patience{0};  ///< How long the sender waits; 0 when it does not.
};

struct TuneRequest : Message {
    explicit TuneRequest(std::int32_t channel_)
        : Message(EventType::Tune, "tune to channel " + std::to_string(channel_)),
          channel(channel_) {}
    std::int32_t intValue() override { return channel; }

    const std::int32_t channel;
};

struct KeyRequest : Message {
    /// @param type_  PressKey or UnusedKey.
    KeyRequest(EventType type_, const std::string& key_)
        : Message(type_, (type_ == EventType::UnusedKey ? "nobody used key " : "key ") + key_),
          key(key_) {}

    const std::string key;
};

struct PageKeyRequest : Message {
    PageKeyRequest(const std::string& app_, const std::string& key_)
        : Message(EventType::KeyToPage, "key " + key_ + " for " + app_), app(app_), key(key_) {}

    const std::string app;
    const std::string key;
};

struct AppRequest : Message {
    /// @param verb  What to do with the application.
    AppRequest(EventType type_, const std::string& verb, const std::string& app_)
        : Message(type_, verb + " " + app_), app(app_) {}

    const std::string app;
};

struct ShowPageRequest : AppRequest {
    /// @param values_  For the page to read.
    ShowPageRequest(const std::string& app_, tevalon::base::container::CommonValue values_)
        : AppRequest(EventType::ShowPage, "show", app_), values(std::move(values_)) {}

    const tevalon::base::container::CommonValue values;
};

struct PageFile {
    std::string shown;  ///< As the session has it.
    std::string path;   ///< Where it is found from the working directory.
};

struct PageRequest : Message {
    /// @param verb  What to do with the application.
    PageRequest(EventType type_, const std::string& verb, const std::string& app_,
                const PageFile& file_)
        : Message(type_, verb + " " + app_ + " from " + file_.shown), app(app_), file(file_) {}

    const std::string app;
    const PageFile file;
};

struct ChannelNotice : Message {
    ChannelNotice(std::int32_t channel_, const std::string& name_)
        : Message(EventType::Channel, "the channel is " + std::to_string(channel_) + ", " + name_),
          channel(channel_),
          name(name_) {}
    std::int32_t intValue() override { return channel; }

    const std::int32_t channel;
    const std::string name;
};

enum class AppState { Hidden, Visible, Stopped };

struct AppNotice : Message {
    AppNotice(const std::string& app_, AppState state_);

    const std::string app;
    const AppState state;
};

struct SlowNotice : Message {
    explicit SlowNotice(std::int32_t delayMs_)
        : Message(EventType::SlowNextTime,
                  "take " + std::to_string(delayMs_) + " ms over the next answer"),
          delayMs(delayMs_) {}
    std::int32_t intValue() override { return delayMs; }

    const std::int32_t delayMs;
};

struct CallNotice : Message {
    explicit CallNotice(ModuleId other_)
        : Message(EventType::CallOther, std::string("call ") + nameOf(other_)), other(other_) {}

    const ModuleId other;
};

struct RemindNotice : Message {
    explicit RemindNotice(std::int32_t delayMs_)
        : Message(EventType::Remind, "remind me in " + std::to_string(delayMs_) + " ms"),
          delayMs(delayMs_) {}
    std::int32_t intValue() override { return delayMs; }

    const std::int32_t delayMs;
};

struct HoardNotice : Message {
    explicit HoardNotice(std::int32_t count_)
        : Message(EventType::Hoard, "keep the next " + std::to_string(count_) + " payloads"),
          count(count_) {}
    std::int32_t intValue() override { return count; }

    const std::int32_t count;
};

struct PageDataNotice : Message {
    PageDataNotice() : Message(EventType::PageData, "a piece of a page"), data(kBytes, '.') {}

    static constexpr std::size_t kBytes = std::size_t{64} * 1024;
    const std::string data;
};

struct CallBackRequest : Message {
    explicit CallBackRequest(ModuleId caller_)
        : Message(EventType::CallBack, "call me back, then answer"), caller(caller_) {}

    const ModuleId caller;
};

}  // namespace tv_browser

#endif  // TV_BROWSER_EVENTS_H
