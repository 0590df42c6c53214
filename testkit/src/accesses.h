// accesses.h: who touched which memory last, for data races and for the use of freed memory.

#ifndef TESTKIT_SRC_ACCESSES_H
#define TESTKIT_SRC_ACCESSES_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "vector_clock.h"

namespace tevalon::testkit {

/// How memory is touched. A free counts as a write.
struct Access {
    bool isWrite;
    bool isAtomic;
    bool isFree;
};

/// The last accesses to each word of 8 bytes, by epochs (FastTrack: Flanagan and Freund, PLDI
/// 2009). A word keeps kCells of them and forgets those first that happen before the newest; where
/// it has to forget another one a race may be missed. None is ever reported that is not one.
class Accesses {
public:
    struct Conflict {
        bool isFound;
        bool isFreed;
        int thread;
        std::uintptr_t place;
    };

    /// Looks for an earlier access that conflicts, and remembers this one.
    Conflict add(std::uintptr_t address, std::size_t size, Access access, int thread,
                 const VectorClock& clock, std::uintptr_t place, bool checksRaces);
    /// Whether a byte of these was freed.
    Conflict findFreed(std::uintptr_t address, std::size_t size);

private:
    static constexpr std::size_t kCells = 5;
    static constexpr std::size_t kMostWords = std::size_t{1} << 17U;
    static constexpr std::size_t kSlots = kMostWords * 2;

    struct Cell {
        std::uintptr_t place;
        std::uint32_t count;  // Of the thread's clock; 0 in an empty cell.
        std::uint8_t thread;
        std::uint8_t bytes;  // A bit for each.
        Access access;
    };
    struct Word {
        std::uintptr_t number;
        std::size_t oldest;
        std::array<Cell, kCells> cells;
    };

    Word* find(std::uintptr_t number, bool isAdded);
    static Conflict conflictWith(const Word& word, const Cell& added, const VectorClock& clock,
                                 bool checksRaces);
    static void remember(Word* p_word, const Cell& added, const VectorClock& clock);

    std::array<std::uint32_t, kSlots> m_slots;  // Index plus one of a word; 0 in an empty slot.
    std::array<Word, kMostWords> m_words;
    std::uint32_t m_count;
};

}  // namespace tevalon::testkit

#endif  // TESTKIT_SRC_ACCESSES_H
