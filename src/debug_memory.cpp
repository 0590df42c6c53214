#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

#include "base/logging/blog.h"
#include "base/logging/boot_id.h"
#include "base/logging/debug_memory.h"
#include "locks/annotated_mutex.h"
#include "os/monotonic_time.h"
#include "os/no_cancellation.h"

// The reports' lines carry fixed numbers, by which scripts find them.
#define REPORT_FORMAT "{%d-%f}[%s] %s:%d:%s(): ==%s==\n %s\n"
#define REPORT_ARGUMENTS(id, now, title, text) \
    id, now, BLOG_TAG, blog_base_name(__FILE__), 79, "showFileContents", title, text

namespace tevalon::base::debug {

std::atomic<bool> g_webengine_memory_debug_enabled{false};
std::atomic<char*> g_webengine_memory_debug_info{nullptr};

namespace {

constexpr std::size_t kInfoSize = 4096;

AnnotatedMutex g_infoMutex;  // Guards what the buffer holds, and its allocation. A leaf.

struct CloseFile {
    // Cancelled in a destructor, the process would end.
    void operator()(std::FILE* p_file) const {
        const NoCancellation noCancellation;
        (void)std::fclose(p_file);
    }
};

void keepInfo(const char* p_text) {
    const MutexGuard lock(g_infoMutex);
    std::memcpy(g_webengine_memory_debug_info, p_text, kInfoSize);
}

void report(const char* p_title, const char* p_text) {
    const double now = monotonicSeconds();
    // Once for both: an identifier of 0 is not kept, and the next one would be another.
    const int id = static_cast<int>(bootID());
    std::printf(REPORT_FORMAT, REPORT_ARGUMENTS(id, now, p_title, p_text));
    if (!isLogOn(kLogAlways)) return;
    zorDebugOutput0(REPORT_FORMAT, REPORT_ARGUMENTS(id, now, p_title, p_text));
}

}  // namespace

bool debug_init() {
    {
        const MutexGuard lock(g_infoMutex);
        if (g_webengine_memory_debug_info == nullptr) {
            auto* p_info = static_cast<char*>(std::malloc(kInfoSize));
            if (p_info != nullptr) p_info[0] = '\0';
            g_webengine_memory_debug_info = p_info;
        }
    }
    const char* p_setting = std::getenv("SHOW_MEMORY_DEBUG_INFO");
    if (p_setting == nullptr) return false;
    const std::string_view setting(p_setting);
    if (setting != "TRUE" && setting != "1" && setting != "true") return false;
    g_webengine_memory_debug_enabled = true;
    return true;
}

bool debug_memory_debug_enabled() {
    return g_webengine_memory_debug_enabled;
}

bool debug_init_tcmalloc_extension() {
    return true;
}

void debug_dump_tcmalloc_status() {}

void debug_dump_system_memory_status() {
    showFileContents("System MemInfo:", "/proc/meminfo");
}

void showFileContents(const char* title, const char* path) {
    if (g_webengine_memory_debug_info == nullptr || title == nullptr || path == nullptr) return;

    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path, "rb"));
    if (file == nullptr) {
        BLOG_AT(BLOG_TAG, kLogError, __FILE__, 68, __func__, "Error opening %s\n", path);
        return;
    }
    // Read aside, so that two threads that show files at once do not mix them.
    char text[kInfoSize] = {};
    const std::size_t count = std::fread(text, 1, kInfoSize - 1, file.get());
    if (count == 0) {
        BLOG_AT(BLOG_TAG, kLogError, __FILE__, 73, __func__, "Error reading %s\n", path);
        return;
    }
    text[count - 1] = '\0';
    keepInfo(text);
    report(title, text);
}

}  // namespace tevalon::base::debug
