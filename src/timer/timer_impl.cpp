// Logged under the name timer.cpp; the offset, more than that file's lines, keeps a line number
// unique. scheduler.cpp has 1000.
#define BLOG_FILE "timer.cpp"
#define BLOG_LINE (2000 + __LINE__)

#include "timer/timer_impl.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "activity/waiting.h"
#include "base/logging/blog.h"
#include "base/logging/trace.h"
#include "os/monotonic_time.h"
#include "record/record.h"
#include "timer/run_activity.h"

namespace tevalon::base::simple_timer {
namespace {

bool isZeroPeriod(const TimeoutTime& timeout, TimerType_e type) {
    return type == CONTINUE && timeout.sec == 0 && timeout.msec == 0 && timeout.usec == 0;
}

__attribute__((noinline, cold)) void reportZeroPeriod(const char* function) {
    BLOG_AS(function, kLogError, "When type is CONTINUE, the timeout cannot be {0, 0, 0}.\n");
}

}  // namespace

void reportClockFailure(const char* function) {
    const int error = errno;
    BLOG_AS(function, kLogError, "Fail to get now time, errorno(%d):'%s'.\n", error,
            strerror(error));
}

TimerImpl::TimerImpl(Timer* p_timer, std::string name, const TimeoutTime& timeout,
                     TimerHandler handler, void* userData, TimerType_e type)
    : m_timer(p_timer),
      m_name(std::move(name)),
      m_timeout(normalised(timeout)),
      m_handler(std::move(handler)),
      m_userData(userData),
      m_type(type),
      m_runs(0),
      m_isRetired(false) {
    if (isZeroPeriod(timeout, type)) {
        reportZeroPeriod(__func__);
        m_isValid = false;
    }
    if (!*m_handler) m_isValid = false;
}

int TimerImpl::setProperty(const TimeoutTime& timeout, TimerHandler handler, void* userData,
                           TimerType_e type) {
    if (isZeroPeriod(timeout, type)) {
        reportZeroPeriod(__func__);
        m_isValid = false;
        return kFailure;
    }
    SharedHandler newHandler(std::move(handler));
    const MutexGuard lock(m_mutex);
    caculateTimeout(timeout);
    m_handler.swap(newHandler);
    m_userData = userData;
    m_type = type;
    m_isValid = true;
    return kSuccess;
}

int TimerImpl::changeTimeout(const TimeoutTime& timeout) {
    if (isZeroPeriod(timeout, type())) {
        reportZeroPeriod(__func__);
        return kFailure;
    }
    caculateTimeout(timeout);
    return kSuccess;
}

int TimerImpl::changeType(TimerType_e type) {
    const Timeout timeout = m_timeout;
    if (type == CONTINUE && timeout.sec == 0 && timeout.usec == 0) {
        BLOG(kLogError, "When the timeout is {0, 0, 0}, you cannot change type to CONTINUE.\n");
        return kFailure;
    }
    m_type = type;
    return kSuccess;
}

int TimerImpl::changeHandler(TimerHandler handler, void* userData) {
    // The old handler is destroyed unlocked, by whoever lets go of it last.
    SharedHandler newHandler(std::move(handler));
    const MutexGuard lock(m_mutex);
    m_handler.swap(newHandler);
    m_userData = userData;
    return kSuccess;
}

int TimerImpl::start() {
    BLOG_TRACE_SCOPE();
    if (caculateExpiredTime() != kSuccess) {
        BLOG(kLogError, "Fail to start timer:'%s'.\n", m_name.c_str());
        return kFailure;
    }
    m_needStop.store(false, std::memory_order_release);
    m_isRunning.store(
        false,
        std::memory_order_release);  // No notify: a stop() that is already waiting keeps waiting.
    return kSuccess;
}

int TimerImpl::stop() {
    BLOG(kLogDebug, "Will stop timer:'%s'.\n", m_name.c_str());
    // Sequentially consistent, like m_isRunning: a run sets m_isRunning, then its handler may ask
    // needStop(); we set m_needStop, then read m_isRunning. At least one of the two sees the other.
    m_needStop = true;
    BLOG(kLogAlways, "Before wait timer:'%s' stop.\n", m_name.c_str());
    if (m_isRunning && !RunningThread::isThisThreadOf(this)) waitForRun();
    BLOG(kLogAlways, "After wait timer:'%s' stop.\n", m_name.c_str());
    return kSuccess;
}

void TimerImpl::waitForRun() {
    const activity::Waiting wait(record::Wait::Stop, this);
    MutexLock lock(m_mutex);
    while (m_isRunning) lock.wait(m_cond);
}

int TimerImpl::stopNoBlock() {
    m_needStop.store(true, std::memory_order_release);
    return kSuccess;
}

void TimerImpl::retire() {
    // The run that destroys its own timer continues: it holds what it still touches, which the
    // Timer is not.
    const unsigned ownRuns = RunningThread::isThisThreadOf(this) ? 1 : 0;
    // Declared before the lock: destroyed after it is released, and here rather than with the last
    // reference, which the scheduler may drop under its mutex.
    SharedHandler handler;
    MutexLock lock(m_mutex);
    m_isRetired = true;
    if (m_runs != ownRuns) {
        const activity::Waiting wait(record::Wait::Destructor, this);
        while (m_runs != ownRuns) lock.wait(m_cond);
    }
    handler.swap(m_handler);
}

void TimerImpl::renewInForkedChild() {
    renewOnce(&m_process, [this]() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        replaceUndestroyed(&m_mutex, &m_cond);
        m_place.forget();
        m_runs = 0;
        m_isRetired = false;
        m_isStarted = false;
        m_isRunning = false;
        m_needStop = false;
    });
}

// A run that has begun is ended by the destructor, for a handler may leave in other ways than by
// returning: pthread_exit() and cancellation unwind the stack.
class TimerImpl::HandlerRun {
public:
    HandlerRun(TimerImpl* p_timer, const RunningThread& thread)
        : m_timer(*p_timer), m_thread(thread) {
        const MutexGuard lock(m_timer.m_mutex);
        if (m_timer.m_isRetired) return;
        m_timer.m_isRunning = true;
        ++m_timer.m_runs;
        m_handler.share(m_timer.m_handler);
        m_userData = m_timer.m_userData;
        m_activity.emplace(&m_timer);
        if (record::isOn()) record::timerRunBegun(&m_timer, m_timer.m_name.c_str());
    }
    ~HandlerRun() {
        if (!m_handler || m_thread.isOwnerGone()) return;
        if (record::isOn()) record::timerRunEnded(&m_timer);
        // Before m_runs says that the run is over: ~Timer() may return then, and the client unload
        // the handler's code.
        m_handler.reset();
        const MutexGuard lock(m_timer.m_mutex);
        m_activity.reset();
        m_timer.m_isRunning = false;
        --m_timer.m_runs;
        m_timer.m_cond.notify_all();
    }

    HandlerRun(const HandlerRun&) = delete;
    HandlerRun& operator=(const HandlerRun&) = delete;

    void callHandler() const {
        if (m_handler) (*m_handler)(m_timer.m_timer, m_userData);
    }

private:
    TimerImpl& m_timer;
    const RunningThread& m_thread;
    SharedHandler m_handler;  // None where the timer has been retired.
    void* m_userData = nullptr;
    std::optional<RunActivity> m_activity;
};

void TimerImpl::runHandler() {
    // Declared first, destroyed last: ~HandlerRun may destroy what the handler captured, and with
    // it the Timer, whose retire() must still recognise this thread.
    const RunningThread thread(this);
    const HandlerRun run(this, thread);
    run.callHandler();
}

void TimerImpl::reschedule(const ExpiredTime& now) {
    constexpr Timeout kShortestPause = {0, 1000};
    const bool isKnown = caculateExpiredTime() == kSuccess;  // It has reported its own failure.
    if (isKnown && isPositive(m_timeout)) return;
    // A period that is over before it begins, or an expiry that stays in the past, would start
    // threads without end.
    const ExpiredTime earliest = after(now, kShortestPause);
    if (m_expiredTime.load() < earliest) m_expiredTime.store(earliest);
}

int TimerImpl::caculateExpiredTime() {
    errno = 0;
    const std::optional<timespec> now = readMonotonicClock();
    if (!now) {
        reportClockFailure(__func__);
        return kFailure;
    }
    m_expiredTime.store(after(fromTimespec(*now), m_timeout), std::memory_order_release);
    return kSuccess;
}

void TimerImpl::caculateTimeout(const TimeoutTime& timeout) {
    m_timeout = normalised(timeout);
}

}  // namespace tevalon::base::simple_timer
