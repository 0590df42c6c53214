#include "support/rows.h"

#include <algorithm>
#include <cstdlib>

namespace bench {

bool isQuick() {
    static const bool s_isQuick = std::getenv("BENCH_QUICK") != nullptr;
    return s_isQuick;
}

std::int64_t scaled(std::int64_t whole) {
    // Whether it runs at all, not how fast: for the emulator.
    if (std::getenv("BENCH_SMOKE") != nullptr) return std::max<std::int64_t>(whole / 1000, 1);
    return isQuick() ? whole / 10 : whole;
}

}  // namespace bench
