// synchronization.h: the lock wrappers, the guards, and the annotations that Clang checks.

#ifndef BASE_SYNCHRONIZATION_H
#define BASE_SYNCHRONIZATION_H

#include "base/synchronization/auto_lock.h"
#include "base/synchronization/condition_variable.h"
#include "base/synchronization/lock_guard.h"
#include "base/synchronization/mutex.h"
#include "base/synchronization/relockable_lock.h"
#include "base/synchronization/thread_annotations.h"
#include "base/synchronization/unique_lock.h"

#endif  // BASE_SYNCHRONIZATION_H
