#include "levels.h"

#include <algorithm>

#include "text.h"

namespace zor_debug {
namespace {

struct NamedLevels {
    std::string_view name;
    LevelRange range;
};

constexpr NamedLevels kNamedLevels[] = {
    {"off", {1, kLevelOff}},      {"errors-only", {kLevelError, kLevelError}},
    {"error", {1, kLevelError}},  {"warn", {1, kLevelWarn}},
    {"warning", {1, kLevelWarn}}, {"info", {1, kLevelInfo}},
    {"debug", {1, kLevelDebug}}};

// Settings that are or were in force, each word of them read without a lock.
struct LevelTable {
    std::atomic<std::uint16_t> common{kLevelError};
    std::atomic<std::uint16_t> commonLowest{1};
    std::atomic<std::size_t> moduleCount{0};
    std::array<std::atomic<std::uint32_t>, LevelSettings::kMaxModules> modules = {};
    std::array<std::atomic<std::uint16_t>, LevelSettings::kMaxModules> lowest = {};
};

// Two tables: a change fills the one that is not in force and then puts it into force, so that a
// reader meets the old settings or the new ones and never a mixture, in which a level that is on
// before and after the change may be off. A reader that meets two changes reads again.
//
// Release and acquire throughout: who reads a word of the change after next also finds that the
// next one has been counted.
std::array<LevelTable, 2> g_tables = {};
std::atomic<std::uint32_t> g_changeCount{0};  // Modulo 2 the table in force.

// Set while somebody has to know of each check. Changed, as the tables are, by one thread at a
// time.
bool g_isExact = false;
LevelSettings g_settings;

constexpr std::uint32_t pack(ModuleLevel entry) {
    return (std::uint32_t{entry.module} << 16) | entry.range.highest;
}

bool parseLevel(std::string_view text, LevelRange* p_range) {
    for (const NamedLevels& named : kNamedLevels) {
        if (!isSameWord(named.name, text)) continue;
        *p_range = named.range;
        return true;
    }
    std::uint16_t level = 0;
    if (!parseNumber(text, &level)) return false;
    *p_range = {1, level};
    return true;
}

bool parseItem(std::string_view item, LevelSettings* p_settings) {
    const std::size_t equals = item.find('=');
    LevelRange range;
    if (equals == std::string_view::npos) {
        if (!parseLevel(item, &range)) return false;
        p_settings->common = range;
        return true;
    }
    std::uint16_t module = 0;
    return parseNumber(item.substr(0, equals), &module) &&
           parseLevel(item.substr(equals + 1), &range) && p_settings->set(module, range);
}

void fill(LevelTable* p_table, const LevelSettings& settings) {
    p_table->common.store(settings.common.highest, std::memory_order_release);
    p_table->commonLowest.store(settings.common.lowest, std::memory_order_release);
    p_table->moduleCount.store(settings.moduleCount, std::memory_order_release);
    for (std::size_t i = 0; i < settings.moduleCount; ++i) {
        p_table->modules[i].store(pack(settings.modules[i]), std::memory_order_release);
        p_table->lowest[i].store(settings.modules[i].range.lowest, std::memory_order_release);
    }
}

LevelRange lookUp(const LevelTable& table, std::uint16_t module) {
    const std::size_t count = table.moduleCount.load(std::memory_order_acquire);
    for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t entry = table.modules[i].load(std::memory_order_acquire);
        if ((entry >> 16) != module) continue;
        return {table.lowest[i].load(std::memory_order_acquire),
                static_cast<std::uint16_t>(entry & 0xFFFFU)};
    }
    return {table.commonLowest.load(std::memory_order_acquire),
            table.common.load(std::memory_order_acquire)};
}

// How many levels, counted from the most important, are on.
std::uint16_t shownBy(const LevelRange& range) {
    return range.lowest <= 1 ? range.highest : std::uint16_t{0};
}

void setQuickAnswer(std::size_t group, std::uint16_t silent, std::uint16_t shown) {
    g_silentLevels[group].store(silent, std::memory_order_relaxed);
    g_shownLevels[group].store(shown, std::memory_order_relaxed);
}

void setQuickAnswers() {
    std::array<std::uint16_t, g_silentLevels.size()> ceiling = {};
    ceiling.fill(g_settings.common.highest);
    std::array<std::uint16_t, g_shownLevels.size()> floor = {};
    floor.fill(shownBy(g_settings.common));
    for (std::size_t i = 0; i < g_settings.moduleCount; ++i) {
        const ModuleLevel& entry = g_settings.modules[i];
        const std::size_t group = entry.module & 0xFFU;
        ceiling[group] = std::max(ceiling[group], entry.range.highest);
        floor[group] = std::min(floor[group], shownBy(entry.range));
    }
    for (std::size_t group = 0; group < ceiling.size(); ++group) {
        setQuickAnswer(group, static_cast<std::uint16_t>(UINT16_MAX - ceiling[group]),
                       floor[group]);
    }
}

}  // namespace

bool LevelSettings::set(std::uint16_t module, LevelRange range) {
    for (std::size_t i = 0; i < moduleCount; ++i) {
        if (modules[i].module != module) continue;
        modules[i].range = range;
        return true;
    }
    if (moduleCount == kMaxModules) return false;
    modules[moduleCount++] = {module, range};
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
    const std::uint32_t next = g_changeCount.load(std::memory_order_relaxed) + 1;
    fill(&g_tables[next % 2], settings);
    g_changeCount.store(next, std::memory_order_release);
    g_settings = settings;
    if (!g_isExact) setQuickAnswers();
}

void answerExactly(bool isExact) {
    g_isExact = isExact;
    if (!isExact) {
        setQuickAnswers();
        return;
    }
    for (std::size_t group = 0; group < g_silentLevels.size(); ++group) setQuickAnswer(group, 0, 0);
}

LevelRange levelsOf(std::uint16_t module) {
    std::uint32_t change = g_changeCount.load(std::memory_order_acquire);
    while (true) {
        const LevelRange range = lookUp(g_tables[change % 2], module);
        const std::uint32_t changeAfter = g_changeCount.load(std::memory_order_acquire);
        if (changeAfter == change) return range;
        change = changeAfter;
    }
}

}  // namespace zor_debug
