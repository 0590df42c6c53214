#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include "base/logging/blog.h"
#include "base/logging/trace.h"
#include "base/simple_timer.h"
#include "detached_thread.h"
#include "thread_name.h"
#include "timer/descriptor_set.h"
#include "timer/expired_time.h"
#include "timer/precise_wait.h"
#include "timer/timer_impl.h"
#include "timer/timer_list.h"

namespace tevalon::base::simple_timer {
namespace {

constexpr int CMD_START = 1;
constexpr int CMD_RESCHEDULE = 2;

constexpr int kReadEnd = 0;
constexpr int kWriteEnd = 1;

pthread_once_t g_timerThreadOnce = PTHREAD_ONCE_INIT;
int g_cmdPipe[2] = {0, 0};  // Written once, before there is a second thread to read it.
std::mutex g_timerMutex;    // Guards the list, and with it which timers are started.

// Never destroyed: the scheduler goes on while the process exits.
TimerList& timerList() {
    static TimerList* const s_timerList = new TimerList();
    return *s_timerList;
}

bool isZero(const TimeoutTime& timeout) {
    return timeout.sec == 0 && timeout.msec == 0 && timeout.usec == 0;
}

// errno tells why it failed.
bool readClock(ExpiredTime* p_now) {
    timespec now = {};
    errno = 0;
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return false;
    *p_now = fromTimespec(now);
    return true;
}

void SendCmd(int cmd) {
    errno = 0;
    if (write(g_cmdPipe[kWriteEnd], &cmd, sizeof(cmd)) != -1) return;
    const int error = errno;
    // A pipe that is full of commands will wake the thread as well as one more would.
    if (error == EAGAIN) return;
    BLOG(kLogError, "Fail to wrtie data, errno(%d):'%s'.\n", error, strerror(error));
}

int receiveCmd() {
    int cmd = 0;
    (void)!read(g_cmdPipe[kReadEnd], &cmd, sizeof(cmd));  // It has done its work by waking us.
    return cmd;
}

// With g_timerMutex held.
int InsterTimer(std::shared_ptr<TimerImpl> const& timer, bool sendCmd) {
    const char* name = timer->name().c_str();
    BLOG(kLogDebug, "Begin inster timer:'%s'.\n", name);
    TimerList& list = timerList();
    if (list.empty()) {
        BLOG(kLogDebug, "Has no timer yet, insert timer:'%s' to head.\n", name);
        list.insert(timer);
        if (!sendCmd) return 0;
        BLOG(kLogDebug, "Send CMD_START(%d) because of timer('%s').\n", CMD_START, name);
        SendCmd(CMD_START);
    } else if (timer->expiredTime() < list.headExpiredTime()) {
        BLOG(kLogDebug, "Insert timer:'%s' to head.\n", name);
        list.insert(timer);
        if (!sendCmd) return 0;
        BLOG(kLogDebug, "Send CMD_RESCHEDULE(%d) because of timer('%s').\n", CMD_RESCHEDULE, name);
        SendCmd(CMD_RESCHEDULE);
    } else {
        list.insert(timer);
        BLOG(kLogDebug, "Insert timer:'%s' to normal position.\n", name);
    }
    return 0;
}

int RemoveTimer(std::shared_ptr<TimerImpl> const& timer) {
    BLOG_TRACE_SCOPE();
    BLOG(kLogInfo, "Will remove timer('%s').\n", timer->name().c_str());
    const std::lock_guard<std::mutex> lock(g_timerMutex);
    TimerList& list = timerList();
    const bool isHead = !list.empty() && list.head() == timer;
    list.remove(*timer);
    timer->setStarted(false);
    if (isHead) {
        BLOG(kLogDebug, "Remove timer('%s') from head, send CMD_RESCHEDULE(%d).\n",
             timer->name().c_str(), CMD_RESCHEDULE);
        SendCmd(CMD_RESCHEDULE);
    }
    return 0;
}

void RunTimerHandler(std::shared_ptr<TimerImpl> timer) {
    nameThisThread("T:%s", timer->name().c_str());
    timer->runHandler();
}

void startHandlerThread(const std::shared_ptr<TimerImpl>& timer) {
    try {
        startDetachedThread([timer] { RunTimerHandler(timer); });
    } catch (const std::exception& error) {
        BLOG_AT(BLOG_TAG, kLogError, __FILE__, __LINE__, "HandleTimeout",
                "Fail to create handler thread of timer:'%s', error:'%s'.\n", timer->name().c_str(),
                error.what());
    }
}

// With g_timerMutex held. The head is due.
void fireHead(const char* function) {
    TimerList& list = timerList();
    const std::shared_ptr<TimerImpl> timer = list.head();
    list.remove(*timer);
    const char* name = timer->name().c_str();
    if (timer->type() == ONCE) {
        BLOG_AT(BLOG_TAG, kLogDebug, __FILE__, __LINE__, function,
                "Timer:'%s' type is ONCE, stop now.\n", name);
        timer->setStarted(false);
    } else {
        BLOG_AT(BLOG_TAG, kLogDebug, __FILE__, __LINE__, function,
                "Timer:'%s' type is CONTINUE, reschedule it.\n", name);
        (void)timer->caculateExpiredTime();  // It has reported its own failure.
        InsterTimer(timer, false);
    }
    startHandlerThread(timer);
}

void HandleTimeout() {
    ExpiredTime now = {};
    if (!readClock(&now)) {
        const int error = errno;
        BLOG(kLogError, "Fail to get now time, errorno(%d):'%s'.\n", error, strerror(error));
        return;
    }
    const std::lock_guard<std::mutex> lock(g_timerMutex);
    const TimerList& list = timerList();
    while (!list.empty() && !(now < list.headExpiredTime())) fireHead(__func__);
}

bool CaculateSelectTimeout(const ExpiredTime& expired, timeval* p_wait) {
    ExpiredTime now = {};
    if (!readClock(&now)) {
        const int error = errno;
        BLOG(kLogError, "Fail to get now time, errorno(%d):'%s', timeout is 0.\n", error,
             strerror(error));
        return false;
    }
    *p_wait = waitUntil(expired, now);
    return true;
}

// The head's expiry; false when there is no timer.
bool readHead(const char* function, ExpiredTime* p_expired) {
    std::string name;
    {
        const std::lock_guard<std::mutex> lock(g_timerMutex);
        const TimerList& list = timerList();
        if (!list.empty()) {
            name = list.head()->name();
            *p_expired = list.headExpiredTime();
        } else {
            p_expired = nullptr;
        }
    }
    if (p_expired == nullptr) {
        BLOG_AT(BLOG_TAG, kLogDebug, __FILE__, __LINE__, function, "No timer need handle.\n");
        return false;
    }
    BLOG_AT(BLOG_TAG, kLogDebug, __FILE__, __LINE__, function,
            "Waiting for timer('%s') expired, expiredTime(sec:%ld, nsec:%ld).\n", name.c_str(),
            static_cast<long>(p_expired->sec), static_cast<long>(p_expired->nsec));
    return true;
}

// A null p_wait waits without limit.
int waitForCmd(const char* function, DescriptorSet* p_commands, timeval* p_wait) {
    const PreciseWait precise;
    errno = 0;
    const int ready = p_commands->waitReadable(p_wait);
    if (ready == -1) {
        const int error = errno;
        BLOG_AT(BLOG_TAG, kLogError, __FILE__, __LINE__, function,
                "Fail to select, errno(%d):'%s'.\n", error, strerror(error));
    }
    return ready;
}

// Serves timers until there are none.
void serveTimers(const char* function, DescriptorSet* p_commands) {
    ExpiredTime expired = {};
    while (readHead(function, &expired)) {
        timeval wait = {};
        if (!CaculateSelectTimeout(expired, &wait)) continue;
        const int ready = waitForCmd(function, p_commands, &wait);
        if (ready > 0) {
            (void)receiveCmd();
            BLOG_AT(BLOG_TAG, kLogDebug, __FILE__, __LINE__, function,
                    "Need reschedule, continue.\n");
        } else if (ready == 0) {
            BLOG_AT(BLOG_TAG, kLogDebug, __FILE__, __LINE__, function, "Timeout.\n");
            HandleTimeout();
        }
    }
}

[[noreturn]] void HandleTimerThread() {
    nameThisThread("SimpleTimer");
    DescriptorSet commands(g_cmdPipe[kReadEnd]);
    while (true) {
        BLOG(kLogInfo, "No timer, wait for ever.\n");
        if (waitForCmd(__func__, &commands, nullptr) == -1) continue;
        BLOG(kLogInfo, "Has new timer, begin work.\n");
        const int cmd = receiveCmd();
        BLOG(kLogInfo, "cmd:%d.\n", cmd);
        serveTimers(__func__, &commands);
    }
}

void StartTimerThreadOnce() {
    BLOG_TRACE_SCOPE();
    errno = 0;
    // Not inherited by what the browser executes; never blocking whoever wakes the thread.
    if (pipe2(g_cmdPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        const int error = errno;
        BLOG(kLogError, "Fail to create pipe, errno(%d):'%s'.\n", error, strerror(error));
        return;
    }
    try {
        startDetachedThread([] { HandleTimerThread(); });
    } catch (const std::exception& error) {
        BLOG(kLogError, "Fail to create timer thread, error:'%s'.\n", error.what());
    }
}

}  // namespace

// ---- TimerImpl ----

TimerImpl::TimerImpl(Timer* timer, std::string name, TimeoutTime const& timeout,
                     TimerHandler handler, void* userData, TimerType_e type)
    : m_timer(timer),
      m_name(std::move(name)),
      m_timeout(timeout),
      m_handler(std::make_shared<const TimerHandler>(std::move(handler))),
      m_userData(userData),
      m_type(type) {
    if (refusesTimeout(timeout, type, __func__)) {
        m_isValid = false;
        return;
    }
    if (!*m_handler) m_isValid = false;
    caculateTimeout();
}

int TimerImpl::setProperty(TimeoutTime const& timeout, TimerHandler handler, void* userData,
                           TimerType_e type) {
    if (refusesTimeout(timeout, type, __func__)) {
        m_isValid = false;
        return -1;
    }
    auto newHandler = std::make_shared<const TimerHandler>(std::move(handler));
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_timeout = timeout;
    caculateTimeout();
    m_handler.swap(newHandler);
    m_userData = userData;
    m_type = type;
    m_isValid = true;
    return 0;
}

int TimerImpl::changeTimeout(TimeoutTime const& timeout) {
    if (refusesTimeout(timeout, type(), __func__)) return -1;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_timeout = timeout;
    caculateTimeout();
    return 0;
}

int TimerImpl::changeType(TimerType_e type) {
    if (type == CONTINUE && isZero(timeout())) {
        BLOG(kLogError, "When the timeout is {0, 0, 0}, you cannot change type to CONTINUE.\n");
        return -1;
    }
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_type = type;
    return 0;
}

int TimerImpl::changeHandler(TimerHandler handler, void* userData) {
    // The old handler is destroyed unlocked, by whoever lets go of it last.
    auto newHandler = std::make_shared<const TimerHandler>(std::move(handler));
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_handler.swap(newHandler);
    m_userData = userData;
    return 0;
}

int TimerImpl::start() {
    BLOG_TRACE_SCOPE();
    if (caculateExpiredTime() != 0) {
        BLOG(kLogError, "Fail to start timer:'%s'.\n", m_name.c_str());
        return -1;
    }
    m_needStop.store(false, std::memory_order_release);
    m_isRunning.store(false, std::memory_order_release);  // Nobody is told: a stop waits on.
    return 0;
}

int TimerImpl::stop() {
    BLOG(kLogDebug, "Will stop timer:'%s'.\n", m_name.c_str());
    // In one order with the running flag, not only released: either a run sees that it is to stop,
    // or we see that it goes on.
    m_needStop = true;
    BLOG(kLogAlways, "Before wait timer:'%s' stop.\n", m_name.c_str());
    if (m_isRunning) waitForRun();
    BLOG(kLogAlways, "After wait timer:'%s' stop.\n", m_name.c_str());
    return 0;
}

void TimerImpl::waitForRun() {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_cond.wait(lock, [this] { return !m_isRunning; });
}

int TimerImpl::stopNoBlock() {
    m_needStop.store(true, std::memory_order_release);
    return 0;
}

void TimerImpl::retire() {
    std::shared_ptr<const TimerHandler> handler;  // Goes with the timer, and without the lock.
    std::unique_lock<std::mutex> lock(m_mutex);
    m_isRetired = true;
    m_cond.wait(lock, [this] { return m_runs == 0; });
    handler = std::move(m_handler);
}

void TimerImpl::runHandler() {
    std::shared_ptr<const TimerHandler> handler;
    void* p_userData = nullptr;
    if (!beginRun(&handler, &p_userData)) return;
    (*handler)(m_timer, p_userData);
    handler.reset();  // With the run: its code may be unloaded once the timer is gone.
    endRun();
}

bool TimerImpl::beginRun(std::shared_ptr<const TimerHandler>* p_handler, void** pp_userData) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_isRetired) return false;
    m_isRunning = true;
    ++m_runs;
    *p_handler = m_handler;
    *pp_userData = m_userData;
    return true;
}

void TimerImpl::endRun() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_isRunning = false;
    --m_runs;
    m_cond.notify_all();
}

int TimerImpl::caculateExpiredTime() {
    ExpiredTime now = {};
    if (!readClock(&now)) {
        const int error = errno;
        BLOG(kLogError, "Fail to get now time, errorno(%d):'%s'.\n", error, strerror(error));
        return -1;
    }
    m_expiredTime.store(after(now, timeout()), std::memory_order_release);
    return 0;
}

TimerType_e TimerImpl::type() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_type;
}

TimeoutTime TimerImpl::timeout() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_timeout;
}

void TimerImpl::caculateTimeout() {
    m_timeout = normalised(m_timeout);
}

bool TimerImpl::refusesTimeout(TimeoutTime const& timeout, TimerType_e type,
                               const char* function) const {
    if (type != CONTINUE || !isZero(timeout)) return false;
    BLOG_AT(BLOG_TAG, kLogError, __FILE__, __LINE__, function,
            "When type is CONTINUE, the timeout cannot be {0, 0, 0}.\n");
    return true;
}

// ---- Timer ----

Timer::Timer(std::string name, TimeoutTime timeout, TimerHandler handler, void* userData,
             TimerType_e type) {
    (void)pthread_once(&g_timerThreadOnce, StartTimerThreadOnce);
    try {
        m_impl = std::make_shared<TimerImpl>(this, std::move(name), timeout, std::move(handler),
                                             userData, type);
    } catch (const std::bad_alloc&) {
        BLOG(kLogError, "Fail to create TimerImpl.\n");
    }
}

Timer::~Timer() {
    BLOG_TRACE_SCOPE();
    if (m_impl == nullptr) return;
    BLOG(kLogDebug, "Destroy timer:'%s'.\n", m_impl->name().c_str());
    if (m_impl->isStarted()) RemoveTimer(m_impl);
    m_impl->stop();
    // The stop waits for one run. Others may overlap it, or be about to begin.
    m_impl->retire();
    // The last run may have started the timer once more.
    if (m_impl->isStarted()) RemoveTimer(m_impl);
}

bool Timer::hasImpl(const char* function) const {
    if (m_impl != nullptr) return true;
    BLOG_AT(BLOG_TAG, kLogError, __FILE__, __LINE__, function, "m_impl is NULL.\n");
    return false;
}

bool Timer::canChangeProperty(const char* function) const {
    if (!hasImpl(function)) return false;
    if (!m_impl->isStarted()) return true;
    BLOG_AT(BLOG_TAG, kLogError, __FILE__, __LINE__, function,
            "Must stop timer before changing its property.\n");
    return false;
}

int Timer::setProperty(TimeoutTime const& timeout, TimerHandler handler, void* userData,
                       TimerType_e type) {
    if (!canChangeProperty(__func__)) return -1;
    return m_impl->setProperty(timeout, std::move(handler), userData, type);
}

int Timer::changeTimeout(TimeoutTime const& timeout) {
    if (!canChangeProperty(__func__)) return -1;
    return m_impl->changeTimeout(timeout);
}

int Timer::changeType(TimerType_e type) {
    if (!canChangeProperty(__func__)) return -1;
    return m_impl->changeType(type);
}

int Timer::changeHandler(TimerHandler handler, void* userData) {
    if (!canChangeProperty(__func__)) return -1;
    return m_impl->changeHandler(std::move(handler), userData);
}

int Timer::start() {
    if (!hasImpl(__func__)) return -1;
    if (m_impl->isStarted()) return 0;
    if (!m_impl->isValid()) {
        BLOG(kLogError, "Property of timer('%s') is invalid, cannot start.\n",
             m_impl->name().c_str());
        return -1;
    }
    if (m_impl->start() != 0) {
        BLOG(kLogError, "Fail to start timer:'%s'.\n", m_impl->name().c_str());
        return -1;
    }
    const std::lock_guard<std::mutex> lock(g_timerMutex);
    if (m_impl->isStarted()) return 0;  // Another thread was faster.
    try {
        InsterTimer(m_impl, true);
    } catch (const std::bad_alloc&) {
        BLOG(kLogError, "Fail to start timer:'%s'.\n", m_impl->name().c_str());
        return -1;
    }
    m_impl->setStarted(true);
    return 0;
}

int Timer::stop() {
    if (!hasImpl(__func__)) return -1;
    BLOG(kLogDebug, "Stop timer:'%s'.\n", m_impl->name().c_str());
    if (m_impl->isStarted()) RemoveTimer(m_impl);
    return m_impl->stop();
}

int Timer::stopNoBlock() {
    BLOG_TRACE_SCOPE();
    if (!hasImpl(__func__)) return -1;
    BLOG(kLogInfo, "m_impl is not NULL.\n");
    if (m_impl->isStarted()) RemoveTimer(m_impl);
    return m_impl->stopNoBlock();
}

int Timer::restart() {
    if (!hasImpl(__func__)) return -1;
    if (stop() != 0) {
        BLOG(kLogError, "Fail to stop timer:'%s'.\n", m_impl->name().c_str());
        return -1;
    }
    if (start() != 0) {
        BLOG(kLogError, "Fail to start timer:'%s'.\n", m_impl->name().c_str());
        return -1;
    }
    return 0;
}

bool Timer::isStarted() {
    return hasImpl(__func__) && m_impl->isStarted();
}

bool Timer::needStop() {
    return !hasImpl(__func__) || m_impl->needStop();
}

std::string Timer::name() {
    return hasImpl(__func__) ? m_impl->name() : std::string();
}

}  // namespace tevalon::base::simple_timer
