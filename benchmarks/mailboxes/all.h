// all.h: every mailbox that this machine has.

#ifndef BENCHMARKS_MAILBOXES_ALL_H
#define BENCHMARKS_MAILBOXES_ALL_H

#include "mailboxes/our_mailbox.h"
#include "mailboxes/plain_mailbox.h"
#include "support/rows.h"
#ifdef HAVE_BOOST
#include "mailboxes/asio_mailbox.h"
#endif
#ifdef HAVE_POCO
#include "mailboxes/poco_mailbox.h"
#endif
#ifdef HAVE_GLIB
#include "mailboxes/glib_mailbox.h"
#endif
#ifdef HAVE_QT
#include "mailboxes/qt_mailbox.h"
#endif
#ifdef HAVE_LIBUV
#include "mailboxes/uv_mailbox.h"
#endif
#ifdef HAVE_LIBEVENT
#include "mailboxes/libevent_mailbox.h"
#endif

namespace bench {

/// Calls @p visit with the Type of each mailbox with a queue: ours, the peers' and the plain one.
template <typename Visit>
void forEachQueue(Visit visit) {
    visit(Type<OurMailbox>());
    visit(Type<PlainMailbox>());
#ifdef HAVE_BOOST
    visit(Type<AsioMailbox>());
#endif
#ifdef HAVE_POCO
    visit(Type<PocoMailbox>());
#endif
#ifdef HAVE_GLIB
    visit(Type<GlibMailbox>());
#endif
#ifdef HAVE_QT
    visit(Type<QtMailbox>());
#endif
#ifdef HAVE_LIBEVENT
    visit(Type<LibeventMailbox>());
#endif
}

/// The same for everything that can be called: those, and a loop without a queue.
template <typename Visit>
void forEachCallee(Visit visit) {
    forEachQueue(visit);
#ifdef HAVE_LIBUV
    visit(Type<UvMailbox>());
#endif
}

}  // namespace bench

#endif  // BENCHMARKS_MAILBOXES_ALL_H
