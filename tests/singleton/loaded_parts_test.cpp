#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "singleton/parts.h"

namespace {

using Function = void* (*)();

/// Loads a part for good, or ends the process with status 2.
Function functionOf(const char* path, int mode, const char* name) {
    void* const library = dlopen(path, RTLD_NOW | mode);
    void* const symbol = library != nullptr ? dlsym(library, name) : nullptr;
    if (symbol == nullptr) {
        std::fprintf(stderr, "%s\n", dlerror());
        std::_Exit(2);
    }
    return reinterpret_cast<Function>(symbol);
}

/// How the parts are loaded cannot be undone, so each test has a process of its own.
class SingletonLoadedPartsDeathTest : public testing::TestWithParam<int> {
protected:
    static void exitComparing(const void* one, const void* two) {
        std::_Exit(one != nullptr && one == two ? 0 : 1);
    }
};

TEST_P(SingletonLoadedPartsDeathTest, ExecutableAndLoadedObjectsShareOneInstance) {
    EXPECT_EXIT(
        {
            const Function one =
                functionOf(TEVALON_TEST_PART_ONE, GetParam(), "sharedServiceOfPartOne");
            const Function two =
                functionOf(TEVALON_TEST_PART_TWO, GetParam(), "sharedServiceOfPartTwo");
            const void* const first = two();
            if (parts::SharedService::GetInstance() != first) std::_Exit(1);
            exitComparing(first, one());
        },
        testing::ExitedWithCode(0), "");
}

TEST_P(SingletonLoadedPartsDeathTest, LoadedObjectsShareOneInstanceThatTheExecutableDoesNotKnow) {
#if defined(__clang__)
    if (GetParam() == RTLD_LOCAL) {
        GTEST_SKIP() << "clang makes no unique symbols, which join locally loaded objects";
    }
#endif
    EXPECT_EXIT(
        {
            const Function one =
                functionOf(TEVALON_TEST_PART_ONE, GetParam(), "partsServiceOfPartOne");
            const Function two =
                functionOf(TEVALON_TEST_PART_TWO, GetParam(), "partsServiceOfPartTwo");
            exitComparing(one(), two());
        },
        testing::ExitedWithCode(0), "");
}

INSTANTIATE_TEST_SUITE_P(Modes, SingletonLoadedPartsDeathTest,
                         testing::Values(RTLD_GLOBAL, RTLD_LOCAL),
                         [](const testing::TestParamInfo<int>& mode) {
                             return mode.param == RTLD_GLOBAL ? "Global" : "Local";
                         });

}  // namespace
