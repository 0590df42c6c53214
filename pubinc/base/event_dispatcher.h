// event_dispatcher.h: everything of the event family; event_dispatcher/ holds one header per
// class.

#ifndef BASE_EVENT_DISPATCHER_H
#define BASE_EVENT_DISPATCHER_H

#include "base/event_dispatcher/browser_event.h"
#include "base/event_dispatcher/event_dispatcher.h"
#include "base/event_dispatcher/event_hub.h"
#include "base/event_dispatcher/event_param.h"
#include "base/event_dispatcher/event_payload.h"
#include "base/event_dispatcher/hub_registration.h"
#include "base/event_dispatcher/newest_event.h"

#endif  // BASE_EVENT_DISPATCHER_H
