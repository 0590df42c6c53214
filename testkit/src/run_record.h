// run_record.h: what the explorer and the process of one schedule tell each other, in memory that
// both see.

#ifndef TESTKIT_SRC_RUN_RECORD_H
#define TESTKIT_SRC_RUN_RECORD_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "testkit/explore.h"

namespace tevalon::testkit {

/// How a schedule ended.
enum class Outcome : std::uint8_t {
    Died,  ///< The process ended by itself, or by a signal.
    Passed,
    Pruned,  ///< It came to a state that another schedule had come to.
    Deadlock,
    LostWakeUp,
    OnlyTimeOut,
    Livelock,
    DoubleJoin,
    UseAfterEnd,
    DataRace,
    Expectation,
    Misuse,
    Unsupported,
};

const char* nameOf(Outcome outcome);
inline bool isFailure(Outcome outcome) {
    return outcome != Outcome::Passed && outcome != Outcome::Pruned;
}

/// Where a schedule leaves the default, which is to let the running thread go on, and the first of
/// those that can run where it cannot.
struct Deviation {
    std::uint32_t moment;  ///< Opportunities to decide that came before.
    std::uint32_t value;   ///< A thread, or whatever else there is to choose.
};

/// A choice that a schedule met: options[0] is the default.
struct Decision {
    std::uint32_t moment;
    std::uint8_t count;
    std::uint8_t chosen;      ///< Index of an option.
    std::uint8_t othersCost;  ///< Preemptions that all but the default cost.
    std::uint8_t unused;
    std::array<std::uint8_t, kMostThreads> options;
};

enum class Policy : std::uint8_t {
    Default,   ///< The deviations, and the default elsewhere.
    Uniform,   ///< Any option with equal probability.
    Priority,  ///< PCT: the thread of highest priority; few changes of priority at random steps.
};

/// A step of the story.
struct Event {
    static constexpr int kMostFrames = 12;

    std::uint32_t moment;
    std::uint8_t thread;
    std::uint8_t frames;
    bool isSwitch;  ///< The thread was not the one that ran before.
    const char* verb;
    std::uintptr_t object;
    std::uint64_t value;
    std::int64_t nanoseconds;
    std::array<std::uintptr_t, kMostFrames> stack;
};

/// What a thread does at the end of a run, for the story.
struct ThreadEnd {
    char name[16];
    const char* waitsFor;  ///< Null where it can run.
    std::uintptr_t object;
    int owner;  ///< Of the mutex that it waits for, or the thread; -1 where there is none.
    bool isEnded;
    std::uint8_t frames;
    std::array<std::uintptr_t, Event::kMostFrames> stack;
};

/// A fixed set of words that the processes of all schedules add to; 0 is no member.
template <std::size_t kSize>
struct WordSet {
    std::array<std::uint64_t, kSize> words;
    std::uint32_t count;

    /// The word's slot, which is 0 where it is not in the set; null where the set is full.
    std::uint64_t* find(std::uint64_t word, std::uint64_t mask = ~std::uint64_t{0}) {
        std::size_t slot = (word * 0x9E3779B97F4A7C15U >> 32) % kSize;
        for (std::size_t tries = 0; tries < kSize; ++tries) {
            if (words[slot] == 0 || (words[slot] & mask) == (word & mask)) return &words[slot];
            slot = (slot + 1) % kSize;
        }
        return nullptr;
    }
    bool contains(std::uint64_t word) {
        const std::uint64_t* const p_slot = find(word);
        return p_slot != nullptr && *p_slot != 0;
    }
    bool insert(std::uint64_t word) {
        std::uint64_t* const p_slot = find(word);
        if (p_slot == nullptr || *p_slot != 0) return false;
        *p_slot = word;
        ++count;
        return true;
    }
};

struct RunRecord {
    static constexpr std::size_t kMostDeviations = 4096;
    static constexpr std::size_t kMostDecisions = 32'768;
    static constexpr std::size_t kMostEvents = 65'536;
    static constexpr std::size_t kMostChanges = 16;
    static constexpr std::size_t kMostStates = std::size_t{1} << 22U;

    // To the schedule's process.
    Policy policy;
    bool isTold;  ///< Events are wanted.
    bool checksRaces;
    bool isSilent;  ///< What the scenario writes to standard output and error is dropped.
    bool prunes;
    bool takesAllPoints;  ///< Not only those at contended locations.
    int bound;            ///< Preemptions; a state that was visited with as many left is not again.
    std::uint64_t seed;
    std::uint32_t priorityChanges;
    std::uint32_t expectedDecisions;
    std::uint32_t deviationCount;
    std::array<Deviation, kMostDeviations> deviations;

    // From it.
    Outcome outcome;
    std::uint32_t moments;
    std::uint32_t steps;
    std::uint32_t threads;
    std::uint32_t decisionCount;
    std::uint32_t eventCount;
    std::int64_t elapsed;
    int failingThread;
    char text[512];
    std::array<Decision, kMostDecisions> decisions;
    std::array<Event, kMostEvents> events;
    std::array<ThreadEnd, kMostThreads> threadEnds;
    std::uintptr_t otherPlace;  ///< Of the first of two racing accesses, or of the free.
    int otherThread;

    // Across schedules: addresses that threads contend for, and the states that were visited.
    WordSet<16'384> contended;
    WordSet<kMostStates> visited;
    WordSet<kMostStates> ends;  ///< States that schedules ended in: how many there are that differ.
};

}  // namespace tevalon::testkit

#endif  // TESTKIT_SRC_RUN_RECORD_H
