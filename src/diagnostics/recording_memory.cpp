#include "diagnostics/recording_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>

#include "os/no_cancellation.h"

namespace tevalon::base::diagnostics {
namespace {

constexpr int kProtection = PROT_READ | PROT_WRITE;

Status statusOfOpening(int error) {
    return error == EEXIST ? Status::FileExists : Status::FileNotOpened;
}

// A file beyond the process's limit is not only refused: a signal ends the process.
bool isWithinLimit(std::size_t bytes) {
    rlimit limit = {};
    return getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
           bytes <= limit.rlim_cur;
}

// Blocks of the file system for all of the file: to write into a hole of a mapped file for which
// there is no block left ends the process.
bool reserve(int descriptor, std::size_t bytes) {
    if (!isWithinLimit(bytes)) return false;
    int error = 0;
    do {
        error = posix_fallocate(descriptor, 0, static_cast<off_t>(bytes));
    } while (error == EINTR);
    return error == 0;
}

Status map(int descriptor, int flags, std::size_t bytes, RecordingMemory* p_memory) {
    void* const p_begin = mmap(nullptr, bytes, kProtection, flags, descriptor, 0);
    if (p_begin == MAP_FAILED) return Status::NoMemory;
    p_memory->p_begin = static_cast<std::byte*>(p_begin);
    p_memory->bytes = bytes;
    return Status::Ok;
}

Status mapFile(int descriptor, std::size_t bytes, RecordingMemory* p_memory) {
    if (!reserve(descriptor, bytes)) return Status::NoRoom;
    return map(descriptor, MAP_SHARED | MAP_POPULATE, bytes, p_memory);
}

}  // namespace

Status makeRecordingMemory(std::size_t bytes, const char* file, RecordingMemory* p_memory) {
    if (file == nullptr) {
        return map(-1, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, bytes, p_memory);
    }
    // A file and its descriptor would stay behind.
    const NoCancellation noCancellation;
    // Exclusively: neither an earlier recording nor what a link leads to is written over.
    const int descriptor = open(file, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY,
                                S_IRUSR | S_IWUSR);
    if (descriptor < 0) return statusOfOpening(errno);
    const Status status = mapFile(descriptor, bytes, p_memory);
    if (status != Status::Ok) (void)unlink(file);
    (void)close(descriptor);  // The mapping keeps the file.
    return status;
}

void freeRecordingMemory(const RecordingMemory& memory) {
    if (memory.p_begin != nullptr) (void)munmap(memory.p_begin, memory.bytes);
}

void detachRecordingMemory(const RecordingMemory& memory) {
    if (memory.p_begin == nullptr) return;
    (void)mmap(memory.p_begin, memory.bytes, kProtection,
               MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED | MAP_NORESERVE, -1, 0);
}

}  // namespace tevalon::base::diagnostics
