// The library's archive inside of a module that is loaded, used and let go of.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include "ends/forked_child.h"
#include "support/fresh_process.h"

namespace {

int loadUseAndLetGo() {
    void* const p_module = dlopen(TEVALON_TEST_STATIC_MODULE, RTLD_NOW | RTLD_LOCAL);
    if (p_module == nullptr) {
        ADD_FAILURE() << dlerror();
        return -1;
    }
    const auto work = reinterpret_cast<int (*)()>(dlsym(p_module, "staticModuleWork"));
    const int mainThread = work != nullptr ? work() : -1;
    EXPECT_EQ(dlclose(p_module), 0);
    return mainThread;
}

// Its threads go on: the scheduler of timers, the pool's, the process's watchdog.
TEST(StaticModuleTest, WorksOnWhenItIsLetGoOf) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const int mainThread = loadUseAndLetGo();
        EXPECT_GT(mainThread, 0);
        EXPECT_NE(dlopen(TEVALON_TEST_STATIC_MODULE, RTLD_NOW | RTLD_NOLOAD), nullptr);
        // The very same: two of them would each have a pool.
        EXPECT_EQ(loadUseAndLetGo(), mainThread);
        EXPECT_EQ(test::runInForkedChild([] {}), 0);
    });
}

}  // namespace
