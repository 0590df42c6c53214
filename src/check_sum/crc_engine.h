// crc_engine.h: what the processor can do for CRCs beyond looking up tables.

#ifndef SRC_CHECK_SUM_CRC_ENGINE_H
#define SRC_CHECK_SUM_CRC_ENGINE_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "check_sum/crc_folding.h"
#include "check_sum/crc_table.h"

namespace tevalon::base::utils::crc {

/// Whether there are any but the tables. On ARM who asks for the smallest ones does without.
#if defined(__arm__) && TEVALON_BASE_CRC_SLICES <= 1
inline constexpr bool kHasEngines = false;
#else
inline constexpr bool kHasEngines = true;
#endif

/// The fewest bytes a Fold takes.
inline constexpr std::size_t kFoldMinimum = 16;

/// Takes @p length bytes, at least kFoldMinimum, into a widened() register.
using Fold = std::uint64_t (*)(std::uint64_t crc, const unsigned char* p_data, std::size_t length,
                               const FoldConstants& constants);

/// Takes any number of bytes into the register of Crc32.
using UpdateCrc32 = std::uint32_t (*)(std::uint32_t crc, const unsigned char* p_data,
                                      std::size_t length);

/// One way to compute, by instructions that not every processor has. What it leaves null is
/// done by table.
struct Engine {
    const char* p_name;
    bool (*p_isSupported)();
    Fold p_foldReflected;
    Fold p_foldMsbFirst;
    UpdateCrc32 p_updateCrc32;
};

/// Every engine this build has, the preferred one first, whether or not the processor at hand
/// can run it. The last one is plain tables, which all can. Ends with a null.
const Engine* const* allEngines() noexcept;

/// Looks for the first of them that this processor supports, and keeps it in g_engine.
const Engine& chooseEngine() noexcept;

/// Has nothing, and stands for the engine that has not been chosen yet.
extern const Engine kUndecidedEngine;

// kUndecidedEngine until the first use. Relaxed will do: whoever chooses, chooses the same, and the
// engines are constants.
extern std::atomic<const Engine*> g_engine;

/// The engine to use, chosen by now. Any thread, at any time.
inline const Engine& engine() noexcept {
    const Engine* p_engine = g_engine.load(std::memory_order_relaxed);
    return p_engine != &kUndecidedEngine ? *p_engine : chooseEngine();
}

}  // namespace tevalon::base::utils::crc

#endif  // SRC_CHECK_SUM_CRC_ENGINE_H
