// payload_module.h: what a module that exchanges payloads offers.

#ifndef TESTS_EVENT_DISPATCHER_PAYLOAD_MODULE_H
#define TESTS_EVENT_DISPATCHER_PAYLOAD_MODULE_H

#include <memory>
#include <string>
#include <vector>

#include "base/event_dispatcher.h"

struct SharedPayload {
    int number;
    std::string text;
};

template <typename T>
struct SharedList {
    std::vector<T> items;
};

struct PayloadModule {
    using Event = std::shared_ptr<tevalon::base::event_dispatcher::BrowserEvent>;
    using Hub = tevalon::base::event_dispatcher::EventHub;

    Event (*makeShared)(const Hub& hub, int number);
    Event (*makePrivate)(const Hub& hub);
    Event (*makeRequest)(const Hub& hub);
    int (*numberOfShared)(const Event& event);  ///< -1 where it is none.
    bool (*isPrivate)(const Event& event);
    bool (*fill)(const Event& request, int number);
    int (*filled)(const Event& request);  ///< -1 where it is none.
};

using PayloadModuleEntry = const PayloadModule* (*)();
inline constexpr const char* kPayloadModuleEntry = "payload_module";

#endif  // TESTS_EVENT_DISPATCHER_PAYLOAD_MODULE_H
