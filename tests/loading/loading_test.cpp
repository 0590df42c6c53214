// The library in processes that load it, by itself or through their plugins, and let it go again.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <cctype>
#include <cstdlib>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "support/child_process.h"

namespace {

/// The thread sanitizer takes a thread that has ended, and is just about to be detached, for a
/// leak.
test::ChildProcess quietProcess(std::vector<std::string> arguments) {
    const char* const p_options = std::getenv("TSAN_OPTIONS");
    const std::string options = p_options != nullptr ? p_options : "";
    test::ChildProcess process(std::move(arguments));
    process.variable("TSAN_OPTIONS", options + " report_thread_leaks=0 atexit_sleep_ms=50")
        .variable("ZOR_DEBUG", "off");
    return process;
}

void expectSilence(const test::ChildResult& result) {
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "");
}

std::string nameOf(const testing::TestParamInfo<const char*>& way) {
    std::string name;
    bool beginsWord = true;
    for (const char* p_char = way.param; *p_char != '\0'; ++p_char) {
        if (*p_char == '-') {
            beginsWord = true;
            continue;
        }
        name += beginsWord ? static_cast<char>(std::toupper(*p_char)) : *p_char;
        beginsWord = false;
    }
    return name;
}

class UnlinkedHostTest : public testing::TestWithParam<const char*> {};

TEST_P(UnlinkedHostTest, FindsWhatItChecksAndExitsSilently) {
    expectSilence(quietProcess({TEVALON_TEST_UNLINKED_HOST, GetParam(), TEVALON_TEST_PLUGIN_ONE,
                                TEVALON_TEST_PLUGIN_TWO, TEVALON_TEST_LIBRARY})
                      .run());
}

INSTANTIATE_TEST_SUITE_P(Loading, UnlinkedHostTest,
                         testing::Values("local", "global", "at-once", "again", "exit-at-work",
                                         "library-alone", "location"),
                         nameOf);

class LinkedHostTest : public testing::TestWithParam<const char*> {};

TEST_P(LinkedHostTest, FindsWhatItChecksAndExitsSilently) {
    expectSilence(quietProcess({TEVALON_TEST_LINKED_HOST, GetParam(), TEVALON_TEST_PLUGIN_ONE,
                                TEVALON_TEST_PLUGIN_TWO})
                      .run());
}

INSTANTIATE_TEST_SUITE_P(Loading, LinkedHostTest,
                         testing::Values("load-before", "load-after", "load-at-work"), nameOf);

// A symbol that is to be unique in the process would keep it.
TEST(LockingPluginTest, GoesWhenItIsLetGoOf) {
    void* const p_plugin = dlopen(TEVALON_TEST_LOCKING_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(p_plugin, nullptr) << dlerror();
    const auto work = reinterpret_cast<int (*)()>(dlsym(p_plugin, "lockingPluginWork"));
    ASSERT_NE(work, nullptr) << dlerror();
    EXPECT_EQ(work(), 4);

    EXPECT_EQ(dlclose(p_plugin), 0);

    EXPECT_EQ(dlopen(TEVALON_TEST_LOCKING_PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr);
}

TEST(CHostTest, CallsTheEntryPointsByTheirNames) {
    const test::ChildResult result = quietProcess({TEVALON_TEST_C_HOST, TEVALON_TEST_LIBRARY})
                                         .variable("ZOR_DEBUG", "debug")
                                         .run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "z\n");
    const std::string errors =
        std::regex_replace(result.errors, std::regex("\\([0-9A-F]{8}d\\)"), "(#)");
    EXPECT_EQ(errors,
              "[TAG]b.c:12:f:x=5\n"
              "[]:7::y\n"
              "[]:0::DUMPMEM(#):, bytes\n"
              "[]:0::DUMPMEM(#):, 00 7F FF \n");
}

#ifndef TEVALON_TEST_SANITIZED
// What runs as the library is loaded, every process pays for, whether it uses the library or not.
TEST(LibraryTest, RunsNoConstructorsWhenItIsLoaded) {
    constexpr ElfW(Word) kOfTheCompiler = sizeof(void*);  // frame_dummy(), in every library.
    void* const p_library = dlopen(TEVALON_TEST_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(p_library, nullptr) << dlerror();
    link_map* p_map = nullptr;
    ASSERT_EQ(dlinfo(p_library, RTLD_DI_LINKMAP, &p_map), 0) << dlerror();

    const ElfW(Dyn)* p_entry = p_map->l_ld;
    while (p_entry->d_tag != DT_NULL && p_entry->d_tag != DT_INIT_ARRAYSZ) ++p_entry;

    ASSERT_EQ(p_entry->d_tag, DT_INIT_ARRAYSZ);
    EXPECT_EQ(p_entry->d_un.d_val, kOfTheCompiler);
    EXPECT_EQ(dlclose(p_library), 0);
}
#endif

}  // namespace
