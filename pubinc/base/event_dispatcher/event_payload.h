// event_payload.h: events with a payload of any type, and requests with room for a reply of any.

#ifndef BASE_EVENT_DISPATCHER_EVENT_PAYLOAD_H
#define BASE_EVENT_DISPATCHER_EVENT_PAYLOAD_H

#include <cstdint>
#include <memory>
#include <utility>

#include "base/event_dispatcher/browser_event.h"
#include "base/event_dispatcher/event_hub.h"
#include "base/event_dispatcher/internal/typed_param.h"

namespace tevalon::base::event_dispatcher {

/// What a payload's type has to be, here and below: neither reference, array, const nor
/// over-aligned, and no EventParam, which is an event's param itself. Types are told apart by their
/// names and sizes, the same in all modules, with and without RTTI: two modules that mean different
/// types by one name must not exchange them. One without a name, or in an unnamed namespace, is
/// only ever the same within its own source file; so is GCC's of a function, while Clang leaves the
/// function out of the name. Two compilers may spell the arguments of a template differently: it is
/// another type then.
///
/// The module that makes an event must stay loaded until that is destroyed, as with an EventParam
/// of its own.
///
/// Returns a new event of @p hub's module that carries a T, made of @p args: by its constructor, or
/// as an aggregate. The event's param owns it; that one's intValue() is the value's where T is an
/// integer or an enumeration, and else 0. Throws what T's constructor throws, and std::bad_alloc.
///
///     hub.sendEvent(makeEvent<Channel>(hub, kTuned, 7, "Seven"), kGuide);
template <typename T, typename... Args>
TEVALON_BASE_LOCAL std::shared_ptr<BrowserEvent> makeEvent(const EventHub& hub,
                                                           std::int32_t eventType, Args&&... args) {
    std::shared_ptr<BrowserEvent> event = hub.createEvent(eventType);
    event->param = internal::makeTypedParam<T, void>(std::forward<Args>(args)...);
    return event;
}

/// The T that @p event carries, as long as the event lives; null when the event carries anything
/// else, or is null. Any thread may read it: it does not change once the event is sent.
///
///     if (const Channel* const p_channel = payload<Channel>(event)) show(*p_channel);
template <typename T>
TEVALON_BASE_LOCAL const T* payload(const std::shared_ptr<BrowserEvent>& event) {
    static_assert(internal::checkType<T>());
    if (event == nullptr) return nullptr;
    return static_cast<const T*>(internal::findTypedPart(event->param, internal::TypedPart::Value,
                                                         internal::TypeNameOf<T>::kName));
}

/// The payload of a request that asks for nothing in particular.
struct NoPayload {};

/// As makeEvent(), with room for one Reply, which a handler fills before it replies:
///
///     const auto request = makeRequest<ChannelList>(hub, kListChannels);
///     if (hub.sendEventSync(request, kScanner, 500) == 0) {
///         if (const ChannelList* const p_list = replyOf<ChannelList>(request)) show(*p_list);
///     }
///
///     hub.registerHandler(kListChannels, [](std::shared_ptr<BrowserEvent> request) {
///         (void)fillReply<ChannelList>(request, found());
///         request->replyResult(0);
///     });
///
/// The room is part of the event, which the handler holds: a caller that has given up meanwhile, or
/// is gone, is in nobody's way. It is filled once: make a new request for each time it is sent.
template <typename Reply, typename T = NoPayload, typename... Args>
TEVALON_BASE_LOCAL std::shared_ptr<BrowserEvent> makeRequest(const EventHub& hub,
                                                             std::int32_t eventType,
                                                             Args&&... args) {
    std::shared_ptr<BrowserEvent> event = hub.createEvent(eventType);
    event->param = internal::makeTypedParam<T, Reply>(std::forward<Args>(args)...);
    return event;
}

/// Makes the Reply that @p request has room for, of @p args. Any thread may call it: of several, as
/// of the handlers of several hubs, the first one fills it. False, and nothing is made, when it is
/// filled, or @p request is null or has no room for a Reply. Whoever waits is not woken:
/// replyResult() does that.
template <typename Reply, typename... Args>
[[nodiscard]] TEVALON_BASE_LOCAL bool fillReply(const std::shared_ptr<BrowserEvent>& request,
                                                Args&&... args) {
    static_assert(internal::checkType<Reply>());
    auto* const p_slot = internal::replySlotOf<Reply>(request.get());
    return p_slot != nullptr && p_slot->fill(std::forward<Args>(args)...);
}

/// What a handler has filled @p request with, as long as the request lives; null while it has not
/// or is about to, and as fillReply() else. Any thread may ask at any time, also after a time-out:
/// what it gets is complete, and does not change.
template <typename Reply>
TEVALON_BASE_LOCAL const Reply* replyOf(const std::shared_ptr<BrowserEvent>& request) {
    static_assert(internal::checkType<Reply>());
    auto* const p_slot = internal::replySlotOf<Reply>(request.get());
    return p_slot != nullptr ? p_slot->get() : nullptr;
}

}  // namespace tevalon::base::event_dispatcher

#endif  // BASE_EVENT_DISPATCHER_EVENT_PAYLOAD_H
