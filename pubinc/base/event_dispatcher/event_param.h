// event_param.h: the base of what an event carries.

#ifndef BASE_EVENT_DISPATCHER_EVENT_PARAM_H
#define BASE_EVENT_DISPATCHER_EVENT_PARAM_H

#include <cstdint>

#include "base/export.h"

namespace tevalon::base::event_dispatcher {

/// Derive from it to give an event a payload of your own. A payload is read without a lock by
/// every handler that gets its event, so it must not change once the event has been sent.
class TEVALON_BASE_EXPORT EventParam {
public:
    EventParam() = default;
    EventParam(const EventParam&) = default;
    EventParam& operator=(const EventParam&) = default;
    virtual ~EventParam();

    /// One number, for payloads that are little more. 0 unless overridden.
    virtual std::int32_t intValue();
};

}  // namespace tevalon::base::event_dispatcher

#endif  // BASE_EVENT_DISPATCHER_EVENT_PARAM_H
