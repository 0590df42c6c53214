// A source whose lines carry a module number of its own: of ten, here.
#define BLOG_MODULE kModule

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/logging.h"
#include "support/log_capture.h"

namespace own_module {

using namespace tevalon::base;
using test::LogCapture;
using test::LogEntry;

// What a client's module would have at its sources' beginning.
template <std::uint16_t kModule>
void speak() {
    BLOG_TRACE_SCOPE();
    BLOG(kLogError, "module %d fails\n", kModule);
    BLOG(kLogInfo, "module %d works\n", kModule);
    BLOG_AS("elsewhere", kLogInfo, "module %d works\n", kModule);
    BLOG_TRACE_POINT();
}

void allSpeak() {
    speak<0x60>();
    speak<0x61>();
    speak<0x62>();
    speak<0x63>();
    speak<0x64>();
    speak<0x65>();
    speak<0x66>();
    speak<0x67>();
    speak<0x68>();
    speak<0x69>();
}

std::vector<std::uint16_t> modulesOf(const std::vector<LogEntry>& entries) {
    std::vector<std::uint16_t> modules;
    modules.reserve(entries.size());
    for (const LogEntry& entry : entries) modules.push_back(entry.module);
    return modules;
}

TEST(OwnModuleTest, EachLineCarriesTheNumberOfItsModule) {
    LogCapture log;
    ASSERT_EQ(zorDebugSetLevels("error"), 0);

    allSpeak();

    EXPECT_EQ(modulesOf(log.entries()), (std::vector<std::uint16_t>{0x60, 0x61, 0x62, 0x63, 0x64,
                                                                    0x65, 0x66, 0x67, 0x68, 0x69}));
    EXPECT_EQ(
        log.entriesWithoutLineNumbers()[3],
        (LogEntry{kLogError, "[B-LOG] own_module_test.cpp:#:speak(): module 99 fails\n", 0x63}));
}

TEST(OwnModuleTest, ModulesAreFilteredByTheirNumbers) {
    LogCapture log;
    ASSERT_EQ(zorDebugSetLevels("off,0x64=info,0x65=error"), 0);

    allSpeak();

    EXPECT_EQ(log.entriesWithoutLineNumbers(),
              (std::vector<LogEntry>{
                  {kLogError, "[B-LOG] own_module_test.cpp:#:speak(): module 100 fails\n", 0x64},
                  {kLogInfo, "[B-LOG] own_module_test.cpp:#:speak(): module 100 works\n", 0x64},
                  {kLogInfo, "[B-LOG] own_module_test.cpp:#:elsewhere(): module 100 works\n", 0x64},
                  {kLogError, "[B-LOG] own_module_test.cpp:#:speak(): module 101 fails\n", 0x65}}));
}

TEST(OwnModuleTest, TracesAreTheModulesToo) {
    LogCapture log;
    ASSERT_EQ(zorDebugSetLevels("off,0x66=debug"), 0);

    allSpeak();

    const std::vector<LogEntry> entries = log.entriesWithoutLineNumbers();
    ASSERT_EQ(entries.size(), 6U);
    EXPECT_EQ(entries[0],
              (LogEntry{kLogDebug, "[TRACE -> speak(IN)] own_module_test.cpp:#:speak() \n", 0x66}));
    EXPECT_EQ(entries[4].text.substr(0, 29), "[TRACE] own_module_test.cpp:#");
    EXPECT_EQ(entries[4].module, 0x66);
    EXPECT_EQ(
        entries[5],
        (LogEntry{kLogDebug, "[TRACE <- speak(OUT)] own_module_test.cpp:#:speak() \n", 0x66}));
}

TEST(OwnModuleTest, TheLibrarysNumberGivesTheLibrarysTrace) {
    constexpr bool isSame =
        std::is_same_v<internal::ScopeTraceOf<kBlogModule>, internal::ScopeTrace>;

    EXPECT_TRUE(isSame);
}

TEST(OwnModuleTest, OtherLinesKeepTheLibrarysNumber) {
    LogCapture log;

    print_browser_log(1, "tag", "file", 1, "function", "text");
    { const FunctionTracer tracer("function", "file", 1); }

    for (const LogEntry& entry : log.entries()) EXPECT_EQ(entry.module, kBlogModule) << entry.text;
    EXPECT_EQ(log.entries().size(), 5U);
}

}  // namespace own_module
