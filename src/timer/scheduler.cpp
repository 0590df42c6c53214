// Logged under the name timer.cpp; the offset, more than that file's lines, keeps a line number
// unique. timer_impl.cpp has 2000.
#define BLOG_FILE "timer.cpp"
#define BLOG_LINE (1000 + __LINE__)

#include "timer/scheduler.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>

#include "base/logging/blog.h"
#include "base/logging/trace.h"
#include "locks/annotated_mutex.h"
#include "locks/patient_lock.h"
#include "os/descriptor_set.h"
#include "os/detached_thread.h"
#include "os/forked_child.h"
#include "os/monotonic_time.h"
#include "os/no_cancellation.h"
#include "os/precise_wait.h"
#include "os/thread_name.h"
#include "record/record.h"
#include "timer/expired_time.h"
#include "timer/timer_heap.h"
#include "timer/timer_impl.h"
#include "timer/timer_look.h"

namespace tevalon::base::simple_timer {
namespace {

// Functions that log appear in the log lines by name: their spelling (InsterTimer,
// CaculateSelectTimeout) is part of the interface, as are the texts.

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
// Guards the started timers. Taken before a timer's own mutex. Unlike the library's other locks it
// is held while lines are logged: a log sink that starts or stops a timer would deadlock.
AnnotatedMutex g_timerMutex;

// Until when the scheduler sleeps unless a command wakes it. An earlier head means that the write()
// of its command failed.
ExpiredTime g_sleepsUntil TEVALON_GUARDED_BY(g_timerMutex) = kSleepsForEver;

// Made on first use, never destroyed: the scheduler goes on while the process exits.
TimerHeap* g_timerHeap TEVALON_GUARDED_BY(g_timerMutex) = nullptr;

TimerHeap& timerHeap() TEVALON_REQUIRES(g_timerMutex) {
    if (g_timerHeap == nullptr) g_timerHeap = new TimerHeap();
    return *g_timerHeap;
}

// A forked child has no scheduler and no started timers until it needs them. Its copies of the
// pipe's descriptors stay open: the child may have closed them, and have others by their numbers.
// Unchecked: there is one thread, and nobody holds the mutex, whatever it says.
void resetInForkedChild() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
    g_timerThreadOnce = PTHREAD_ONCE_INIT;
    g_cmdPipe[kReadEnd] = 0;
    g_cmdPipe[kWriteEnd] = 0;
    g_timerHeap = nullptr;
    g_sleepsUntil = kSleepsForEver;
    replaceUndestroyed(&g_timerMutex);
    TimerImpl::leaveRunInForkedChild();
}

// The caller has disabled cancellation: write() is a cancellation point.
void SendCmd(int cmd) TEVALON_REQUIRES(g_timerMutex) {
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

// Log lines and write() are cancellation points. Cancelled here, scheduleTimer() would leave a
// timer listed but not marked started, and neither stop() nor ~Timer() would take it off.
void sendCmdBecauseOf(const char* name, int cmd) TEVALON_REQUIRES(g_timerMutex) {
    const NoCancellation noCancellation;
    const char* const command = cmd == CMD_START ? "CMD_START" : "CMD_RESCHEDULE";
    BLOG_AS("InsterTimer", kLogDebug, "Send %s(%d) because of timer('%s').\n", command, cmd, name);
    SendCmd(cmd);
}

void logNormalPosition(const char* name) {
    if (!isLogOn(kLogDebug)) return;
    const NoCancellation noCancellation;
    BLOG_AS("InsterTimer", kLogDebug, "Insert timer:'%s' to normal position.\n", name);
}

// The expiry is read once, by the caller: another thread that starts the same timer may change it
// at any time, and the place in the list and the command must go by the same one.
void InsterTimer(TimerImpl& timer, const ExpiredTime& expired, bool sendCmd)
    TEVALON_REQUIRES(g_timerMutex) {
    const char* name = timer.name().c_str();
    BLOG(kLogDebug, "Begin inster timer:'%s'.\n", name);
    TimerHeap& timers = timerHeap();
    if (timers.empty()) {
        BLOG(kLogDebug, "Has no timer yet, insert timer:'%s' to head.\n", name);
        timers.insert(timer, expired);
        if (sendCmd) sendCmdBecauseOf(name, CMD_START);
    } else if (expired < timers.headExpiredTime()) {
        BLOG(kLogDebug, "Insert timer:'%s' to head.\n", name);
        timers.insert(timer, expired);
        if (sendCmd) sendCmdBecauseOf(name, CMD_RESCHEDULE);
    } else {
        timers.insert(timer, expired);
        logNormalPosition(name);
        const bool isHeadUnannounced = timers.headExpiredTime() < g_sleepsUntil;  // Try again.
        if (sendCmd && isHeadUnannounced) sendCmdBecauseOf(name, CMD_RESCHEDULE);
    }
}

// A new thread for each run, so that a slow handler delays no other timer.
void RunTimerHandler(std::shared_ptr<TimerImpl> timer) {
    nameThisThread("T:%s", timer->name().c_str());
    timer->runHandler();
}

void startHandlerThread(const std::shared_ptr<TimerImpl>& timer) {
    try {
        startDetachedThread([timer] { RunTimerHandler(timer); });
    } catch (const std::exception& error) {
        BLOG_AS("HandleTimeout", kLogError,
                "Fail to create handler thread of timer:'%s', error:'%s'.\n", timer->name().c_str(),
                error.what());
    }
}

// The head is due at @p now.
void fireHead(const ExpiredTime& now) TEVALON_REQUIRES(g_timerMutex) {
    TimerHeap& timers = timerHeap();
    // Before it is marked stopped, from when on ~Timer() does not wait for the mutex any more.
    const std::shared_ptr<TimerImpl> timer = timers.head().self();
    if (record::isOn()) record::timerDue(timer.get());
    timers.remove(*timer);
    const char* name = timer->name().c_str();
    if (timer->type() == ONCE) {
        BLOG_AS("HandleTimeout", kLogDebug, "Timer:'%s' type is ONCE, stop now.\n", name);
        timer->setStarted(false);  // Before its thread starts: false in the handler.
    } else {
        BLOG_AS("HandleTimeout", kLogDebug, "Timer:'%s' type is CONTINUE, reschedule it.\n", name);
        timer->reschedule(now);
        // Does not allocate: the heap has kept the slot that the timer had. No command: this is the
        // scheduler, which reads the head next.
        InsterTimer(*timer, timer->expiredTime(), false);
    }
    startHandlerThread(timer);
}

void HandleTimeout() {
    errno = 0;
    const std::optional<timespec> now = readMonotonicClock();
    if (!now) {
        reportClockFailure(__func__);
        return;
    }
    const MutexGuard lock(g_timerMutex);
    TimerHeap& timers = timerHeap();
    // All by one reading: a timer whose period is short fires once in a wake.
    while (!timers.empty() && !(fromTimespec(*now) < timers.headExpiredTime())) {
        fireHead(fromTimespec(*now));
    }
    timers.shrinkIfSparse();
}

std::optional<timeval> CaculateSelectTimeout(const ExpiredTime& expired) {
    errno = 0;
    const std::optional<timespec> now = readMonotonicClock();
    if (!now) {
        const int error = errno;
        BLOG(kLogError, "Fail to get now time, errorno(%d):'%s', timeout is 0.\n", error,
             strerror(error));
        return std::nullopt;
    }
    return remainingTime(expired, fromTimespec(*now));
}

// The head's expiry; none when there is no timer. Allocates nothing: without memory the timers go
// on.
std::optional<ExpiredTime> readHead() {
    std::shared_ptr<TimerImpl> head;  // Keeps the name for the line, which is written unlocked.
    ExpiredTime expired = kSleepsForEver;
    {
        const MutexGuard lock(g_timerMutex);
        const TimerHeap& timers = timerHeap();
        if (!timers.empty()) {
            head = timers.head().self();
            expired = timers.headExpiredTime();
        }
        g_sleepsUntil = expired;
    }
    if (head == nullptr) {
        BLOG_AS("HandleTimerThread", kLogDebug, "No timer need handle.\n");
        return std::nullopt;
    }
    BLOG_AS("HandleTimerThread", kLogDebug,
            "Waiting for timer('%s') expired, expiredTime(sec:%ld, nsec:%ld).\n",
            head->name().c_str(), static_cast<long>(expired.sec), static_cast<long>(expired.nsec));
    return expired;
}

// A null p_wait waits without limit.
int waitForCmd(DescriptorSet* p_commands, timeval* p_wait) {
    const PreciseWait precise;
    errno = 0;
    const int ready = p_commands->waitReadable(p_wait);
    if (ready == -1) {
        const int error = errno;
        BLOG_AS("HandleTimerThread", kLogError, "Fail to select, errno(%d):'%s'.\n", error,
                strerror(error));
    }
    return ready;
}

// Until there are no timers.
void serveTimers(DescriptorSet* p_commands) {
    while (const std::optional<ExpiredTime> expired = readHead()) {
        std::optional<timeval> wait = CaculateSelectTimeout(*expired);
        if (!wait) continue;
        const int ready = waitForCmd(p_commands, &*wait);
        if (ready > 0) {
            (void)receiveCmd();
            BLOG_AS("HandleTimerThread", kLogDebug, "Need reschedule, continue.\n");
        } else if (ready == 0) {
            BLOG_AS("HandleTimerThread", kLogDebug, "Timeout.\n");
            HandleTimeout();
        }
    }
}

[[noreturn]] void HandleTimerThread(DescriptorSet* p_commands) {
    nameThisThread("SimpleTimer");
    while (true) {
        BLOG(kLogInfo, "No timer, wait for ever.\n");
        if (waitForCmd(p_commands, nullptr) == -1) continue;
        BLOG(kLogInfo, "Has new timer, begin work.\n");
        const int cmd = receiveCmd();
        BLOG(kLogInfo, "cmd:%d.\n", cmd);
        serveTimers(p_commands);
    }
}

__attribute__((noinline, cold)) void recordStarted(const TimerImpl& timer) {
    record::timerStarted(&timer, timer.name().c_str(), timer.timeoutNanoseconds());
}

void StartTimerThreadOnce() {
    const NoCancellation noCancellation;
    BLOG_TRACE_SCOPE();
    inEachForkedChild(resetInForkedChild);
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

void ensureScheduler() {
    (void)pthread_once(&g_timerThreadOnce, StartTimerThreadOnce);
}

void scheduleTimer(TimerImpl& timer) {
    const MutexGuard lock(g_timerMutex);
    if (timer.isStarted()) return;  // Another thread was faster.
    if (record::isOn()) recordStarted(timer);
    InsterTimer(timer, timer.expiredTime(), true);
    timer.setStarted(true);
}

#ifndef TEVALON_BASE_NO_DIAGNOSTICS
SchedulerLook lookAtTimers(std::uint64_t untilNs,
                           TimerVisitor* p_visitor) TEVALON_NO_THREAD_SAFETY_ANALYSIS {
    const std::int32_t holder = g_timerMutex.holder();
    const PatientLock lock(g_timerMutex.native().native_handle(), untilNs);
    if (!lock.isLocked()) return {false, holder};
    if (g_timerHeap == nullptr) return {true, holder};  // Not made yet.
    const auto now = static_cast<std::int64_t>(monotonicNanoseconds());
    g_timerHeap->forEach([=](TimerImpl& timer, const ExpiredTime& expired) {
        TimerLook look = {};
        look.dueInNs = std::int64_t{expired.sec} * 1'000'000'000 + expired.nsec - now;
        timer.look(untilNs, &look);
        p_visitor->visit(look);
    });
    return {true, holder};
}
#endif

void RemoveTimer(TimerImpl& timer) {
    BLOG_TRACE_SCOPE();
    BLOG(kLogInfo, "Will remove timer('%s').\n", timer.name().c_str());
    const MutexGuard lock(g_timerMutex);
    TimerHeap& timers = timerHeap();
    const bool isHead = !timers.empty() && &timers.head() == &timer;
    timers.remove(timer);
    timers.shrinkIfSparse();
    timer.setStarted(false);
    if (record::isOn()) record::timerStopped(&timer);
    if (isHead) {
        const NoCancellation noCancellation;
        BLOG(kLogDebug, "Remove timer('%s') from head, send CMD_RESCHEDULE(%d).\n",
             timer.name().c_str(), CMD_RESCHEDULE);
        SendCmd(CMD_RESCHEDULE);
    }
}

}  // namespace tevalon::base::simple_timer
