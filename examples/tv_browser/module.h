// module.h: what every module of the browser is built on.

#ifndef TV_BROWSER_MODULE_H
#define TV_BROWSER_MODULE_H

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "base/event_dispatcher.h"
#include "delay.h"
#include "events.h"
#include "mistakes.h"
#include "timeline.h"

namespace tv_browser {

/// A module: a hub, a voice on the timeline, and requests and notices with typed payloads.
///
/// Lifecycle: construct, which registers the handlers; start(); stop(); destroy. A derived
/// module must be stopped before its destruction begins, because its handlers use it.
///
/// Who may wait for whom: a request blocks the asking module, so no circle of requests may
/// ever close. They flow downwards only:
///
///     viewer, broadcaster -> hbbtv_controller, op_app_host -> application_manager
///         -> browser_engine
///
/// News that has to go upwards is told, not asked. Only CallNotice, by which a session shows what
/// happens otherwise, has a module ask one that waits for it.
///
/// Thread-safety: start() and stop() belong to the owner's thread. Handlers run on the hub's
/// thread, one at a time; ask() and tell() may be called from them.
class Module {
public:
    /// @param timeline  Must outlive the module.
    Module(ModuleId id, Timeline& timeline);
    virtual ~Module() = default;

    Module(const Module&) = delete;
    Module& operator=(const Module&) = delete;

    ModuleId id() const { return m_id; }

    /// Makes the module reachable. Once only. Returns whether it is.
    ///
    /// A module that only asks and tells is never started: it needs no mailbox.
    bool start();

    /// Makes it unreachable, ends a delay that is running, and returns when the handler in
    /// hand has. Requests that still wait are never answered.
    void stop();

    /// Asks @p target and blocks until it replies or @p patience has passed.
    Reply ask(ModuleId target, std::unique_ptr<Message> request,
              std::chrono::milliseconds patience);

    /// Tells @p target and goes on.
    void tell(ModuleId target, std::unique_ptr<Message> notice);

    /// Says on the timeline what this module does.
    void note(const std::string& text) { m_timeline.add(m_id, Sign::Does, text); }

protected:
    /// Has @p handler answer the requests of @p type. It takes a const Payload& and returns a
    /// Reply.
    template <typename Payload, typename Handler>
    void onRequest(EventType type, Handler handler);

    /// Has @p handler take the notices of @p type that come from @p source, or from anybody
    /// for ModuleId::Everybody. It takes a const Payload&.
    template <typename Payload, typename Handler>
    void onNotice(ModuleId source, EventType type, Handler handler);

    /// Called, on the hub's thread, when the browser is about to end.
    virtual void standby() {}

private:
    using RequestHandler = std::function<Reply(const evt::EventParam*)>;
    using NoticeHandler = std::function<void(const evt::EventParam*)>;
    using EventHandler = std::function<void(evt::BrowserEvent&)>;

    void addRequestHandler(EventType type, RequestHandler handler);
    void addNoticeHandler(ModuleId source, EventType type, NoticeHandler handler);
    void addHandler(ModuleId source, EventType type, EventHandler handler);
    void handle(const EventHandler& handler, evt::BrowserEvent* p_event);
    std::shared_ptr<evt::BrowserEvent> makeEvent(std::unique_ptr<Message> message);
    void beSlowIfTold();
    void makeMistakesIfTold();
    void admitLateness(const evt::BrowserEvent& event, Reply reply);

    const ModuleId m_id;
    Timeline& m_timeline;
    Delay m_delay;
    std::chrono::milliseconds m_nextDelay{0};  // Handlers only.
    Mistakes m_mistakes;                       // Handlers only.
    bool m_started = false;                    // Owner's thread only.
    evt::EventHub m_hub;  // Last: its thread must end before what the handlers use goes.
};

template <typename Payload, typename Handler>
void Module::onRequest(EventType type, Handler handler) {
    addRequestHandler(type, [handler](const evt::EventParam* p_param) {
        const auto* p_payload = dynamic_cast<const Payload*>(p_param);
        return p_payload != nullptr ? handler(*p_payload) : Reply::Failed;
    });
}

template <typename Payload, typename Handler>
void Module::onNotice(ModuleId source, EventType type, Handler handler) {
    addNoticeHandler(source, type, [handler](const evt::EventParam* p_param) {
        const auto* p_payload = dynamic_cast<const Payload*>(p_param);
        if (p_payload != nullptr) handler(*p_payload);
    });
}

}  // namespace tv_browser

#endif  // TV_BROWSER_MODULE_H
