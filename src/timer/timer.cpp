#include "base/simple_timer.h"

#include <memory>
#include <new>
#include <utility>

#include "base/logging/blog.h"
#include "base/logging/trace.h"
#include "os/no_cancellation.h"
#include "timer/scheduler.h"
#include "timer/timer_impl.h"

namespace tevalon::base::simple_timer {
namespace {

// Out of line, and once: in each of the operations they would be a tenth of the class's code.
__attribute__((noinline, cold)) void reportNoImpl(const char* function) {
    BLOG_AS(function, kLogError, "m_impl is NULL.\n");
}

__attribute__((noinline, cold)) void reportStarted(const char* function) {
    BLOG_AS(function, kLogError, "Must stop timer before changing its property.\n");
}

__attribute__((noinline, cold)) void reportNotStarted(const char* function,
                                                      const TimerImpl& timer) {
    BLOG_AS(function, kLogError, "Fail to start timer:'%s'.\n", timer.name().c_str());
}

// The scheduler may be the parent's as well.
__attribute__((noinline, cold)) void renewInForkedChild(TimerImpl& timer) {
    ensureScheduler();
    timer.renewInForkedChild();
}

}  // namespace

Timer::Timer(std::string name, TimeoutTime timeout, TimerHandler handler, void* userData,
             TimerType_e type) {
    ensureScheduler();
    try {
        m_impl = std::make_shared<TimerImpl>(this, std::move(name), timeout, std::move(handler),
                                             userData, type);
    } catch (const std::bad_alloc&) {
        BLOG(kLogError, "Fail to create TimerImpl.\n");
    }
}

Timer::~Timer() {
    const NoCancellation noCancellation;
    BLOG_TRACE_SCOPE();
    if (m_impl == nullptr) return;
    if (m_impl->isFromParent()) m_impl->renewInForkedChild();
    BLOG(kLogDebug, "Destroy timer:'%s'.\n", m_impl->name().c_str());
    if (m_impl->isStarted()) RemoveTimer(*m_impl);
    m_impl->stop();
    // stop() waits for one run by a flag that the first to end clears. Others may overlap it, or be
    // about to begin: their threads exist, and hold the implementation, but not this handle.
    m_impl->retire();
    // The last run may have started the timer once more.
    if (m_impl->isStarted()) RemoveTimer(*m_impl);
}

// A step of most operations, reported in their own names.
#define RETURN_WITHOUT_IMPL(result)                              \
    do {                                                         \
        if (m_impl == nullptr) {                                 \
            reportNoImpl(__func__);                              \
            return result;                                       \
        }                                                        \
        if (m_impl->isFromParent()) renewInForkedChild(*m_impl); \
    } while (false)

// A step of all that change a property.
#define RETURN_UNLESS_CHANGEABLE()     \
    do {                               \
        RETURN_WITHOUT_IMPL(kFailure); \
        if (m_impl->isStarted()) {     \
            reportStarted(__func__);   \
            return kFailure;           \
        }                              \
    } while (false)

int Timer::setProperty(const TimeoutTime& timeout, TimerHandler handler, void* userData,
                       TimerType_e type) {
    RETURN_UNLESS_CHANGEABLE();
    return m_impl->setProperty(timeout, std::move(handler), userData, type);
}

int Timer::changeTimeout(const TimeoutTime& timeout) {
    RETURN_UNLESS_CHANGEABLE();
    return m_impl->changeTimeout(timeout);
}

int Timer::changeType(TimerType_e type) {
    RETURN_UNLESS_CHANGEABLE();
    return m_impl->changeType(type);
}

int Timer::changeHandler(TimerHandler handler, void* userData) {
    RETURN_UNLESS_CHANGEABLE();
    return m_impl->changeHandler(std::move(handler), userData);
}

int Timer::start() {
    RETURN_WITHOUT_IMPL(kFailure);
    if (m_impl->isStarted()) return kSuccess;  // Looked at again under the scheduler's mutex.
    if (!m_impl->isValid()) {
        BLOG(kLogError, "Property of timer('%s') is invalid, cannot start.\n",
             m_impl->name().c_str());
        return kFailure;
    }
    if (m_impl->start() != kSuccess) {
        reportNotStarted(__func__, *m_impl);
        return kFailure;
    }
    try {
        scheduleTimer(*m_impl);
    } catch (const std::bad_alloc&) {
        reportNotStarted(__func__, *m_impl);
        return kFailure;
    }
    return kSuccess;
}

int Timer::stop() {
    RETURN_WITHOUT_IMPL(kFailure);
    BLOG(kLogDebug, "Stop timer:'%s'.\n", m_impl->name().c_str());
    if (m_impl->isStarted()) RemoveTimer(*m_impl);
    return m_impl->stop();
}

int Timer::stopNoBlock() {
    BLOG_TRACE_SCOPE();
    RETURN_WITHOUT_IMPL(kFailure);
    BLOG(kLogInfo, "m_impl is not NULL.\n");
    if (m_impl->isStarted()) RemoveTimer(*m_impl);
    return m_impl->stopNoBlock();
}

int Timer::restart() {
    RETURN_WITHOUT_IMPL(kFailure);
    if (stop() != kSuccess) {
        BLOG(kLogError, "Fail to stop timer:'%s'.\n", m_impl->name().c_str());
        return kFailure;
    }
    if (start() != kSuccess) {
        reportNotStarted(__func__, *m_impl);
        return kFailure;
    }
    return kSuccess;
}

bool Timer::isStarted() {
    RETURN_WITHOUT_IMPL(false);
    return m_impl->isStarted();
}

bool Timer::needStop() {
    RETURN_WITHOUT_IMPL(true);
    return m_impl->needStop();
}

std::string Timer::name() {
    RETURN_WITHOUT_IMPL(std::string());
    return m_impl->name();
}

}  // namespace tevalon::base::simple_timer
