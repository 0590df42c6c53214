// work.h: what every scheduler is given to do.

#ifndef BENCHMARKS_SCHEDULERS_WORK_H
#define BENCHMARKS_SCHEDULERS_WORK_H

#include <functional>

namespace bench {

using Work = std::function<void()>;

}  // namespace bench

#endif  // BENCHMARKS_SCHEDULERS_WORK_H
