#define BLOG_TAG "TvBrowser"

#include "module.h"

#include <cinttypes>
#include <exception>
#include <utility>

#include "base/logging.h"
#include "patience.h"

namespace tv_browser {
namespace {

using namespace std::chrono_literals;
using tevalon::base::kLogDebug;
using tevalon::base::kLogError;
using tevalon::base::kLogInfo;
using tevalon::base::kLogWarn;

std::string addressed(ModuleId target, const std::string& text) {
    return std::string(nameOf(target)) + ": " + text;
}

std::string inMilliseconds(std::chrono::milliseconds duration) {
    return std::to_string(duration.count()) + " ms";
}

// For the log.
std::string describe(const evt::BrowserEvent& event) {
    const auto* p_message = dynamic_cast<const Message*>(event.param);
    const std::string what = p_message != nullptr ? p_message->text : "nothing";
    return "event " + std::to_string(event.eventType) + " from module " +
           std::to_string(event.srcModule) + ", '" + what + "'";
}

}  // namespace

Module::Module(ModuleId id, Timeline& timeline)
    : m_id(id), m_timeline(timeline), m_hub(static_cast<std::int32_t>(id)) {}

bool Module::start() {
    onNotice<SlowNotice>(ModuleId::Everybody, EventType::SlowNextTime,
                         [this](const SlowNotice& notice) {
                             m_nextDelay = std::chrono::milliseconds(notice.delayMs);
                         });
    onRequest<Message>(EventType::Standby, [this](const Message&) {
        standby();
        return Reply::Ok;
    });
    onNotice<CallNotice>(ModuleId::Everybody, EventType::CallOther, [this](const CallNotice& call) {
        (void)ask(call.other, std::make_unique<CallBackRequest>(m_id), kPatienceWithCalled);
    });
    onRequest<CallBackRequest>(EventType::CallBack, [this](const CallBackRequest& request) {
        return passedUp(ask(request.caller,
                            std::make_unique<Message>(EventType::Greeting, "are you there?"),
                            kPatienceWithCalled));
    });
    onRequest<Message>(EventType::Greeting, [](const Message&) { return Reply::Ok; });
    makeMistakesIfTold();
    m_started = evt::evtdispch_register_hub(&m_hub) == 0;
    if (!m_started) {
        BLOG(kLogError, "'%s' cannot start.\n", nameOf(m_id));
        return false;
    }
    BLOG(kLogInfo, "'%s' started.\n", nameOf(m_id));
    note("is ready, as module " + std::to_string(m_hub.moduleId()));
    return true;
}

// For sessions that show how mistakes are found; see mistakes.h.
void Module::makeMistakesIfTold() {
    onNotice<Message>(ModuleId::Everybody, EventType::Misdial, [this](const Message&) {
        tell(ModuleId::Nobody, std::make_unique<Message>(EventType::Greeting, "are you there?"));
    });
    onNotice<RemindNotice>(ModuleId::Everybody, EventType::Remind,
                           [this](const RemindNotice& notice) {
                               Mistakes::startReminder(std::chrono::milliseconds(notice.delayMs),
                                                       [this] { note("is reminded"); });
                           });
    onNotice<Message>(ModuleId::Everybody, EventType::Silence,
                      [](const Message&) { Mistakes::stopReminder(); });
    onNotice<HoardNotice>(ModuleId::Everybody, EventType::Hoard, [this](const HoardNotice& notice) {
        for (std::int32_t i = 0; i < notice.count; ++i) {
            (void)m_hub.sendEvent(makeEvent(std::make_unique<PageDataNotice>()),
                                  static_cast<std::int32_t>(m_id));
        }
    });
    (void)m_hub.registerHandler(
        static_cast<std::int32_t>(ModuleId::Everybody),
        static_cast<std::int32_t>(EventType::PageData),
        [this](const std::shared_ptr<evt::BrowserEvent>& event) { m_mistakes.keep(event); });
}

void Module::stop() {
    if (!m_started) return;
    m_delay.cancel();
    Mistakes::stopReminder();
    (void)evt::evtdispch_unregister_hub(&m_hub);  // It fails for a null hub only.
    m_started = false;
    BLOG(kLogInfo, "'%s' stopped.\n", nameOf(m_id));
}

Reply Module::ask(ModuleId target, std::unique_ptr<Message> request,
                  std::chrono::milliseconds patience) {
    m_timeline.add(m_id, Sign::Asks, addressed(target, request->text));
    request->patience = patience;
    const auto event = makeEvent(std::move(request));
    const auto start = Timeline::Clock::now();
    const auto reply = static_cast<Reply>(m_hub.sendEventSync(
        event, static_cast<std::int32_t>(target), static_cast<std::int32_t>(patience.count())));
    const auto duration = Timeline::Clock::now() - start;

    if (reply == Reply::TimedOut) {
        BLOG(kLogWarn, "'%s' got no answer from '%s' within %" PRId64 " ms.\n", nameOf(m_id),
             nameOf(target), static_cast<std::int64_t>(patience.count()));
        m_timeline.add(m_id, Sign::GaveUp,
                       addressed(target, "no answer within " + inMilliseconds(patience)), duration);
    } else {
        m_timeline.add(m_id, Sign::Replied, addressed(target, textOf(reply)), duration);
    }
    return reply;
}

void Module::tell(ModuleId target, std::unique_ptr<Message> notice) {
    m_timeline.add(m_id, Sign::Tells, addressed(target, notice->text));
    const auto event = makeEvent(std::move(notice));
    // Whoever does not care has no handler, and says so with a status: that is no failure.
    (void)m_hub.sendEvent(event, static_cast<std::int32_t>(target));
}

std::shared_ptr<evt::BrowserEvent> Module::makeEvent(std::unique_ptr<Message> message) {
    auto event = m_hub.createEvent(static_cast<std::int32_t>(message->type));
    message->sentAt = Timeline::Clock::now();
    event->param = message.release();  // The event owns it now.
    return event;
}

void Module::addRequestHandler(EventType type, RequestHandler handler) {
    addHandler(ModuleId::Everybody, type, [this, handler](evt::BrowserEvent& event) {
        beSlowIfTold();
        const Reply reply = handler(event.param);
        admitLateness(event, reply);
        event.replyResult(static_cast<evt::EventResult>(reply));
    });
}

void Module::addNoticeHandler(ModuleId source, EventType type, NoticeHandler handler) {
    addHandler(source, type, [handler](evt::BrowserEvent& event) { handler(event.param); });
}

void Module::addHandler(ModuleId source, EventType type, EventHandler handler) {
    const std::int32_t status =
        m_hub.registerHandler(static_cast<std::int32_t>(source), static_cast<std::int32_t>(type),
                              [this, handler](const std::shared_ptr<evt::BrowserEvent>& event) {
                                  handle(handler, event.get());
                              });
    if (status != 0) {
        BLOG(kLogError, "'%s' cannot take events of type %d: status %d.\n", nameOf(m_id),
             static_cast<int>(type), status);
    }
}

// An exception that left a handler would end the process.
void Module::handle(const EventHandler& handler, evt::BrowserEvent* p_event) {
    BLOG_TRACE_SCOPE();
    BLOG(kLogDebug, "'%s' takes %s.\n", nameOf(m_id), describe(*p_event).c_str());
    try {
        handler(*p_event);
    } catch (const std::exception& error) {
        BLOG(kLogError, "'%s' drops %s: %s.\n", nameOf(m_id), describe(*p_event).c_str(),
             error.what());
    }
}

void Module::beSlowIfTold() {
    if (m_nextDelay == 0ms) return;
    note("is busy for " + inMilliseconds(m_nextDelay));
    m_delay.wait(m_nextDelay);
    m_nextDelay = 0ms;
}

void Module::admitLateness(const evt::BrowserEvent& event, Reply reply) {
    const auto* p_message = dynamic_cast<const Message*>(event.param);
    if (p_message == nullptr || p_message->patience == 0ms) return;
    const auto elapsed = Timeline::Clock::now() - p_message->sentAt;
    if (elapsed <= p_message->patience) return;
    m_timeline.add(m_id, Sign::GaveUp,
                   "answers '" + p_message->text + "' only now: " + textOf(reply), elapsed);
}

}  // namespace tv_browser
