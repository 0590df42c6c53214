#include "losses.h"

#include <algorithm>
#include <atomic>

#include "thread_state.h"

namespace zor_debug {
namespace {

// Threads that share the gate count here at once. Relaxed: the numbers are read with the gate held
// exclusively, which orders them.
std::atomic<std::uint32_t> g_lines{0};
std::atomic<int> g_error{0};
std::atomic<bool> g_isTorn{false};

}  // namespace

void addLoss(std::string_view text, int error, bool isTorn) {
    const auto ends = static_cast<std::uint32_t>(std::count(text.begin(), text.end(), '\n'));
    addLosses({std::max(ends, std::uint32_t{1}), error, isTorn});
    t_state.hasLost = true;
}

void addLosses(const Losses& losses) {
    g_lines.fetch_add(losses.lines, std::memory_order_relaxed);
    g_error.store(losses.error, std::memory_order_relaxed);
    if (losses.isTorn) g_isTorn.store(true, std::memory_order_relaxed);
}

Losses takeLosses() {
    const std::uint32_t lines = g_lines.exchange(0, std::memory_order_relaxed);
    const bool isTorn = g_isTorn.exchange(false, std::memory_order_relaxed);
    return {lines, g_error.load(std::memory_order_relaxed), isTorn};
}

bool hasLosses() {
    return g_lines.load(std::memory_order_relaxed) != 0;
}

bool takeOwnLoss() {
    const bool hasLost = t_state.hasLost;
    t_state.hasLost = false;
    return hasLost;
}

}  // namespace zor_debug
