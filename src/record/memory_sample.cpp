#include "record/memory_sample.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "os/monotonic_time.h"
#include "record/writer.h"

namespace tevalon::base::record {
namespace {

// In KiB, which is enough for 4 TiB: 64 bits are no single store on every ARM.
std::atomic<std::uint32_t> g_heapInUseKiB{0};

// Plain system calls, for open() and read() would be cancellation points.
std::size_t readSmallFile(const char* path, char* p_text, std::size_t capacity) {
    const int error = errno;
    const long descriptor = syscall(SYS_openat, AT_FDCWD, path, O_RDONLY | O_CLOEXEC);
    long length = -1;
    if (descriptor >= 0) {
        length = syscall(SYS_read, descriptor, p_text, capacity);
        (void)syscall(SYS_close, descriptor);
    }
    errno = error;
    return length > 0 ? static_cast<std::size_t>(length) : 0;
}

/// Reads a decimal number and what stands before it. False where there is none.
bool nextNumber(const char** pp_text, const char* p_end, std::uint64_t* p_number) {
    const char* p_next = *pp_text;
    while (p_next != p_end && *p_next == ' ') ++p_next;
    const char* const p_begin = p_next;
    std::uint64_t number = 0;
    for (; p_next != p_end && *p_next >= '0' && *p_next <= '9'; ++p_next) {
        number = number * 10 + static_cast<std::uint64_t>(*p_next - '0');
    }
    *pp_text = p_next;
    *p_number = number;
    return p_next != p_begin;
}

}  // namespace

void setHeapInUse(std::uint64_t bytes) {
    g_heapInUseKiB.store(static_cast<std::uint32_t>(bytes >> 10), std::memory_order_relaxed);
}

bool readMemorySample(MemorySample* p_sample) {
    char text[128];
    const char* p_next = text;
    // In pages: whole size, resident, and of these shared with files.
    const char* const p_end = text + readSmallFile("/proc/self/statm", text, sizeof(text));
    std::uint64_t size = 0;
    std::uint64_t resident = 0;
    std::uint64_t shared = 0;
    if (!nextNumber(&p_next, p_end, &size) || !nextNumber(&p_next, p_end, &resident) ||
        !nextNumber(&p_next, p_end, &shared)) {
        return false;
    }
    timespec now = {};
    (void)clock_gettime(CLOCK_REALTIME, &now);
    const auto pageBytes = static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
    p_sample->residentBytes = resident * pageBytes;
    p_sample->privateBytes = (resident - shared) * pageBytes;
    p_sample->heapBytes = std::uint64_t{g_heapInUseKiB.load(std::memory_order_relaxed)} << 10;
    p_sample->realtimeNs = nanosecondsOf(now);
    return true;
}

}  // namespace tevalon::base::record
