// log_messages.h: the library's log messages by name, for tests that look for them.
//
// Generated from tools/catalogue/messages.toml by generate.py beside it.

#ifndef TESTKIT_LOG_MESSAGES_H
#define TESTKIT_LOG_MESSAGES_H

#include <cstdint>

namespace tevalon::testkit {

/// A log message: its name in docs/what-a-line-means.md and in tevalon-explain, and what its
/// lines have in common.
struct LogMessage {
    const char* name;     ///< As it is called there.
    std::uint16_t level;  ///< 0 where the caller's, or beyond all levels.
    const char* tag;      ///< At the front of its lines.
    const char* format;   ///< Of the text behind the line's place, with its line end.
    /// Those that its lines name, with commas between them; empty where it is not one of few.
    const char* functions;
};

namespace log_messages {

/// @{
/// The message of that name.
// clang-format off
inline constexpr LogMessage kOptionCleared = {"option-cleared", 5000, "B-LOG", "clear  %s done\n", "clear_option"};
inline constexpr LogMessage kOptionTaken = {"option-taken", 1000, "B-LOG", "Command line argument -%c is already used for --%s\n", "AddOption"};
inline constexpr LogMessage kMemoryReport = {"memory-report", 1, "B-LOG", "{%d-%f}[%s] %s:%d:%s(): ==%s==\n %s\n", ""};
inline constexpr LogMessage kMemoryFileNotOpened = {"memory-file-not-opened", 1000, "B-LOG", "Error opening %s\n", "showFileContents"};
inline constexpr LogMessage kMemoryFileEmpty = {"memory-file-empty", 1000, "B-LOG", "Error reading %s\n", "showFileContents"};
inline constexpr LogMessage kEventAlreadyArmed = {"event-already-armed", 4000, "EventDispatcher", "Already initialized.\n", "initWaitResultCv"};
inline constexpr LogMessage kEventNotArmed = {"event-not-armed", 1000, "EventDispatcher", "waitResultMtx or waitResultCv is NULL.\n", "waitForResult"};
inline constexpr LogMessage kDispatcherNullHub = {"dispatcher-null-hub", 1000, "EventDispatcher", "p_hub is NULL.\n", "registerHub,unregisterHub"};
inline constexpr LogMessage kDispatcherCreated = {"dispatcher-created", 1, "EventDispatcher", "Create EventDispatcher.\n", "EventDispatcher"};
inline constexpr LogMessage kHubRegistering = {"hub-registering", 4000, "EventDispatcher", "Register hub:%p for moudle:%d.\n", "registerHub"};
inline constexpr LogMessage kHubAlreadyRegistered = {"hub-already-registered", 1000, "EventDispatcher", "EventHub:%p already exists.\n", "registerHub"};
inline constexpr LogMessage kHubUnregistering = {"hub-unregistering", 4000, "EventDispatcher", "UnRegister hub:%p from module:%d.\n", "unregisterHub"};
inline constexpr LogMessage kDispatcherNullEvent = {"dispatcher-null-event", 1000, "EventDispatcher", "event is NULL.\n", "send"};
inline constexpr LogMessage kHubNoImpl = {"hub-no-impl", 1000, "EventDispatcher", "m_impl is NULL.\n", "onHubUnregistered,queueLength,receiveEvent,registerHandler,sendAsync,setQueueLimit"};
inline constexpr LogMessage kHubNotCreated = {"hub-not-created", 1000, "EventDispatcher", "Fail to create EventHubImpl.\n", "EventHub"};
inline constexpr LogMessage kEventNotPrepared = {"event-not-prepared", 1000, "EventDispatcher", "Fail to initialize event's codition_variable.\n", "sendEventSync"};
inline constexpr LogMessage kEventNotSent = {"event-not-sent", 1000, "EventDispatcher", "Fail to send event.\n", "sendEventSync"};
inline constexpr LogMessage kHubNoThread = {"hub-no-thread", 1000, "EventDispatcher", "Fail to create EventHandlerThread.\n", "registerHandler"};
inline constexpr LogMessage kHubNullHandler = {"hub-null-handler", 1000, "EventDispatcher", "handler is NULL.\n", "registerHandler"};
inline constexpr LogMessage kHubHandlerExists = {"hub-handler-exists", 1000, "EventDispatcher", "Event handler already exists.\n\n", "registerHandler"};
inline constexpr LogMessage kHubNullParameter = {"hub-null-parameter", 1000, "EventDispatcher", "Param is NULL.\n", "handleEventTask"};
inline constexpr LogMessage kHubHadNoThread = {"hub-had-no-thread", 4000, "EventDispatcher", "Didn't create thread, so need not destroy thread.\n", "onUnregistered"};
inline constexpr LogMessage kHubLeftWithoutThread = {"hub-left-without-thread", 1, "EventDispatcher", "Exit onUnregistered.\n", "onUnregistered"};
inline constexpr LogMessage kHubEndingThread = {"hub-ending-thread", 1, "EventDispatcher", "Will destroy thread in EventHubImpl.\n", "onUnregistered"};
inline constexpr LogMessage kHubLeft = {"hub-left", 1, "EventDispatcher", "Exit onUnregistered from EventHubImpl.\n", "onUnregistered"};
inline constexpr LogMessage kClientLine = {"client-line", 0, "B-LOG", "[%s]%s:%d:%s:<format>\n", ""};
inline constexpr LogMessage kDumpLine = {"dump-line", 5000, "B-LOG", "[]:0::%s\n", ""};
inline constexpr LogMessage kDumpTitle = {"dump-title", 5000, "B-LOG", "DUMPMEM(%08Xd):, %s", ""};
inline constexpr LogMessage kTraceFunctionIn = {"trace-function-in", 5000, "B-LOG", "TRACE -> [%s(IN)] :%s:%d \n", ""};
inline constexpr LogMessage kTraceFunctionOut = {"trace-function-out", 5000, "B-LOG", "TRACE <- [%s(OUT)] :%s:%d \n", ""};
inline constexpr LogMessage kTraceScopeIn = {"trace-scope-in", 5000, "B-LOG", "[TRACE -> %s(IN)] %s:%d:%s() \n", ""};
inline constexpr LogMessage kTraceScopeOut = {"trace-scope-out", 5000, "B-LOG", "[TRACE <- %s(OUT)] %s:%d:%s() \n", ""};
inline constexpr LogMessage kRunnableCalled = {"runnable-called", 4000, "B-LOG", "called\n\n", "pause,resume,run,stop"};
inline constexpr LogMessage kRunnableCreated = {"runnable-created", 4000, "B-LOG", "called, interval: %d\n\n", "Runnable"};
inline constexpr LogMessage kRunnableDestroyed = {"runnable-destroyed", 4000, "B-LOG", "called\n\n", "~Runnable"};
inline constexpr LogMessage kLockFailed = {"lock-failed", 1000, "B-LOG", "An runtime_error has been caught:%s.\n", "AutoLock,LockGuard,UniqueLock,~AutoLock,~LockGuard,~UniqueLock"};
inline constexpr LogMessage kTimerCommandLost = {"timer-command-lost", 1000, "B-LOG", "Fail to wrtie data, errno(%d):'%s'.\n", "SendCmd"};
inline constexpr LogMessage kTimerCommand = {"timer-command", 5000, "B-LOG", "Send %s(%d) because of timer('%s').\n", "InsterTimer"};
inline constexpr LogMessage kTimerPlaced = {"timer-placed", 5000, "B-LOG", "Insert timer:'%s' to normal position.\n", "InsterTimer"};
inline constexpr LogMessage kTimerInserting = {"timer-inserting", 5000, "B-LOG", "Begin inster timer:'%s'.\n", "InsterTimer"};
inline constexpr LogMessage kTimerFirst = {"timer-first", 5000, "B-LOG", "Has no timer yet, insert timer:'%s' to head.\n", "InsterTimer"};
inline constexpr LogMessage kTimerNewHead = {"timer-new-head", 5000, "B-LOG", "Insert timer:'%s' to head.\n", "InsterTimer"};
inline constexpr LogMessage kTimerNoHandlerThread = {"timer-no-handler-thread", 1000, "B-LOG", "Fail to create handler thread of timer:'%s', error:'%s'.\n", "HandleTimeout"};
inline constexpr LogMessage kTimerOnceExpired = {"timer-once-expired", 5000, "B-LOG", "Timer:'%s' type is ONCE, stop now.\n", "HandleTimeout"};
inline constexpr LogMessage kTimerAgainExpired = {"timer-again-expired", 5000, "B-LOG", "Timer:'%s' type is CONTINUE, reschedule it.\n", "HandleTimeout"};
inline constexpr LogMessage kTimerClockUnread = {"timer-clock-unread", 1000, "B-LOG", "Fail to get now time, errorno(%d):'%s', timeout is 0.\n", "CaculateSelectTimeout"};
inline constexpr LogMessage kTimerNoneLeft = {"timer-none-left", 5000, "B-LOG", "No timer need handle.\n", "HandleTimerThread"};
inline constexpr LogMessage kTimerWaiting = {"timer-waiting", 5000, "B-LOG", "Waiting for timer('%s') expired, expiredTime(sec:%ld, nsec:%ld).\n", "HandleTimerThread"};
inline constexpr LogMessage kTimerSelectFailed = {"timer-select-failed", 1000, "B-LOG", "Fail to select, errno(%d):'%s'.\n", "HandleTimerThread"};
inline constexpr LogMessage kTimerRescheduling = {"timer-rescheduling", 5000, "B-LOG", "Need reschedule, continue.\n", "HandleTimerThread"};
inline constexpr LogMessage kTimerTimeout = {"timer-timeout", 5000, "B-LOG", "Timeout.\n", "HandleTimerThread"};
inline constexpr LogMessage kTimerSchedulerIdle = {"timer-scheduler-idle", 4000, "B-LOG", "No timer, wait for ever.\n", "HandleTimerThread"};
inline constexpr LogMessage kTimerSchedulerBegins = {"timer-scheduler-begins", 4000, "B-LOG", "Has new timer, begin work.\n", "HandleTimerThread"};
inline constexpr LogMessage kTimerSchedulerCommand = {"timer-scheduler-command", 4000, "B-LOG", "cmd:%d.\n", "HandleTimerThread"};
inline constexpr LogMessage kTimerNoPipe = {"timer-no-pipe", 1000, "B-LOG", "Fail to create pipe, errno(%d):'%s'.\n", "StartTimerThreadOnce"};
inline constexpr LogMessage kTimerNoScheduler = {"timer-no-scheduler", 1000, "B-LOG", "Fail to create timer thread, error:'%s'.\n", "StartTimerThreadOnce"};
inline constexpr LogMessage kTimerRemoving = {"timer-removing", 4000, "B-LOG", "Will remove timer('%s').\n", "RemoveTimer"};
inline constexpr LogMessage kTimerHeadRemoved = {"timer-head-removed", 5000, "B-LOG", "Remove timer('%s') from head, send CMD_RESCHEDULE(%d).\n", "RemoveTimer"};
inline constexpr LogMessage kTimerNoImpl = {"timer-no-impl", 1000, "B-LOG", "m_impl is NULL.\n", "changeHandler,changeTimeout,changeType,isStarted,name,needStop,restart,setProperty,start,stop,stopNoBlock"};
inline constexpr LogMessage kTimerIsStarted = {"timer-is-started", 1000, "B-LOG", "Must stop timer before changing its property.\n", "changeHandler,changeTimeout,changeType,setProperty"};
inline constexpr LogMessage kTimerNotStarted = {"timer-not-started", 1000, "B-LOG", "Fail to start timer:'%s'.\n", "restart,start"};
inline constexpr LogMessage kTimerNotCreated = {"timer-not-created", 1000, "B-LOG", "Fail to create TimerImpl.\n", "Timer"};
inline constexpr LogMessage kTimerDestroying = {"timer-destroying", 5000, "B-LOG", "Destroy timer:'%s'.\n", "~Timer"};
inline constexpr LogMessage kTimerInvalid = {"timer-invalid", 1000, "B-LOG", "Property of timer('%s') is invalid, cannot start.\n", "start"};
inline constexpr LogMessage kTimerStopping = {"timer-stopping", 5000, "B-LOG", "Stop timer:'%s'.\n", "stop"};
inline constexpr LogMessage kTimerStopNoWait = {"timer-stop-no-wait", 4000, "B-LOG", "m_impl is not NULL.\n", "stopNoBlock"};
inline constexpr LogMessage kTimerNotStopped = {"timer-not-stopped", 1000, "B-LOG", "Fail to stop timer:'%s'.\n", "restart"};
inline constexpr LogMessage kTimerZeroPeriod = {"timer-zero-period", 1000, "B-LOG", "When type is CONTINUE, the timeout cannot be {0, 0, 0}.\n", "TimerImpl,changeTimeout,setProperty"};
inline constexpr LogMessage kTimerClockFailed = {"timer-clock-failed", 1000, "B-LOG", "Fail to get now time, errorno(%d):'%s'.\n", "HandleTimeout,caculateExpiredTime"};
inline constexpr LogMessage kTimerZeroBecomesPeriodic = {"timer-zero-becomes-periodic", 1000, "B-LOG", "When the timeout is {0, 0, 0}, you cannot change type to CONTINUE.\n", "changeType"};
inline constexpr LogMessage kTimerExpiryUnknown = {"timer-expiry-unknown", 1000, "B-LOG", "Fail to start timer:'%s'.\n", "start"};
inline constexpr LogMessage kTimerWillStop = {"timer-will-stop", 5000, "B-LOG", "Will stop timer:'%s'.\n", "stop"};
inline constexpr LogMessage kTimerStopWaits = {"timer-stop-waits", 1, "B-LOG", "Before wait timer:'%s' stop.\n", "stop"};
inline constexpr LogMessage kTimerStopWaited = {"timer-stop-waited", 1, "B-LOG", "After wait timer:'%s' stop.\n", "stop"};
inline constexpr LogMessage kWatchUnknownId = {"watch-unknown-id", 1000, "B-LOG", "Not supported ID : %d\n", "beginWatch,stopWatch"};
inline constexpr LogMessage kWatchCallbackSet = {"watch-callback-set", 1000, "B-LOG", "Callback already set.\n", "setTimeoutCallback"};
inline constexpr LogMessage kWatchBegun = {"watch-begun", 4000, "B-LOG", "Watching : %d(%s), %f, %f\n", "beginWatch"};
inline constexpr LogMessage kWatchEnded = {"watch-ended", 4000, "B-LOG", "Stop Watching : %d(%s)\n", "stopWatch"};
inline constexpr LogMessage kWatchOverrun = {"watch-overrun", 1000, "B-LOG", "Watch dog Timeout : %d(%s) ,  %f \n", "checkTimers"};
inline constexpr LogMessage kTaskCancelCount = {"task-cancel-count", 5000, "B-LOG", "Canceled Task Count: %d\n", "cancelTaskBySessionId,cancelTaskByTaskId"};
inline constexpr LogMessage kTaskQueueFrontUnset = {"task-queue-front-unset", 5000, "B-LOG", "No Task\n", "getNextFiringInterval"};
inline constexpr LogMessage kTaskThreadDestroying = {"task-thread-destroying", 1, "B-LOG", "Destroy TimerThread:%d.\n", "~TimerThread"};
inline constexpr LogMessage kTaskThreadWaking = {"task-thread-waking", 5000, "B-LOG", "Wakeup worker\n", "stop"};
inline constexpr LogMessage kTaskEmpty = {"task-empty", 1000, "B-LOG", "Invalid Empty task\n", "postTask"};
inline constexpr LogMessage kTaskNoTime = {"task-no-time", 3000, "B-LOG", "[%p]:Forgot to set Firing Time?default to now(). task:(%p - id:%d).\n", "postTask"};
inline constexpr LogMessage kTaskInserting = {"task-inserting", 4000, "B-LOG", "[%p]:Insert new task:(%p - id:%d).\n", "postTask"};
inline constexpr LogMessage kTaskThreadNeeded = {"task-thread-needed", 1, "B-LOG", "[%p]:Need start TimerThread.\n", "postTask"};
inline constexpr LogMessage kTaskCancelledBySession = {"task-cancelled-by-session", 5000, "B-LOG", "CancelTask %d: taskid: %d,firetime:%f(%f)\n", "cancelTaskBySessionId"};
inline constexpr LogMessage kTaskCancelledById = {"task-cancelled-by-id", 5000, "B-LOG", "CancelTask %d,Session:%d firetime:%f(%f)\n", "cancelTaskByTaskId"};
inline constexpr LogMessage kTaskThreadBegins = {"task-thread-begins", 5000, "B-LOG", "[%p]:TimerThread begin run.\n", "run"};
inline constexpr LogMessage kTaskThreadStarted = {"task-thread-started", 1, "B-LOG", "Starting TimerThread:%d.\n", "run"};
inline constexpr LogMessage kTaskNotDue = {"task-not-due", 5000, "B-LOG", "[%p]: Not timeout, continue.\n", "run"};
inline constexpr LogMessage kTaskGone = {"task-gone", 1000, "B-LOG", "Task Just Removed? continue.\n", "run"};
inline constexpr LogMessage kTaskThreadExiting = {"task-thread-exiting", 1, "B-LOG", "[%p]:Exiting Timer Thread...\n", "run"};
inline constexpr LogMessage kTaskFound = {"task-found", 5000, "B-LOG", "[%p]:Find a task:[%p - id:%d] to fire.\n", "run"};
inline constexpr LogMessage kTaskWasCancelled = {"task-was-cancelled", 5000, "B-LOG", "[%p]:task:[%p - id:%d] fireTime is 0, is a canceled task.\n", "run"};
inline constexpr LogMessage kTaskTimes = {"task-times", 5000, "B-LOG", "[%p]:fireTime:%f, nowTime:%f\n", "run"};
inline constexpr LogMessage kTaskPutBack = {"task-put-back", 3000, "B-LOG", "[%p]:Put the task[%p - id:%d] back to queue because (fireTime:%f > nowTime:%f).\n", "run"};
inline constexpr LogMessage kTaskBegun = {"task-begun", 1, "B-LOG", "[%p]:Begin fire task:(%p - id:%d).\n", "run"};
inline constexpr LogMessage kTaskFinished = {"task-finished", 1, "B-LOG", "[%p]:Finish fire task:(%p - id:%d).\n", "run"};
inline constexpr LogMessage kTaskExitBeforeWait = {"task-exit-before-wait", 3000, "B-LOG", "Request Exit before wait.\n", "waitNextTaskWithTimeOut"};
inline constexpr LogMessage kPoolMainTask = {"pool-main-task", 5000, "B-LOG", "Post task:(%p - id:%d) to mainThread:%p.\n", "postMainThreadTask"};
inline constexpr LogMessage kPoolWorkerCount = {"pool-worker-count", 4000, "B-LOG", "Worker Count: %lu\n", "postWorkerTask"};
inline constexpr LogMessage kPoolNoWorker = {"pool-no-worker", 1000, "B-LOG", "No worker threads available. ignore task.\n", "postWorkerTask"};
inline constexpr LogMessage kPoolWorkerCreated = {"pool-worker-created", 1, "B-LOG", "Crate Worker Thread: %d\n", "postWorkerTask"};
inline constexpr LogMessage kPoolWorkerChosen = {"pool-worker-chosen", 4000, "B-LOG", "Post To Worker %d : taskcount: %d\n", "postWorkerTask"};
inline constexpr LogMessage kPathMissing = {"path-missing", 1000, "B-LOG", "filePath:'%s', ret:%d, error:'%s'.\n", "isPathExists"};
inline constexpr LogMessage kUuidNoMemory = {"uuid-no-memory", 1000, "B-LOG", "Fail to allocate buffer.\n", "generateUUID"};
inline constexpr LogMessage kFolderNull = {"folder-null", 1000, "B-LOG", "dirPath is NULL.\n\n", "rmDir"};
inline constexpr LogMessage kFolderNotOpened = {"folder-not-opened", 1000, "B-LOG", "Fail to opendir('%s').\n\n", "rmDir"};
inline constexpr LogMessage kFolderEntryUnknown = {"folder-entry-unknown", 1000, "B-LOG", "Fail to get stat of path.error:(%d-'%s').\n\n", "rmDir"};
inline constexpr LogMessage kFolderEntryOther = {"folder-entry-other", 5000, "B-LOG", "name:'%s', MODE:%d, ISOTHER.\n\n", "rmDir"};
inline constexpr LogMessage kFileNotDeleted = {"file-not-deleted", 1000, "B-LOG", "Fail to delete:'%s', error:(%d-'%s').\n\n", "rmDir"};
inline constexpr LogMessage kFolderNotDeleted = {"folder-not-deleted", 1000, "B-LOG", "Fail to delete dir:'%s', error:(%d-'%s').\n\n", "rmDir"};
inline constexpr LogMessage kRemovalNull = {"removal-null", 1000, "B-LOG", "dirPath is NULL.\n\n", "removeFolder"};
inline constexpr LogMessage kRemovalNotOpened = {"removal-not-opened", 1000, "B-LOG", "Fail to opendir('%s').\n\n", "removeFolder"};
inline constexpr LogMessage kRemovalNotDeleted = {"removal-not-deleted", 1000, "B-LOG", "Fail to delete:'%s', error:(%d-'%s').\n\n", "removeFolder"};
inline constexpr LogMessage kRemovalFolderNotDeleted = {"removal-folder-not-deleted", 1000, "B-LOG", "Fail to delete dir:'%s', error:(%d-'%s').\n\n", "removeFolder"};
inline constexpr LogMessage kZorDebugSetting = {"zor-debug-setting", 0, "zor-debug", "zor-debug: %s: cannot use '%.*s'%s\n", ""};
inline constexpr LogMessage kZorDebugLost = {"zor-debug-lost", 0, "zor-debug", "zor-debug: lines that could not be written: %u, for: %s\n", ""};
inline constexpr LogMessage kZorDebugLimit = {"zor-debug-limit", 0, "zor-debug", "zor-debug: cannot begin '%.300s' anew: %s; it grows on\n", ""};
inline constexpr LogMessage kTracePoint = {"trace-point", 5000, "B-LOG", "[TRACE] %s:%d:%s\n", ""};
// clang-format on
/// @}

}  // namespace log_messages
}  // namespace tevalon::testkit

#endif  // TESTKIT_LOG_MESSAGES_H
