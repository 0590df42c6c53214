// all.h: every scheduler that this machine has: tasks are posted from any thread, and run on one.

#ifndef BENCHMARKS_SCHEDULERS_ALL_H
#define BENCHMARKS_SCHEDULERS_ALL_H

#include "schedulers/limit_scheduler.h"
#include "schedulers/our_scheduler.h"
#include "support/rows.h"
#ifdef HAVE_BOOST
#include "schedulers/asio_scheduler.h"
#endif
#ifdef HAVE_GLIB
#include "schedulers/glib_scheduler.h"
#endif
#ifdef HAVE_LIBEVENT
#include "schedulers/libevent_scheduler.h"
#endif
#ifdef HAVE_POCO
#include "schedulers/poco_scheduler.h"
#endif

namespace bench {

/// Calls @p visit with the Type of each scheduler whose tasks can be cancelled.
template <typename Visit>
void forEachCancellingScheduler(Visit visit) {
    visit(Type<OurScheduler>());
#ifdef HAVE_BOOST
    visit(Type<AsioScheduler>());
#endif
#ifdef HAVE_GLIB
    visit(Type<GlibScheduler>());
#endif
#ifdef HAVE_LIBEVENT
    visit(Type<LibeventScheduler>());
#endif
}

/// Calls @p visit with the Type of each scheduler.
template <typename Visit>
void forEachScheduler(Visit visit) {
    forEachCancellingScheduler(visit);
    visit(Type<LimitScheduler>());
#ifdef HAVE_POCO
    visit(Type<PocoScheduler>());
#endif
}

}  // namespace bench

#endif  // BENCHMARKS_SCHEDULERS_ALL_H
