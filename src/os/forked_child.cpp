#include "os/forked_child.h"

#include <pthread.h>

#include <array>

namespace tevalon::base {

std::atomic<std::uint16_t> g_process{0};

namespace {

using Reset = void (*)();

constexpr std::size_t kMostResets = 16;

std::array<std::atomic<Reset>, kMostResets> g_resets;
std::atomic<bool> g_isWatching{false};

void afterForkInChild() {
    g_process.fetch_add(2, std::memory_order_relaxed);
    for (const std::atomic<Reset>& slot : g_resets) {
        if (const Reset reset = slot.load(std::memory_order_relaxed)) reset();
    }
}

// The C library calls off what a module has registered when that is unloaded. Two threads may both
// register: all that is called can be called twice. Without memory the next object tries again.
void watchForks() {
    if (g_isWatching.load(std::memory_order_acquire)) return;
    if (pthread_atfork(nullptr, nullptr, afterForkInChild) == 0) {
        g_isWatching.store(true, std::memory_order_release);
    }
}

}  // namespace

std::uint16_t markOfThisProcess() {
    watchForks();
    return g_process.load(std::memory_order_relaxed);
}

void inEachForkedChild(void (*reset)()) {
    watchForks();
    for (std::atomic<Reset>& slot : g_resets) {
        Reset found = nullptr;
        if (slot.compare_exchange_strong(found, reset) || found == reset) return;
    }
}

}  // namespace tevalon::base
