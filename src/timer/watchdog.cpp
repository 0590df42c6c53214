#include "base/timer/watchdog.h"

#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <new>

#include "activity/activity.h"
#include "activity/waiting.h"
#include "base/logging/blog.h"
#include "base/singleton.h"
#include "base/synchronization/lock_guard.h"
#include "base/timer/internal/own_watch.h"
#include "os/forked_child.h"
#include "os/monotonic_time.h"
#include "os/own_thread.h"
#include "os/thread_name.h"
#include "record/record.h"

namespace tevalon::base::timer {
namespace {

// One text, each name ended by a zero: a table of pointers would be relocated at every start, and
// cost twice its size in relocations.
constexpr char kWatchNames[] =
    "eWatchIDNull\0"
    "eWatchID_StartUp\0"
    "eWatchID_onAppStarted\0"
    "eWatchID_onAppResumed\0"
    "eWatchID_onAppStopped\0"
    "eWatchID_onAppPaused\0"
    "eWatchID_onAppKeysetChanged\0"
    "eWatchID_registerToSystemAPM\0"
    "eWatchID_onSTRStopped\0"
    "eWatchID_sendMessageToAPM\0"
    "eWatchID_cancel_pending_request\0"
    "eWatchID_can_accept_keyevent\0"
    "eWatchID_oom_notify\0"
    "eWatchID_inject_keyevent\0"
    "eWatchID_send_message\0"
    "eWatchID_app_preload\0"
    "eWatchID_app_prepare\0"
    "eWatchID_app_launch_new\0"
    "eWatchID_app_hide\0"
    "eWatchID_put_to_background\0"
    "eWatchID_app_show\0"
    "eWatchID_bring_to_foreground\0"
    "eWatchID_app_stop\0"
    "eWatchID_app_stopall\0"
    "eWatchID_str_suspend_request\0"
    "eWatchID_doTaskStart\0"
    "eWatchID_doInjectKey\0"
    "eWatchID_doSendMsg\0"
    "eWatchID_doOOM\0"
    "eWatchID_doCanAcceptKey\0"
    "eWatchID_doGetCurrentStatus\0"
    "eWatchID_doTaskBringTOFG\0"
    "eWatchID_doTaskAppPreload\0"
    "eWatchID_doTaskAppPrePare\0"
    "eWatchID_doTaskAppStop1\0"
    "eWatchID_doTaskAppStop2\0"
    "eWatchID_doTaskAppStop3\0"
    "eWatchID_doTaskAppStop4\0"
    "eWatchID_doTaskAppStop5\0"
    "eWatchID_doTaskAppStop6\0"
    "eWatchID_doTaskAppStopAll_1\0"
    "eWatchID_doTaskAppStopAll_2\0"
    "eWatchID_doTaskAppStopAll_3\0"
    "eWatchID_doTaskAppStopOther\0"
    "eWatchID_doTaskAppShow1\0"
    "eWatchID_doTaskAppShow2\0"
    "eWatchID_doTaskAppHide\0"
    "eWatchID_doTaskPutToBG2\0"
    "eWatchID_doTaskPutToBG1\0"
    "eWatchID_doTaskLaunchNew1\0"
    "eWatchID_doTaskLaunchNewHbbTVBR\0"
    "eWatchID_doTaskLaunchNewOpAPP\0"
    "eWatchID_doTaskLaunchNewNormalApp\0"
    "eWatchID_doTaskLaunchNew2\0"
    "eWatchIDCount";

// Begin times up to here are no times: an idle watch, or a clock that could not be read.
constexpr double kNoTime = 1.0;

constexpr timespec kCheckPeriod = {0, 100000000};

using WatchThread = OwnThread<WatchDog>;

// To its end, however many signals arrive.
void sleepForCheckPeriod() {
    timespec left = kCheckPeriod;
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

__attribute__((noinline, cold)) void reportUnsupported(const char* function, int id) {
    BLOG_AS(function, kLogError, "Not supported ID : %d\n", id);
}

}  // namespace

struct WatchDog::Report {
    TimeoutCallback callback;
    void* p_context;
    double seconds;
};

WatchDog::WatchDog() : m_process(markOfThisProcess()), m_thread(this) {
    inEachForkedChild(WatchThread::allOwnersAreGone);
}

// In the callback m_thread detaches the thread, which ends when the callback returns.
WatchDog::~WatchDog() {
    if (isFromParent(m_process)) m_thread.abandon();
    if (WatchThread::isThisThreadOf(this)) {
        WatchThread::ownerIsGone();
        activity::forgetObject(this);
        return;
    }
    const activity::Waiting waiting(record::Wait::Destructor, this);
    m_thread.end();
}

// The thread last: it begins with a look at the watches. Where it cannot be created, the next use
// tries again.
void WatchDog::renewInForkedChild() {
    if (!isFromParent(m_process)) return;
    renewOnce(&m_process, [this]() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        replaceUndestroyed(&m_mutex);
        std::fill(std::begin(m_beginTime), std::end(m_beginTime), 0.0);
        m_thread.abandon();
        if (m_running) ::new (&m_thread) Threading::BasicThread<WatchDog>(this);
    });
}

const char* WatchDog::getWatchIdName(WATCH_ID id) {
    auto left = static_cast<std::uint32_t>(id);
    if (left > eWatchIDCount) return "Unknown";
    const char* p_name = kWatchNames;
    for (; left > 0; --left) p_name += std::strlen(p_name) + 1;
    return p_name;
}

void WatchDog::setTimeoutCallback(TimeoutCallback callback, void* p_context) {
    renewInForkedChild();
    {
        const LockGuard lock(m_mutex);
        if (m_callback == nullptr) {
            m_callback = callback;
            m_callbackContext = p_context;
            return;
        }
    }
    BLOG(kLogError, "Callback already set.\n");
}

void WatchDog::beginWatch(WATCH_ID id, double seconds) {
    if (!isWatchable(id)) {
        reportUnsupported(__func__, id);
        return;
    }
    renewInForkedChild();
    const double now = monotonicSeconds();
    BLOG(kLogInfo, "Watching : %d(%s), %f, %f\n", id, getWatchIdName(id), now, seconds);
    if (record::isOn()) record::watchBegun(id, seconds);
    const LockGuard lock(m_mutex);
    m_beginTime[id] = now;
    m_timeout[id] = seconds;
    m_elapsed[id] = 0;
}

void WatchDog::stopWatch(WATCH_ID id) {
    if (!isWatchable(id)) {
        reportUnsupported(__func__, id);
        return;
    }
    renewInForkedChild();
    BLOG(kLogInfo, "Stop Watching : %d(%s)\n", id, getWatchIdName(id));
    if (record::isOn()) record::watchEnded(id);
    const LockGuard lock(m_mutex);
    m_beginTime[id] = 0;
}

std::vector<int> WatchDog::checkTimers() {
    renewInForkedChild();
    std::vector<int> logged;
    checkAll(&logged);
    return logged;
}

void WatchDog::checkAll(std::vector<int>* p_logged) {
    const bool isOwnThread = WatchThread::isThisThreadOf(this);
    for (int i = 0; i < kWatchCount; ++i) {
        const std::optional<Report> report = takeOverrun(i);
        if (!report) continue;
        const auto id = static_cast<WATCH_ID>(i);
        if (record::isOn()) record::watchOverdue(id, report->seconds);
        if (report->callback != nullptr) {
            report->callback(report->p_context, id, report->seconds);
            // It may have destroyed this object: nothing of it is touched then.
            if (isOwnThread && !WatchThread::isThisThreadOf(this)) return;
            continue;
        }
        BLOG_AS("checkTimers", kLogError, "Watch dog Timeout : %d(%s) ,  %f \n", i,
                getWatchIdName(id), report->seconds);
        if (p_logged != nullptr) p_logged->push_back(i);
    }
    internal::OwnWatch::checkAll(this);
}

// The callback is taken along under the lock and called without it: it may begin or end watches.
// Written so that NaN is never overdue.
std::optional<WatchDog::Report> WatchDog::takeOverrun(int id) {
    const LockGuard lock(m_mutex);
    const double now = monotonicSeconds();
    const double begin = m_beginTime[id];
    if (!(begin > kNoTime)) return std::nullopt;
    const double period = now - begin;
    if (!(period > m_timeout[id])) return std::nullopt;

    const double total = period + m_elapsed[id];
    m_elapsed[id] = total;
    m_beginTime[id] = now;
    if (!(total > 0)) return std::nullopt;
    return Report{m_callback, m_callbackContext, total};
}

void WatchDog::stop() {
    m_running = false;
}

int WatchDog::run() {
    if (!m_running) return 0;
    nameThisThread("WatchDog");
    const WatchThread thread(this);
    const activity::ListedActivity activity(activity::Kind::WatchThread, this);
    while (!thread.isOwnerGone() && m_running) {
        checkAll(nullptr);  // Collects no identifiers, and so allocates nothing.
        if (!thread.isOwnerGone()) sleepForCheckPeriod();
    }
    return 0;
}

bool WatchDog::isWatchable(WATCH_ID id) {
    return static_cast<std::uint32_t>(id) < kWatchCount;
}

GLWatchDog::GLWatchDog() = default;

GLWatchDog::~GLWatchDog() = default;

GLWatchDog* GLWatchDog::GetInstance() {
    return Singleton<GLWatchDog, DefaultSingletonTraits<GLWatchDog>, GLWatchDog>::GetInstance();
}

GLWatchDog* GlobalWatchDog() {
    return GLWatchDog::GetInstance();
}

}  // namespace tevalon::base::timer
