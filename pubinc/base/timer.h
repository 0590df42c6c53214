// timer.h: everything of the timer family; timer/ holds one header per class.

#ifndef BASE_TIMER_H
#define BASE_TIMER_H

#include "base/timer/named_watch.h"
#include "base/timer/scoped_watch.h"
#include "base/timer/task_handle.h"
#include "base/timer/timer_execution_context.h"
#include "base/timer/timer_task.h"
#include "base/timer/timer_thread.h"
#include "base/timer/timer_thread_pool.h"
#include "base/timer/watchdog.h"

#endif  // BASE_TIMER_H
