// Timers that are started, stopped, restarted and destroyed as fast as it goes. Each lives for
// one story, told by one thread, so that its runs are known in the end.

#include <atomic>
#include <thread>

#include "base/simple_timer.h"
#include "stress/station.h"

namespace stress {
namespace {

using tevalon::base::simple_timer::CONTINUE;
using tevalon::base::simple_timer::ONCE;
using tevalon::base::simple_timer::TimeoutTime;
using tevalon::base::simple_timer::Timer;
using tevalon::base::simple_timer::TimerType_e;

/// A timer and its runs, of which none comes after its destruction.
class CountedTimer {
public:
    CountedTimer(TimeoutTime timeout, TimerType_e type, std::atomic<long>* p_lateRuns)
        : m_lateRuns(p_lateRuns),
          m_timer(std::make_unique<Timer>(
              "stress", timeout, [this](Timer*, void*) { run(); }, nullptr, type)) {}

    Timer& timer() { return *m_timer; }
    long runs() const { return m_runs; }
    void waitForRun(long count) const {
        while (m_runs < count) std::this_thread::yield();
    }

    /// The runs are final then.
    long destroy() {
        m_timer.reset();
        m_isDestroyed = true;
        return m_runs;
    }

private:
    void run() {
        if (m_isDestroyed) ++*m_lateRuns;
        ++m_runs;
    }

    std::atomic<long>* m_lateRuns;
    std::atomic<long> m_runs{0};
    std::atomic<bool> m_isDestroyed{false};
    std::unique_ptr<Timer> m_timer;
};

class SimpleTimerStation : public Station {
public:
    void step(std::mt19937& random) override {
        const auto dice = [&random](int sides) {
            return std::uniform_int_distribution<int>(0, sides - 1)(random);
        };
        switch (dice(8)) {
            case 0:
                letFire(dice(2000));
                break;
            case 1:
                letRepeat();
                break;
            case 2:
                race(dice(300));
                break;
            default:
                startAndStop(dice);
        }
    }

    std::vector<Balance> settle() override {
        return {{{m_starts, "starts of timers that fire once"},
                 {{m_fired, "fired"}, {m_stopped, "stopped before"}}},
                {{m_repeats, "periodic timers"}, {{m_repeated, "that fired again and again"}}},
                {{m_lateRuns, "runs after destruction"}, {}},
                {{m_failures, "failed starts and stops"}, {}}};
    }

private:
    void expect(bool isTrue) {
        if (!isTrue) ++m_failures;
    }

    /// One that nobody stops fires.
    void letFire(int usec) {
        CountedTimer timer({0, 0, usec}, ONCE, &m_lateRuns);
        ++m_starts;
        expect(timer.timer().start() == 0);
        timer.waitForRun(1);
        m_fired += timer.destroy();
    }

    void letRepeat() {
        CountedTimer timer({0, 0, 200}, CONTINUE, &m_lateRuns);
        ++m_repeats;
        expect(timer.timer().start() == 0);
        timer.waitForRun(3);
        if (timer.destroy() >= 3) ++m_repeated;
    }

    /// One that is stopped long before its time never fires.
    template <typename Dice>
    void startAndStop(Dice dice) {
        CountedTimer timer({1000 + dice(100), 0, 0}, ONCE, &m_lateRuns);
        const int rounds = 1 + dice(40);
        for (int i = 0; i < rounds; ++i) {
            ++m_starts;
            expect(timer.timer().start() == 0);
            if (dice(10) == 0) {
                ++m_starts;
                ++m_stopped;
                expect(timer.timer().restart() == 0);
            }
            expect((dice(2) == 0 ? timer.timer().stop() : timer.timer().stopNoBlock()) == 0);
            ++m_stopped;
        }
        if (dice(4) == 0) {  // One that its destruction stops.
            ++m_starts;
            ++m_stopped;
            expect(timer.timer().start() == 0);
        }
        expect(timer.destroy() == 0);
    }

    /// One that is stopped about when it is due does one of the two; once it says that it is not
    /// started, it has fired.
    void race(int usec) {
        CountedTimer timer({0, 0, usec}, ONCE, &m_lateRuns);
        ++m_starts;
        expect(timer.timer().start() == 0);
        for (int i = 0; i < usec; ++i) (void)timer.timer().isStarted();
        if (!timer.timer().isStarted()) {
            timer.waitForRun(1);
        } else {
            expect(timer.timer().stop() == 0);
        }
        const long runs = timer.destroy();
        m_fired += runs;
        if (runs == 0) ++m_stopped;
    }

    std::atomic<long> m_starts{0};
    std::atomic<long> m_fired{0};
    std::atomic<long> m_stopped{0};
    std::atomic<long> m_repeats{0};
    std::atomic<long> m_repeated{0};
    std::atomic<long> m_lateRuns{0};
    std::atomic<long> m_failures{0};
};

}  // namespace

std::unique_ptr<Station> makeSimpleTimerStation() {
    return std::make_unique<SimpleTimerStation>();
}

}  // namespace stress
