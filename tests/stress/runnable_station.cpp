// Runnables that are paused, resumed and stopped from all sides.

#include <atomic>
#include <thread>

#include "base/threading/runnable.h"
#include "stress/station.h"

namespace stress {
namespace {

class Rounds : public tevalon::base::Threading::Runnable {
public:
    Rounds() : Runnable(-1) {}
    void execute() override { ++count; }

    std::atomic<long> count{0};
};

class RunnableStation : public Station {
public:
    void step(std::mt19937& random) override {
        Rounds rounds;
        ++m_begun;
        std::thread thread([&] {
            if (rounds.run() == 0) ++m_ended;
        });
        const int turns = std::uniform_int_distribution<int>(0, 20)(random);
        for (int i = 0; i < turns; ++i) {
            rounds.pause();
            if (rounds.running()) ++m_failures;
            rounds.resume();
            if (!rounds.running()) ++m_failures;
        }
        while (rounds.count == 0) std::this_thread::yield();
        rounds.stop();
        thread.join();
        if (rounds.running()) ++m_failures;
    }

    std::vector<Balance> settle() override {
        return {{{m_begun, "jobs begun"}, {{m_ended, "stopped"}}},
                {{m_failures, "wrong states of jobs"}, {}}};
    }

private:
    std::atomic<long> m_begun{0};
    std::atomic<long> m_ended{0};
    std::atomic<long> m_failures{0};
};

}  // namespace

std::unique_ptr<Station> makeRunnableStation() {
    return std::make_unique<RunnableStation>();
}

}  // namespace stress
