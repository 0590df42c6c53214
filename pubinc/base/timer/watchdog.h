// watchdog.h: reports operations that take longer than they may.

#ifndef BASE_TIMER_WATCHDOG_H
#define BASE_TIMER_WATCHDOG_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "base/export.h"
#include "base/synchronization/mutex.h"
#include "base/synchronization/thread_annotations.h"
#include "base/threading/basic_thread.h"
#include "base/utils/monotonic_time.h"

namespace tevalon::base::timer {

namespace internal {
class OwnWatch;
}

/// Watches a fixed set of operations. Ten times a second its thread looks at all of them, and
/// reports each that has run longer than it may, then again after every further period of that
/// length, until its watch is stopped. ScopedWatch does so for a scope; a NamedWatch is a client's
/// own.
///
/// Times are seconds on the monotonic clock.
///
/// Lifecycle: the constructor starts the thread; the destructor ends it, which takes up to a
/// tenth of a second.
///
/// In a forked child nothing is watched; the callback stays. The first use there starts a thread of
/// the child's own, or throws "Thread initialization failed" as the constructor does, and the next
/// one tries again.
///
/// Thread-safety: any thread may call any method but the destructor, also from the callback. The
/// callback may destroy the watchdog, or call exit(): the destructor then does not wait, and the
/// thread ends when the callback returns. A callback that ends its thread (pthread_exit(),
/// cancellation) ends all watching; the destructor works as ever.
class TEVALON_BASE_EXPORT WatchDog {
public:
    /// The operations that can be watched: those of application management, each called by the
    /// function or the step that carries it out.
    enum WATCH_ID : std::int32_t {
        eWatchIDNull = 0,
        eWatchID_StartUp,
        eWatchID_onAppStarted,
        eWatchID_onAppResumed,
        eWatchID_onAppStopped,
        eWatchID_onAppPaused,
        eWatchID_onAppKeysetChanged,
        eWatchID_registerToSystemAPM,
        eWatchID_onSTRStopped,
        eWatchID_sendMessageToAPM,
        eWatchID_cancel_pending_request,
        eWatchID_can_accept_keyevent,
        eWatchID_oom_notify,
        eWatchID_inject_keyevent,
        eWatchID_send_message,
        eWatchID_app_preload,
        eWatchID_app_prepare,
        eWatchID_app_launch_new,
        eWatchID_app_hide,
        eWatchID_put_to_background,
        eWatchID_app_show,
        eWatchID_bring_to_foreground,
        eWatchID_app_stop,
        eWatchID_app_stopall,
        eWatchID_str_suspend_request,
        eWatchID_doTaskStart,
        eWatchID_doInjectKey,
        eWatchID_doSendMsg,
        eWatchID_doOOM,
        eWatchID_doCanAcceptKey,
        eWatchID_doGetCurrentStatus,
        eWatchID_doTaskBringTOFG,
        eWatchID_doTaskAppPreload,
        eWatchID_doTaskAppPrePare,
        eWatchID_doTaskAppStop1,
        eWatchID_doTaskAppStop2,
        eWatchID_doTaskAppStop3,
        eWatchID_doTaskAppStop4,
        eWatchID_doTaskAppStop5,
        eWatchID_doTaskAppStop6,
        eWatchID_doTaskAppStopAll_1,
        eWatchID_doTaskAppStopAll_2,
        eWatchID_doTaskAppStopAll_3,
        eWatchID_doTaskAppStopOther,
        eWatchID_doTaskAppShow1,
        eWatchID_doTaskAppShow2,
        eWatchID_doTaskAppHide,
        eWatchID_doTaskPutToBG2,
        eWatchID_doTaskPutToBG1,
        eWatchID_doTaskLaunchNew1,
        eWatchID_doTaskLaunchNewHbbTVBR,
        eWatchID_doTaskLaunchNewOpAPP,
        eWatchID_doTaskLaunchNewNormalApp,
        eWatchID_doTaskLaunchNew2,
        eWatchIDCount,  ///< How many there are; not watchable.
    };

    /// Called on the watchdog's thread, with no lock held; a slow one delays all reports. Must
    /// not throw.
    ///
    /// @param p_context  As given with the callback.
    /// @param id         The operation that is overdue.
    /// @param seconds    Since the watch began, up to the check that found it overdue.
    using TimeoutCallback = void (*)(void* p_context, WATCH_ID id, double seconds);

    /// Throws std::runtime_error: "Mutex init error: " and the description of errno, or
    /// "Thread initialization failed".
    WatchDog();
    ~WatchDog();

    WatchDog(const WatchDog&) = delete;
    WatchDog& operator=(const WatchDog&) = delete;

    /// The identifier's name, or "Unknown" for what is none. Static text.
    static const char* getWatchIdName(WATCH_ID id);

    /// Reports go to @p callback from now on, instead of to the log as error lines. Once set it
    /// stays: a second one is reported and ignored.
    ///
    /// @param callback   Called for each report; null leaves things as they are.
    /// @param p_context  Not owned; must live as long as this object.
    void setTimeoutCallback(TimeoutCallback callback, void* p_context) TEVALON_EXCLUDES(m_mutex);

    /// Begins to watch @p id, or begins anew. An @p id that cannot be watched is reported.
    ///
    /// @param id       From eWatchIDNull to the one before eWatchIDCount.
    /// @param seconds  Allowed; 0 or less is overdue at every check.
    void beginWatch(WATCH_ID id, double seconds) TEVALON_EXCLUDES(m_mutex);
    /// The same for a std::chrono duration. Of its own name, for clients take beginWatch()'s
    /// address.
    template <typename Rep, typename Period>
    void beginWatchFor(WATCH_ID id, std::chrono::duration<Rep, Period> allowed) {
        beginWatch(id, toSeconds(allowed));
    }

    /// Ends the watch of @p id, if there is one. An @p id that cannot be watched is reported. A
    /// report that is on its way may still arrive.
    void stopWatch(WATCH_ID id) TEVALON_EXCLUDES(m_mutex);

    /// Looks at all watches once, and reports. Returns, in ascending order, the identifiers
    /// that were reported to the log. For the thread and for tests.
    std::vector<int> checkTimers() TEVALON_EXCLUDES(m_mutex);

    /// Makes run() return after its current sleep.
    void stop();

    /// The thread's body. Returns 0.
    int run();

private:
    friend class WatchLooker;
    friend class internal::OwnWatch;

    static constexpr int kWatchCount = eWatchIDCount;

    struct Report;

    TEVALON_BASE_LOCAL void renewInForkedChild();
    TEVALON_BASE_LOCAL static bool isWatchable(WATCH_ID id);
    /// @param p_logged  Gets what checkTimers() returns; may be null.
    TEVALON_BASE_LOCAL void checkAll(std::vector<int>* p_logged) TEVALON_EXCLUDES(m_mutex);
    TEVALON_BASE_LOCAL std::optional<Report> takeOverrun(int id) TEVALON_EXCLUDES(m_mutex);

    TimeoutCallback m_callback TEVALON_GUARDED_BY(m_mutex) = nullptr;
    void* m_callbackContext TEVALON_GUARDED_BY(m_mutex) = nullptr;
    double m_beginTime[kWatchCount] TEVALON_GUARDED_BY(m_mutex) = {};  // Of the period; 0: idle.
    double m_timeout[kWatchCount] TEVALON_GUARDED_BY(m_mutex) = {};    // Allowed per period.
    double m_elapsed[kWatchCount] TEVALON_GUARDED_BY(m_mutex) = {};    // In periods reported.
    Mutex m_mutex;  // A leaf: not held over a callback or a log line.
    std::atomic<bool> m_running{true};
    std::atomic<std::uint16_t> m_process;  // That it belongs to; another one in a forked child.
    Threading::BasicThread<WatchDog> m_thread;  // Last: it starts when all else stands.
};

/// The process's watchdog.
class TEVALON_BASE_EXPORT GLWatchDog : public WatchDog {
public:
    GLWatchDog();
    ~GLWatchDog();

    /// Made on first use, never destroyed. Any thread.
    static GLWatchDog* GetInstance();
};

/// GLWatchDog::GetInstance().
TEVALON_BASE_EXPORT GLWatchDog* GlobalWatchDog();

}  // namespace tevalon::base::timer

#endif  // BASE_TIMER_WATCHDOG_H
