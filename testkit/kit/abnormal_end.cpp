// Not by a handler of SIGABRT: tests have their own. In a source of its own, as every program
// refers to abort() and so has this one linked. Built without sanitizers.
#include "abnormal_end.h"

#include "interposition.h"

namespace tevalon::testkit::kit {
namespace {

void (*g_task)();

void callTask() {
    void (*const task)() = __atomic_load_n(&g_task, __ATOMIC_ACQUIRE);
    if (task != nullptr) task();
}

}  // namespace

void callBeforeAbort(void (*task)()) {
    __atomic_store_n(&g_task, task, __ATOMIC_RELEASE);
}

}  // namespace tevalon::testkit::kit

TEVALON_KIT_DEFINE(abort, void, ()) {
    tevalon::testkit::kit::callTask();
    next_abort()();
}

// The C library ends itself there, and not by the abort() above.
TEVALON_KIT_DEFINE(__assert_fail, void,
                   (const char* assertion, const char* file, unsigned line, const char* function)) {
    tevalon::testkit::kit::callTask();
    next___assert_fail()(assertion, file, line, function);
}
