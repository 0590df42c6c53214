#include "accesses.h"

#include <algorithm>

namespace tevalon::testkit {
namespace {

constexpr std::uintptr_t kWordBytes = 8;

}  // namespace

// Neighbours keep together, so that a run touches few pages of the index.
Accesses::Word* Accesses::find(std::uintptr_t number, bool isAdded) {
    std::size_t slot = (number ^ (number >> 9U) * 0x9E3779B1U << 9U) % kSlots;
    while (m_slots[slot] != 0) {
        Word& word = m_words[m_slots[slot] - 1];
        if (word.number == number) return &word;
        slot = (slot + 1) % kSlots;
    }
    if (!isAdded || m_count == kMostWords) return nullptr;
    Word& word = m_words[m_count];
    m_slots[slot] = ++m_count;
    word.number = number;
    return &word;
}

Accesses::Conflict Accesses::add(std::uintptr_t address, std::size_t size, Access access,
                                 int thread, const VectorClock& clock, std::uintptr_t place,
                                 bool checksRaces) {
    const std::uintptr_t end = address + size;
    for (std::uintptr_t number = address / kWordBytes; number * kWordBytes < end; ++number) {
        const std::uintptr_t first = std::max(address, number * kWordBytes) % kWordBytes;
        const std::uintptr_t last = std::min(end - 1, number * kWordBytes + 7) % kWordBytes;
        const auto bytes = static_cast<std::uint8_t>((2U << last) - (1U << first));
        Word* const p_word = find(number, true);
        if (p_word == nullptr) return {};
        const Cell added = {place, clock[thread], static_cast<std::uint8_t>(thread), bytes, access};
        const Conflict conflict = conflictWith(*p_word, added, clock, checksRaces);
        if (conflict.isFound) return conflict;
        remember(p_word, added, clock);
    }
    return {};
}

Accesses::Conflict Accesses::conflictWith(const Word& word, const Cell& added,
                                          const VectorClock& clock, bool checksRaces) {
    for (const Cell& cell : word.cells) {
        if (cell.count == 0 || (cell.bytes & added.bytes) == 0) continue;
        if (cell.access.isFree) return {true, true, cell.thread, cell.place};
        if (!checksRaces || cell.thread == added.thread) continue;
        if (!cell.access.isWrite && !added.access.isWrite) continue;
        if (cell.access.isAtomic && added.access.isAtomic) continue;
        if (cell.count > clock[cell.thread]) return {true, false, cell.thread, cell.place};
    }
    return {};
}

void Accesses::remember(Word* p_word, const Cell& added, const VectorClock& clock) {
    Cell* p_empty = nullptr;
    Cell* p_covered = nullptr;
    for (Cell& cell : p_word->cells) {
        if (cell.count == 0) {
            if (p_empty == nullptr) p_empty = &cell;
            continue;
        }
        if ((cell.bytes & ~added.bytes) != 0 || cell.access.isFree) continue;
        const bool isWeaker = (added.access.isWrite || !cell.access.isWrite) &&
                              (cell.access.isAtomic || !added.access.isAtomic);
        if (isWeaker && cell.count <= clock[cell.thread]) p_covered = &cell;
    }
    if (p_covered == nullptr) p_covered = p_empty;
    if (p_covered == nullptr) p_covered = &p_word->cells[p_word->oldest++ % kCells];
    *p_covered = added;
}

Accesses::Conflict Accesses::findFreed(std::uintptr_t address, std::size_t size) {
    for (std::uintptr_t number = address / kWordBytes; number * kWordBytes < address + size;
         ++number) {
        const Word* const p_word = find(number, false);
        if (p_word == nullptr) continue;
        for (const Cell& cell : p_word->cells) {
            if (cell.count != 0 && cell.access.isFree) {
                return {true, true, cell.thread, cell.place};
            }
        }
    }
    return {};
}

}  // namespace tevalon::testkit
