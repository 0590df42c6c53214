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

// Settings that are or were in force, each word of them read without a lock.
struct LevelTable {
    std::atomic<std::uint16_t> common{kLevelError};
    std::atomic<std::size_t> moduleCount{0};
    std::array<std::atomic<std::uint32_t>, LevelSettings::kMaxModules> modules = {};
};

// Two tables: a change fills the one that is not in force and then puts it into force, so that a
// reader meets the old settings or the new ones and never a mixture, in which a level that is on
// before and after the change may be off. A reader that meets two changes reads again.
//
// Release and acquire throughout: who reads a word of the change after next also finds that the
// next one has been counted.
std::array<LevelTable, 2> g_tables = {};
std::atomic<std::uint32_t> g_changeCount{0};  // Modulo 2 the table in force.

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

void fill(LevelTable* p_table, const LevelSettings& settings) {
    p_table->common.store(settings.common, std::memory_order_release);
    p_table->moduleCount.store(settings.moduleCount, std::memory_order_release);
    for (std::size_t i = 0; i < settings.moduleCount; ++i) {
        p_table->modules[i].store(pack(settings.modules[i]), std::memory_order_release);
    }
}

std::uint16_t lookUp(const LevelTable& table, std::uint16_t module) {
    const std::size_t count = table.moduleCount.load(std::memory_order_acquire);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t entry = table.modules[i].load(std::memory_order_acquire);
        if ((entry >> 16) == module) return static_cast<std::uint16_t>(entry & 0xFFFFU);
    }
    return table.common.load(std::memory_order_acquire);
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
    std::array<std::uint16_t, g_shownLevels.size()> floor = ceiling;
    for (std::size_t i = 0; i < settings.moduleCount; ++i) {
        const ModuleLevel& entry = settings.modules[i];
        const std::size_t group = entry.module & 0xFFU;
        ceiling[group] = std::max(ceiling[group], entry.level);
        floor[group] = std::min(floor[group], entry.level);
    }

    const std::uint32_t next = g_changeCount.load(std::memory_order_relaxed) + 1;
    fill(&g_tables[next % 2], settings);
    g_changeCount.store(next, std::memory_order_release);

    for (std::size_t group = 0; group < ceiling.size(); ++group) {
        g_silentLevels[group].store(static_cast<std::uint16_t>(UINT16_MAX - ceiling[group]),
                                    std::memory_order_relaxed);
        g_shownLevels[group].store(floor[group], std::memory_order_relaxed);
    }
}

std::uint16_t levelOf(std::uint16_t module) {
    std::uint32_t change = g_changeCount.load(std::memory_order_acquire);
    while (true) {
        const std::uint16_t level = lookUp(g_tables[change % 2], module);
        const std::uint32_t changeAfter = g_changeCount.load(std::memory_order_acquire);
        if (changeAfter == change) return level;
        change = changeAfter;
    }
}

}  // namespace zor_debug
