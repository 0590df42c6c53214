#include "levels.h"

#include <algorithm>

#include "text.h"

namespace zor_debug {
namespace {

struct NamedLevel {
    std::string_view name;
    std::uint16_t level;
};

constexpr NamedLevel kNamedLevels[] = {{"off", kLevelOff},
                                       {"error", kLevelError},
                                       {"warn", kLevelWarn},
                                       {"info", kLevelInfo},
                                       {"debug", kLevelDebug}};

// What is in force. Read without a lock; each word is whole by itself, and a reader that meets
// a change half way sees each module at its old or its new level.
std::atomic<std::uint16_t> g_common{kLevelError};
std::array<std::atomic<std::uint32_t>, LevelSettings::kMaxModules> g_modules = {};
std::atomic<std::size_t> g_moduleCount{0};

constexpr std::uint32_t pack(ModuleLevel entry) {
    return (std::uint32_t{entry.module} << 16) | entry.level;
}

bool parseLevel(std::string_view text, std::uint16_t* p_level) {
    for (const NamedLevel& named : kNamedLevels) {
        if (named.name != text) continue;
        *p_level = named.level;
        return true;
    }
    return parseNumber(text, p_level);
}

bool parseItem(std::string_view item, LevelSettings* p_settings) {
    const std::size_t equals = item.find('=');
    std::uint16_t level = 0;
    if (equals == std::string_view::npos) {
        if (!parseLevel(item, &level)) return false;
        p_settings->common = level;
        return true;
    }
    std::uint16_t module = 0;
    return parseNumber(item.substr(0, equals), &module) &&
           parseLevel(item.substr(equals + 1), &level) && p_settings->set(module, level);
}

}  // namespace

bool LevelSettings::set(std::uint16_t module, std::uint16_t level) {
    for (std::size_t i = 0; i < moduleCount; ++i) {
        if (modules[i].module != module) continue;
        modules[i].level = level;
        return true;
    }
    if (moduleCount == kMaxModules) return false;
    modules[moduleCount++] = {module, level};
    return true;
}

bool parseLevels(std::string_view text, LevelSettings* p_settings, std::string_view* p_bad) {
    LevelSettings parsed;
    if (text.empty()) {
        *p_settings = parsed;
        return true;
    }
    ItemReader items(text);
    for (std::string_view item; items.next(&item);) {
        if (parseItem(item, &parsed)) continue;
        *p_bad = item;
        return false;
    }
    *p_settings = parsed;
    return true;
}

void applyLevels(const LevelSettings& settings) {
    std::array<std::uint16_t, g_silentLevels.size()> ceiling = {};
    ceiling.fill(settings.common);

    g_common.store(settings.common, std::memory_order_relaxed);
    for (std::size_t i = 0; i < settings.moduleCount; ++i) {
        const ModuleLevel& entry = settings.modules[i];
        g_modules[i].store(pack(entry), std::memory_order_relaxed);
        std::uint16_t& groupCeiling = ceiling[entry.module & 0xFFU];
        groupCeiling = std::max(groupCeiling, entry.level);
    }
    // Release: a reader that counts an entry finds it written.
    g_moduleCount.store(settings.moduleCount, std::memory_order_release);

    for (std::size_t group = 0; group < ceiling.size(); ++group) {
        g_silentLevels[group].store(static_cast<std::uint16_t>(UINT16_MAX - ceiling[group]),
                                    std::memory_order_relaxed);
    }
}

std::uint16_t levelOf(std::uint16_t module) {
    const std::size_t count = g_moduleCount.load(std::memory_order_acquire);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t entry = g_modules[i].load(std::memory_order_relaxed);
        if ((entry >> 16) == module) return static_cast<std::uint16_t>(entry & 0xFFFFU);
    }
    return g_common.load(std::memory_order_relaxed);
}

}  // namespace zor_debug
