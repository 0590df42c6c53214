// hooks.h: what the files with the hooks share.

#ifndef TESTKIT_SRC_HOOKS_H
#define TESTKIT_SRC_HOOKS_H

#include <dlfcn.h>

#include <cstdint>

#include "schedule.h"

// A hook replaces a function of the C library, of the compiler's runtime or of the thread
// sanitizer, in the whole program and its shared libraries.
#define TESTKIT_HOOK extern "C" __attribute__((visibility("default")))

namespace tevalon::testkit {

/// The function that a hook replaces.
template <typename Function>
Function* realFunction(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Names a file with hooks, so that the linker takes it from the archive.
void linkAccessHooks();
void linkAtomicHooks();
void linkMemoryHooks();
void linkPipeHooks();
void linkThreadHooks();
void linkLockHooks();
void linkTimeHooks();

/// What the allocator does for the thread from now on: each thread of a schedule takes memory from
/// a part of its own, so that addresses do not depend on the schedule, and nothing that was freed
/// is used again.
void allocateFrom(int part);
/// For a thread of the schedule, in the same place in every schedule.
void* stackOf(int thread);
inline constexpr std::size_t kStackBytes = std::size_t{512} * 1024;

/// On the virtual clock; from times of the C library.
std::int64_t deadlineAt(int clock, const timespec& time);
std::int64_t deadlineIn(const timespec& duration);

}  // namespace tevalon::testkit

#define TESTKIT_REAL(name) ::tevalon::testkit::realFunction<decltype(name)>(#name)

#endif  // TESTKIT_SRC_HOOKS_H
