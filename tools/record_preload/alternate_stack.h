// alternate_stack.h: where a signal handler runs though its thread's stack is used up.

#ifndef TOOLS_RECORD_PRELOAD_ALTERNATE_STACK_H
#define TOOLS_RECORD_PRELOAD_ALTERNATE_STACK_H

#include <sys/mman.h>

#include <csignal>
#include <cstddef>

namespace tevalon::record_preload {

/// Gives the calling thread an alternate signal stack while it lives, unless it has one. Without
/// memory there is none.
class AlternateStack {
public:
    AlternateStack() {
        stack_t before = {};
        if (sigaltstack(nullptr, &before) != 0 || (before.ss_flags & SS_DISABLE) == 0) return;
        void* const p_memory = mmap(nullptr, kBytes, PROT_READ | PROT_WRITE,
                                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
        if (p_memory == MAP_FAILED) return;
        stack_t stack = {};
        stack.ss_sp = p_memory;
        stack.ss_size = kBytes;
        if (sigaltstack(&stack, nullptr) == 0) m_memory = p_memory;
    }
    ~AlternateStack() {
        if (m_memory == nullptr) return;
        stack_t now = {};
        // Somebody may have set another one meanwhile.
        if (sigaltstack(nullptr, &now) == 0 && now.ss_sp == m_memory) {
            stack_t none = {};
            none.ss_flags = SS_DISABLE;
            (void)sigaltstack(&none, nullptr);
        }
        (void)munmap(m_memory, kBytes);
    }

    AlternateStack(const AlternateStack&) = delete;
    AlternateStack& operator=(const AlternateStack&) = delete;

private:
    static constexpr std::size_t kBytes = std::size_t{64} * 1024;  // Of it what is used is taken.

    void* m_memory = nullptr;
};

}  // namespace tevalon::record_preload

#endif  // TOOLS_RECORD_PRELOAD_ALTERNATE_STACK_H
