#include "base/singleton.h"

#include <sched.h>

namespace tevalon::base::internal {

std::intptr_t WaitForInstance(std::intptr_t* p_instance) {
    while (true) {
        const std::intptr_t instance = __atomic_load_n(p_instance, __ATOMIC_SEQ_CST);
        if (instance != kInstanceBeingCreated) return instance;
        (void)sched_yield();  // Fails on no Linux; a failed yield is only a faster spin.
    }
}

}  // namespace tevalon::base::internal
