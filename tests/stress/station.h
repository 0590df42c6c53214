// station.h: one kind of thing that the stress program hammers.

#ifndef TESTS_STRESS_STATION_H
#define TESTS_STRESS_STATION_H

#include <memory>
#include <random>
#include <string>
#include <vector>

namespace stress {

/// A line of the account: the left side must be the sum of the right side.
struct Balance {
    struct Item {
        long count;
        std::string what;
    };

    Item whole;
    std::vector<Item> parts;

    bool addsUp() const {
        long sum = 0;
        for (const Item& part : parts) sum += part.count;
        return sum == whole.count;
    }
};

class Station {
public:
    virtual ~Station() = default;

    /// A little work. Called over and over by several threads at once, each with its own @p
    /// random.
    virtual void step(std::mt19937& random) = 0;

    /// Brings everything to rest and gives the account; nobody is in step() any more.
    virtual std::vector<Balance> settle() = 0;
};

std::unique_ptr<Station> makeSimpleTimerStation();
std::unique_ptr<Station> makeTimerThreadStation();
std::unique_ptr<Station> makeTimerThreadPoolStation();
std::unique_ptr<Station> makeWatchDogStation();
std::unique_ptr<Station> makeEventHubStation();
std::unique_ptr<Station> makeRunnableStation();

}  // namespace stress

#endif  // TESTS_STRESS_STATION_H
