// random_delays.h: the times that timers and tasks wait for; the same for every peer.

#ifndef BENCHMARKS_SUPPORT_RANDOM_DELAYS_H
#define BENCHMARKS_SUPPORT_RANDOM_DELAYS_H

#include <random>

namespace bench {

/// Milliseconds, none of which pass while a benchmark runs: 1,000 to 10,000 seconds.
class FarDelays {
public:
    static constexpr int kLeast = 1000000;

    int next() { return m_distribution(m_random); }

private:
    std::mt19937 m_random{20};
    std::uniform_int_distribution<int> m_distribution{kLeast, 10 * kLeast};
};

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_RANDOM_DELAYS_H
