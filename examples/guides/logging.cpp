// logging.cpp: a module's lines, with its own number and tag.
#define BLOG_MODULE 0x60   // Best for the whole target, on the compiler's command line.
#define BLOG_TAG "LOADER"  // Both before the first include.

#include "base/logging.h"

using namespace tevalon::base;

namespace {

const char* expensive() {
    print_browser_log(1, "LOADER", __FILE__, __LINE__, __func__, "called");
    return "what takes long to find out";
}

void load(const char* url) {
    BLOG_TRACE_SCOPE();  // One line here and one at the end of the scope, at the debug level.
    BLOG(kLogAlways, "Loading '%s'.\n", url);
    BLOG(kLogDebug, "Details: %s.\n", expensive());  // Not called unless the level is on.
    BLOG(kLogError, "Fail to open '%s', error:%d.\n", url, 2);
}

}  // namespace

int main() {
    load("http://tv.example/news");
}
