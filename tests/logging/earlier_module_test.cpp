// A module that was built before the tracer was inlined calls the library's own constructor and
// destructor. This source declares the tracer as such a module saw it, and so must not include the
// header.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/log_capture.h"

namespace tevalon::base {

class FunctionTracer {
public:
    FunctionTracer(const char* function, const char* file, int line);
    ~FunctionTracer();

    FunctionTracer(const FunctionTracer&) = delete;
    FunctionTracer& operator=(const FunctionTracer&) = delete;

private:
    const char* m_function;
    const char* m_file;
    int m_line;
};

}  // namespace tevalon::base

namespace {

using namespace tevalon::base;
using test::LogEntry;

TEST(EarlierModuleTest, FindsTheFunctionTracerInTheLibrary) {
    test::LogCapture log;

    { const FunctionTracer tracer("start", "x/y/z.cpp", 42); }

    const std::vector<LogEntry> expected = {{kLogDebug, "TRACE -> [start(IN)] :x/y/z.cpp:42 \n"},
                                            {kLogDebug, "TRACE <- [start(OUT)] :x/y/z.cpp:42 \n"}};
    EXPECT_EQ(log.entries(), expected);
}

// As a part of something larger, for which there is a constructor and a destructor of its own.
class TracedPart : FunctionTracer {
public:
    TracedPart() : FunctionTracer("part", "z.cpp", 1) {}
};

TEST(EarlierModuleTest, FindsTheFunctionTracerAsABase) {
    test::LogCapture log;

    { const TracedPart part; }

    EXPECT_EQ(log.texts(), (std::vector<std::string>{"TRACE -> [part(IN)] :z.cpp:1 \n",
                                                     "TRACE <- [part(OUT)] :z.cpp:1 \n"}));
}

}  // namespace
