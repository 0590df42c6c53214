// A module that has the library within itself, from the archive, and uses every service.

#include "loading/work.h"

extern "C" __attribute__((visibility("default"))) int staticModuleWork() {
    return work::useEveryService(1);
}
