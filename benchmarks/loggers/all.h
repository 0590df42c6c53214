// all.h: every logger that this machine has.

#ifndef BENCHMARKS_LOGGERS_ALL_H
#define BENCHMARKS_LOGGERS_ALL_H

#include "loggers/limit_logger.h"
#include "loggers/our_logger.h"
#include "support/rows.h"
#ifdef HAVE_SPDLOG
#include "loggers/spdlog_logger.h"
#endif
#ifdef HAVE_GLOG
#include "loggers/glog_logger.h"
#endif
#ifdef HAVE_POCO
#include "loggers/poco_logger.h"
#endif

namespace bench {

/// Calls @p visit with the Type of each logger: ours, the limit, the peers'.
template <typename Visit>
void forEachLogger(Visit visit) {
    visit(Type<OurLogger>());
    visit(Type<LimitLogger>());
#ifdef HAVE_SPDLOG
    visit(Type<SpdlogLogger>());
#endif
#ifdef HAVE_GLOG
    visit(Type<GlogLogger>());
#endif
#ifdef HAVE_POCO
    visit(Type<PocoLogger>());
#endif
}

}  // namespace bench

#endif  // BENCHMARKS_LOGGERS_ALL_H
