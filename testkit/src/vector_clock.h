// vector_clock.h: what a thread knows of the others' past.

#ifndef TESTKIT_SRC_VECTOR_CLOCK_H
#define TESTKIT_SRC_VECTOR_CLOCK_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "testkit/explore.h"

namespace tevalon::testkit {

/// A vector clock (Lamport 1978, Mattern 1989): happens-before as a partial order of counts.
class VectorClock {
public:
    std::uint32_t operator[](int thread) const {
        return m_counts[static_cast<std::size_t>(thread)];
    }
    void tick(int thread) { ++m_counts[static_cast<std::size_t>(thread)]; }
    void join(const VectorClock& other) {
        for (std::size_t i = 0; i < m_counts.size(); ++i) {
            m_counts[i] = std::max(m_counts[i], other.m_counts[i]);
        }
    }
    void clear() { m_counts.fill(0); }

private:
    std::array<std::uint32_t, kMostThreads> m_counts{};
};

}  // namespace tevalon::testkit

#endif  // TESTKIT_SRC_VECTOR_CLOCK_H
