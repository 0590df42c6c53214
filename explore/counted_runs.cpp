// The counters of a coverage build in the runs of the explorer: each is a process of its own, which
// ends by a system call. It leaves there what it has passed, and the explorer takes it along.
//
// They are no shared mapping as in other programs: the compiler instruments what it does not know
// to be a counter, and the explorer would find the races between them.

#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the compiler's and the linker's.
std::uint64_t* __llvm_profile_begin_counters();
std::uint64_t* __llvm_profile_end_counters();
long __real_syscall(long number, ...);
long __wrap_syscall(long number, ...);
}

namespace {

std::uint64_t* g_passed = nullptr;  // Shared with the runs.

std::size_t counterCount() {
    return static_cast<std::size_t>(__llvm_profile_end_counters() -
                                    __llvm_profile_begin_counters());
}

// At the end, before the counters are written.
void takeAlong() {
    for (std::size_t i = 0; i < counterCount(); ++i) {
        __llvm_profile_begin_counters()[i] += g_passed[i];
    }
}

__attribute__((constructor)) void share() {
    void* const p_memory = mmap(nullptr, counterCount() * sizeof(std::uint64_t),
                                PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (p_memory == MAP_FAILED) std::abort();
    g_passed = static_cast<std::uint64_t*>(p_memory);
    (void)std::atexit(takeAlong);
}

}  // namespace

long __wrap_syscall(long number, ...) {
    if (number == SYS_exit_group) {
        for (std::size_t i = 0; i < counterCount(); ++i) {
            g_passed[i] += __llvm_profile_begin_counters()[i];
        }
    }
    std::va_list arguments;
    va_start(arguments, number);
    long words[6];
    for (long& word : words) word = va_arg(arguments, long);
    va_end(arguments);
    return __real_syscall(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}
// NOLINTEND(bugprone-reserved-identifier)
