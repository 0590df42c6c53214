#define BLOG_TAG "EventDispatcher"

#include <chrono>
#include <memory>
#include <new>

#include "base/event_dispatcher/browser_event.h"
#include "base/logging/blog.h"

namespace tevalon::base::event_dispatcher {

EventParam::~EventParam() = default;

std::int32_t EventParam::intValue() {
    return 0;
}

BrowserEvent::BrowserEvent(std::int32_t srcModule_, std::int32_t eventType_, EventParam* param_)
    : srcModule(srcModule_),
      eventType(eventType_),
      param(param_),
      waitResultMtx(nullptr),
      waitResultCv(nullptr),
      replied(false),
      result(kEventResultNone) {}

BrowserEvent::~BrowserEvent() {
    delete param;
    delete waitResultMtx;
    delete waitResultCv;
}

std::int32_t BrowserEvent::initWaitResultCv() {
    replied = false;
    if (waitResultMtx != nullptr && waitResultCv != nullptr) {
        BLOG(kLogInfo, "Already initialized.\n");
        return 0;
    }
    std::unique_ptr<std::mutex> mutex(new (std::nothrow) std::mutex());
    std::unique_ptr<std::condition_variable> cv(new (std::nothrow) std::condition_variable());
    if (mutex == nullptr || cv == nullptr) return 0;  // Unarmed; the wait will say so.
    waitResultMtx = mutex.release();
    waitResultCv = cv.release();
    return 0;
}

void BrowserEvent::replyResult(EventResult reply) {
    if (waitResultMtx == nullptr) {
        result = reply;
        replied = true;
        return;
    }
    const std::lock_guard<std::mutex> lock(*waitResultMtx);
    replied = true;
    result = reply;
    if (waitResultCv != nullptr) waitResultCv->notify_all();
}

std::int32_t BrowserEvent::waitForResult(std::int32_t timeout) {
    constexpr std::int32_t kNoLimit = -1;
    if (waitResultMtx == nullptr || waitResultCv == nullptr) {
        BLOG(kLogError, "waitResultMtx or waitResultCv is NULL.\n");
        return kEventResultNone;
    }
    std::unique_lock<std::mutex> lock(*waitResultMtx);
    return timeout == kNoLimit ? waitForEver(&lock) : waitUntilTimeout(&lock, timeout);
}

EventResult BrowserEvent::waitForEver(std::unique_lock<std::mutex>* p_lock) {
    waitResultCv->wait(*p_lock, [this] { return replied.load(); });
    return result;
}

EventResult BrowserEvent::waitUntilTimeout(std::unique_lock<std::mutex>* p_lock,
                                           std::int32_t timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    const bool answered =
        waitResultCv->wait_until(*p_lock, deadline, [this] { return replied.load(); });
    return answered ? result.load() : kEventResultTimeout;
}

}  // namespace tevalon::base::event_dispatcher
