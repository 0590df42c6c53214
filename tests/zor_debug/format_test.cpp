#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

#include "zor_debug/zor_debug.h"
#include "zor_debug/zor_debug_control.h"

namespace {

/// What is written arrives here.
class FormatTest : public ::testing::Test {
protected:
    FormatTest() {
        const auto keep = [](void* p_self, const DebugLevelRecord*, const char* p_text,
                             std::size_t length) {
            static_cast<FormatTest*>(p_self)->m_text.assign(p_text, length);
        };
        zorDebugInstallCapture(keep, this);
    }
    ~FormatTest() override { zorDebugRemoveCapture(); }

    // Checks that the text is the one that printf makes.
    void expectAsPrintf(const char* format, ...) __attribute__((format(printf, 2, 3))) {
        va_list args;
        va_list again;
        va_start(args, format);
        va_copy(again, args);
        char expected[4096];
        const int length = std::vsnprintf(expected, sizeof(expected), format, args);
        EXPECT_EQ(zorDebugOutputV(format, again), length) << format;
        EXPECT_EQ(m_text, std::string(expected, static_cast<std::size_t>(length))) << format;
        va_end(again);
        va_end(args);
    }

    std::string m_text;
};

TEST_F(FormatTest, Strings) {
    const char* volatile p_null = nullptr;
    expectAsPrintf("[%s] %s:%d:%s(): timer %s fired %d times\n", "B-LOG", "file.cpp", 42, "on", "",
                   -7);
    expectAsPrintf("%s", "a string that is longer than most, as a path or an address may well be");
    expectAsPrintf("<%s>", p_null);
    expectAsPrintf("%%s%%%c|%c", 'x', '\0');
    expectAsPrintf("%5s|%-5s|%.2s|%*s", "abc", "abc", "abc", 7, "abc");
    expectAsPrintf("%s", std::string(1022, 'x').c_str());
    expectAsPrintf("%s", std::string(1023, 'x').c_str());
    expectAsPrintf("%s", std::string(1024, 'x').c_str());
    expectAsPrintf("%s|%d", std::string(1022, 'x').c_str(), 12345);
    expectAsPrintf("%s|%x", std::string(1021, 'x').c_str(), 0x123U);
    expectAsPrintf("%s%c", std::string(1023, 'x').c_str(), 'y');
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

// Texts are copied in steps of eight, and near the end of the memory at hand one by one.
TEST_F(FormatTest, LengthsAroundTheStepsInWhichTheyAreCopied) {
    const std::string all(1040, 'x');
    for (std::size_t length = 0; length < 40; ++length) {
        const std::string text = all.substr(0, length);
        const std::string format = text + "%s" + text + "%c" + text;
        expectAsPrintf(format.c_str(), text.c_str(), 'y');
    }
    for (std::size_t length = 960; length < all.size(); ++length) {
        const std::string text = all.substr(0, length);
        expectAsPrintf("%s and no more\n", text.c_str());
        expectAsPrintf("%.4s%s%s", "abcdefgh", text.c_str(), "0123456789");
        expectAsPrintf((text + "%s").c_str(), "0123456789");
    }
}

// With what a caller of zorDebugOutputV() has: a list of arguments.
int writeFormat(const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int length = zorDebugOutputV(format, args);
    va_end(args);
    return length;
}

TEST_F(FormatTest, ANullFormatIsNoText) {
    m_text = "before";

    EXPECT_EQ(writeFormat(nullptr), 0);

    EXPECT_EQ(m_text, "before");
}

// Directives that are almost plain.
TEST_F(FormatTest, WidthsAndFlagsThatAreLeftToPrintf) {
    for (const char* const p_format :
         {"%05d", "%05u", "%05x", "%05X", "%00x", "%0#x", "%0:d", "%0lx", "%0hx", "%012x"}) {
        expectAsPrintf(p_format, 77);
    }
    const std::string rest(1100, 'x');
    for (const char* const p_directive : {"%d", "%u", "%s", "%c", "%x"}) {
        if (p_directive[1] == 's') {
            expectAsPrintf((p_directive + rest).c_str(), "text");
        } else {
            expectAsPrintf((p_directive + rest).c_str(), 77);
        }
    }
}

#pragma GCC diagnostic pop

TEST_F(FormatTest, Integers) {
    for (const int number : {0, 1, -1, 9, 10, 99, 100, 12345, INT_MAX, INT_MIN}) {
        expectAsPrintf("%d %i %u %x %X", number, number, static_cast<unsigned>(number),
                       static_cast<unsigned>(number), static_cast<unsigned>(number));
        expectAsPrintf("%02X %08Xd %01x %09x", static_cast<unsigned>(number),
                       static_cast<unsigned>(number), static_cast<unsigned>(number),
                       static_cast<unsigned>(number));
        expectAsPrintf("%5d|%05d|%-5d|%+d|% d|%#x|%o|%hhd|%hd", number, number, number, number,
                       number, static_cast<unsigned>(number), static_cast<unsigned>(number),
                       static_cast<signed char>(number), static_cast<short>(number));
    }
    expectAsPrintf("%ld %li %lu", LONG_MIN, LONG_MAX, ULONG_MAX);
    expectAsPrintf("%lld %lli %llu", LLONG_MIN, LLONG_MAX, ULLONG_MAX);
    expectAsPrintf("%zu %zd %zi", SIZE_MAX, static_cast<ssize_t>(-1), static_cast<ssize_t>(1));
    expectAsPrintf("%lx %llX %zx %012x", ULONG_MAX, ULLONG_MAX, SIZE_MAX, 0xABCU);
}

TEST_F(FormatTest, ArgumentsBehindOneThatTakesTheLongWay) {
    expectAsPrintf("%s %d %.3f %s %d", "a", 1, 2.5, "b", 2);
    expectAsPrintf("%d %p %lu %jd %td", 1, static_cast<void*>(this), 2UL, INTMAX_MIN,
                   static_cast<std::ptrdiff_t>(-3));
    expectAsPrintf("%d %d %d %d %d %d %d %d %e", 1, 2, 3, 4, 5, 6, 7, 8, 0.5);
    expectAsPrintf("%d %d %d %d %d %d %d %d %s", 1, 2, 3, 4, 5, 6, 7, 8, "nine");
}

}  // namespace
