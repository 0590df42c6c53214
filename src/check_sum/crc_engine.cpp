#include "check_sum/crc_engine.h"

#include "check_sum/crc_arm.h"
#include "check_sum/crc_x86.h"

namespace tevalon::base::utils::crc {
namespace {

bool always() {
    return true;
}

constexpr Engine kTableEngine = {"tables", always, nullptr, nullptr, nullptr};

constexpr const Engine* kEngines[] = {
#if defined(__x86_64__)
    &kAvx512Engine, &kAvx2Engine, &kPclmulEngine,
#elif TEVALON_BASE_CRC_ARM
    &kArmPmullEngine, &kArmCrc32Engine,
#endif
    &kTableEngine,  nullptr,
};

}  // namespace

constexpr Engine kUndecidedEngine = {nullptr, nullptr, nullptr, nullptr, nullptr};

std::atomic<const Engine*> g_engine{&kUndecidedEngine};

const Engine* const* allEngines() noexcept {
    return kEngines;
}

const Engine& chooseEngine() noexcept {
    const Engine* const* pp_candidate = kEngines;
    while (!(*pp_candidate)->p_isSupported()) ++pp_candidate;
    g_engine.store(*pp_candidate, std::memory_order_relaxed);
    return **pp_candidate;
}

}  // namespace tevalon::base::utils::crc
