// all.h: every kind of timer that this machine has: made once, started and stopped often.

#ifndef BENCHMARKS_TIMERS_ALL_H
#define BENCHMARKS_TIMERS_ALL_H

#include "support/rows.h"
#include "timers/limit_timers.h"
#include "timers/our_timers.h"
#ifdef HAVE_BOOST
#include "timers/asio_timers.h"
#endif
#ifdef HAVE_GLIB
#include "timers/glib_timers.h"
#endif
#ifdef HAVE_LIBEVENT
#include "timers/libevent_timers.h"
#endif
#ifdef HAVE_LIBUV
#include "timers/uv_timers.h"
#endif

namespace bench {

/// Calls @p visit with the Type of each.
template <typename Visit>
void forEachKindOfTimer(Visit visit) {
    visit(Type<OurTimers>());
    visit(Type<LimitTimers>());
#ifdef HAVE_BOOST
    visit(Type<AsioTimers>());
#endif
#ifdef HAVE_GLIB
    visit(Type<GlibTimers>());
#endif
#ifdef HAVE_LIBEVENT
    visit(Type<LibeventTimers>());
#endif
#ifdef HAVE_LIBUV
    visit(Type<UvTimers>());
#endif
}

}  // namespace bench

#endif  // BENCHMARKS_TIMERS_ALL_H
