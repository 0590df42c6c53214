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
#include "os/no_cancellation.h"
#include "os/own_thread.h"
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

// Earlier and later than every expiry: the scheduler is about to look at the list, or waits for a
// command alone.
constexpr ExpiredTime kLooksAtOnce = {INT32_MIN, INT32_MIN};
constexpr ExpiredTime kSleepsForEver = {INT32_MAX, INT32_MAX};

pthread_once_t g_timerThreadOnce = PTHREAD_ONCE_INIT;
int g_cmdPipe[2] = {0, 0};  // Written once, before there is a second thread to read it.
std::mutex g_timerMutex;    // Guards the list, and with it which timers are started.

// Until when the scheduler sleeps unless a command wakes it. Guarded by g_timerMutex. A head that
// is earlier has not been announced: its command was lost.
ExpiredTime g_sleepsUntil = kSleepsForEver;

// Never destroyed: the scheduler goes on while the process exits.
TimerList& timerList() {
    static TimerList* const s_timerList = new TimerList();
    return *s_timerList;
}

// Steps of InsterTimer(), under whose name they log.
#define INSERT_LOG(...) BLOG_AT(BLOG_TAG, kLogDebug, __FILE__, __LINE__, "InsterTimer", __VA_ARGS__)

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

// With g_timerMutex held, and cancellation off: write() is a cancellation point.
void SendCmd(int cmd) {
    errno = 0;
    const bool isWritten = write(g_cmdPipe[kWriteEnd], &cmd, sizeof(cmd)) != -1;
    const int error = errno;
    // A pipe that is full of commands will wake the thread as well as one more would.
    if (isWritten || error == EAGAIN) {
        g_sleepsUntil = kLooksAtOnce;
        return;
    }
    BLOG(kLogError, "Fail to wrtie data, errno(%d):'%s'.\n", error, strerror(error));
}

int receiveCmd() {
    int cmd = 0;
    (void)!read(g_cmdPipe[kReadEnd], &cmd, sizeof(cmd));  // It has done its work by waking us.
    return cmd;
}

// With g_timerMutex held. Once a timer is listed nothing may be cancelled before its command is
// sent and it is marked started: neither a log line nor the command.
void sendCmdBecauseOf(const char* name, int cmd) {
    const NoCancellation noCancellation;
    const char* const command = cmd == CMD_START ? "CMD_START" : "CMD_RESCHEDULE";
    INSERT_LOG("Send %s(%d) because of timer('%s').\n", command, cmd, name);
    SendCmd(cmd);
}

void logNormalPosition(const char* name) {
    if (!isLogOn(kLogDebug)) return;
    const NoCancellation noCancellation;
    INSERT_LOG("Insert timer:'%s' to normal position.\n", name);
}

// With g_timerMutex held. The expiry is read once, by the caller: another thread that starts the
// same timer may change it at any time, and the place in the list and the command must go by the
// same one.
int InsterTimer(std::shared_ptr<TimerImpl> const& timer, const ExpiredTime& expired, bool sendCmd) {
    const char* name = timer->name().c_str();
    BLOG(kLogDebug, "Begin inster timer:'%s'.\n", name);
    TimerList& list = timerList();
    if (list.empty()) {
        BLOG(kLogDebug, "Has no timer yet, insert timer:'%s' to head.\n", name);
        list.insert(timer, expired);
        if (sendCmd) sendCmdBecauseOf(name, CMD_START);
    } else if (expired < list.headExpiredTime()) {
        BLOG(kLogDebug, "Insert timer:'%s' to head.\n", name);
        list.insert(timer, expired);
        if (sendCmd) sendCmdBecauseOf(name, CMD_RESCHEDULE);
    } else {
        list.insert(timer, expired);
        logNormalPosition(name);
        const bool isLost = list.headExpiredTime() < g_sleepsUntil;  // An earlier command.
        if (sendCmd && isLost) sendCmdBecauseOf(name, CMD_RESCHEDULE);
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
    list.giveRoomBack();
    timer->setStarted(false);
    if (isHead) {
        const NoCancellation noCancellation;
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

// With g_timerMutex held. The head is due at @p now.
void fireHead(const char* function, const ExpiredTime& now) {
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
        timer->reschedule(now);
        // Into the room that it had: the list has given none back since.
        InsterTimer(timer, timer->expiredTime(), false);
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
    TimerList& list = timerList();
    while (!list.empty() && !(now < list.headExpiredTime())) fireHead(__func__, now);
    list.giveRoomBack();
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

// The head's expiry; false when there is no timer. Allocates nothing: without memory the timers
// go on.
bool readHead(const char* function, ExpiredTime* p_expired) {
    std::shared_ptr<TimerImpl> head;  // Keeps the name for the line, which is written unlocked.
    {
        const std::lock_guard<std::mutex> lock(g_timerMutex);
        const TimerList& list = timerList();
        if (!list.empty()) {
            head = list.head();
            *p_expired = list.headExpiredTime();
        }
        g_sleepsUntil = head != nullptr ? *p_expired : kSleepsForEver;
    }
    if (head == nullptr) {
        BLOG_AT(BLOG_TAG, kLogDebug, __FILE__, __LINE__, function, "No timer need handle.\n");
        return false;
    }
    BLOG_AT(BLOG_TAG, kLogDebug, __FILE__, __LINE__, function,
            "Waiting for timer('%s') expired, expiredTime(sec:%ld, nsec:%ld).\n",
            head->name().c_str(), static_cast<long>(p_expired->sec),
            static_cast<long>(p_expired->nsec));
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

[[noreturn]] void HandleTimerThread(DescriptorSet* p_commands) {
    nameThisThread("SimpleTimer");
    while (true) {
        BLOG(kLogInfo, "No timer, wait for ever.\n");
        if (waitForCmd(__func__, p_commands, nullptr) == -1) continue;
        BLOG(kLogInfo, "Has new timer, begin work.\n");
        const int cmd = receiveCmd();
        BLOG(kLogInfo, "cmd:%d.\n", cmd);
        serveTimers(__func__, p_commands);
    }
}

void StartTimerThreadOnce() {
    const NoCancellation noCancellation;
    BLOG_TRACE_SCOPE();
    errno = 0;
    // Not inherited by what the browser executes; never blocking whoever wakes the thread.
    if (pipe2(g_cmdPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        const int error = errno;
        BLOG(kLogError, "Fail to create pipe, errno(%d):'%s'.\n", error, strerror(error));
        return;
    }
    try {
        auto commands = std::make_unique<DescriptorSet>(g_cmdPipe[kReadEnd]);
        startDetachedThread([p_commands = commands.get()] { HandleTimerThread(p_commands); });
        (void)commands.release();  // The thread's, which never ends.
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
    if (m_isRunning && !RunningThread::isThisThreadOf(this)) waitForRun();
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
    // The run that destroys its own timer goes on: it keeps what it still touches, and the timer
    // is not among that.
    const int ownRuns = RunningThread::isThisThreadOf(this) ? 1 : 0;
    std::shared_ptr<const TimerHandler> handler;  // Goes with the timer, and without the lock.
    std::unique_lock<std::mutex> lock(m_mutex);
    m_isRetired = true;
    m_cond.wait(lock, [&] { return m_runs == ownRuns; });
    handler = std::move(m_handler);
}

// A run that has begun is ended by the destructor, for a handler may leave in other ways than by
// returning: pthread_exit() and cancellation unwind the stack.
class TimerImpl::HandlerRun {
public:
    explicit HandlerRun(TimerImpl* p_timer) : m_timer(*p_timer) {
        const std::lock_guard<std::mutex> lock(m_timer.m_mutex);
        if (m_timer.m_isRetired) return;
        m_timer.m_isRunning = true;
        ++m_timer.m_runs;
        m_handler = m_timer.m_handler;
        m_userData = m_timer.m_userData;
    }
    ~HandlerRun() {
        if (m_handler == nullptr) return;
        m_handler.reset();  // Before the end is told: its code may be unloaded with the timer.
        const std::lock_guard<std::mutex> lock(m_timer.m_mutex);
        m_timer.m_isRunning = false;
        --m_timer.m_runs;
        m_timer.m_cond.notify_all();
    }

    HandlerRun(const HandlerRun&) = delete;
    HandlerRun& operator=(const HandlerRun&) = delete;

    void callHandler() const {
        if (m_handler != nullptr) (*m_handler)(m_timer.m_timer, m_userData);
    }

private:
    TimerImpl& m_timer;
    std::shared_ptr<const TimerHandler> m_handler;  // Null where the timer has been retired.
    void* m_userData = nullptr;
};

void TimerImpl::runHandler() {
    // First, and so ended last: what a handler holds may destroy the timer with the handler.
    const RunningThread thread(this);
    const HandlerRun run(this);
    run.callHandler();
}

void TimerImpl::reschedule(const ExpiredTime& now) {
    constexpr TimeoutTime kShortestPause = {0, 1, 0};
    const bool isKnown = caculateExpiredTime() == 0;  // It has reported its own failure.
    if (isKnown && isPositive(timeout())) return;
    // A period that is over before it begins, or an expiry that stays in the past, would start
    // threads without end.
    const ExpiredTime earliest = after(now, kShortestPause);
    if (m_expiredTime.load() < earliest) m_expiredTime.store(earliest);
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
    const NoCancellation noCancellation;
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
        InsterTimer(m_impl, m_impl->expiredTime(), true);
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
