// Sequences of operations on simple timers, beside their states. Timeouts are an hour or nothing:
// what fires does so at once, and is waited for.

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "base/simple_timer.h"
#include "support/expect.h"
#include "support/gate.h"
#include "support/input.h"

namespace {

using namespace tevalon::base::simple_timer;

struct State {
    bool isZero = false;
    bool hasHandler = true;
    TimerType_e type = ONCE;
    bool isValid = true;
    bool isStarted = false;
    bool needsStop = false;
};

/// What the handler tells.
struct Run {
    fuzz::Gate begun;
    Timer* p_timer = nullptr;
    bool wasStarted = true;
};

bool isZero(const TimeoutTime& timeout) {
    return timeout.sec == 0 && timeout.msec == 0 && timeout.usec == 0;
}

class Checked {
public:
    explicit Checked(fuzz::Input* p_input) {
        const TimeoutTime timeout = timeoutOf(p_input);
        m_state.type = typeOf(p_input);
        m_state.hasHandler = p_input->below(8) != 0;
        m_state.isZero = isZero(timeout);
        m_state.isValid = m_state.hasHandler && !(m_state.type == CONTINUE && m_state.isZero);
        m_timer = std::make_unique<Timer>("fuzzed", timeout, handler(m_state.hasHandler), &m_run,
                                          m_state.type);
    }

    void step(fuzz::Input* p_input) {
        switch (p_input->below(8)) {
            case 0:
                start(false);
                break;
            case 1:
                start(true);
                break;
            case 2:
                fuzz::expectEqual(m_timer->stop(), 0, "stop()");
                m_state.isStarted = false;
                m_state.needsStop = true;
                break;
            case 3:
                fuzz::expectEqual(m_timer->stopNoBlock(), 0, "stopNoBlock()");
                m_state.isStarted = false;
                m_state.needsStop = true;
                break;
            case 4:
                setProperty(p_input);
                break;
            case 5:
                changeTimeout(p_input);
                break;
            case 6: {
                const TimerType_e type = typeOf(p_input);
                const bool isRefused = m_state.isStarted || (type == CONTINUE && m_state.isZero);
                fuzz::expectEqual(m_timer->changeType(type), isRefused ? -1 : 0, "changeType()");
                if (!isRefused) m_state.type = type;
                break;
            }
            default: {
                const bool hasHandler = p_input->below(8) != 0;
                fuzz::expectEqual(m_timer->changeHandler(handler(hasHandler), &m_run),
                                  m_state.isStarted ? -1 : 0, "changeHandler()");
                if (!m_state.isStarted) m_state.hasHandler = hasHandler;
            }
        }
        compare();
    }

    void compare() const {
        fuzz::expectEqual(m_timer->isStarted(), m_state.isStarted, "isStarted()");
        fuzz::expectEqual(m_timer->needStop(), m_state.needsStop, "needStop()");
        fuzz::expectEqual(m_timer->name(), std::string("fuzzed"), "name()");
    }

private:
    static TimeoutTime timeoutOf(fuzz::Input* p_input) {
        if (p_input->below(4) == 0) return {0, 0, 0};
        const auto msec = static_cast<std::int32_t>(p_input->number<std::uint16_t>());
        const auto usec = static_cast<std::int32_t>(p_input->number<std::uint16_t>());
        return {3600 + p_input->byte(), msec, usec};
    }

    static TimerType_e typeOf(fuzz::Input* p_input) { return p_input->flag() ? CONTINUE : ONCE; }

    static TimerHandler handler(bool hasHandler) {
        if (!hasHandler) return nullptr;
        return [](Timer* p_timer, void* p_userData) {
            Run& run = **static_cast<std::shared_ptr<Run>*>(p_userData);
            run.p_timer = p_timer;
            run.wasStarted = p_timer->isStarted();
            run.begun.open();
        };
    }

    void start(bool isRestart) {
        // One without a handler would call nothing, which throws.
        const bool fires = m_state.isZero && m_state.isValid;
        if (fires && !m_state.hasHandler) return;
        m_run = std::make_shared<Run>();
        const bool isNew = isRestart || !m_state.isStarted;
        if (isRestart) {
            m_state.isStarted = false;
            m_state.needsStop = true;
        }
        const bool isRefused = isNew && !m_state.isValid;
        const int status = isRestart ? m_timer->restart() : m_timer->start();
        fuzz::expectEqual(status, isRefused ? -1 : 0, "start() or restart()");
        if (isRefused || !isNew) return;
        m_state.needsStop = false;
        m_state.isStarted = !fires;
        if (!fires) return;
        m_run->begun.pass();
        fuzz::expect(m_run->p_timer == m_timer.get(), "the timer that the handler is given");
        fuzz::expect(!m_run->wasStarted, "a timer that fires once is started in its handler");
        // The run is not the next one's.
        (void)m_timer->stop();
        m_state.needsStop = true;
    }

    void setProperty(fuzz::Input* p_input) {
        const TimeoutTime timeout = timeoutOf(p_input);
        const TimerType_e type = typeOf(p_input);
        const bool hasHandler = p_input->below(8) != 0;
        const bool isBad = type == CONTINUE && isZero(timeout);
        fuzz::expectEqual(m_timer->setProperty(timeout, handler(hasHandler), &m_run, type),
                          m_state.isStarted || isBad ? -1 : 0, "setProperty()");
        if (m_state.isStarted) return;
        m_state.isValid = !isBad;
        if (isBad) return;
        m_state.isZero = isZero(timeout);
        m_state.type = type;
        m_state.hasHandler = hasHandler;
    }

    void changeTimeout(fuzz::Input* p_input) {
        const TimeoutTime timeout = timeoutOf(p_input);
        const bool isRefused = m_state.isStarted || (m_state.type == CONTINUE && isZero(timeout));
        fuzz::expectEqual(m_timer->changeTimeout(timeout), isRefused ? -1 : 0, "changeTimeout()");
        if (!isRefused) m_state.isZero = isZero(timeout);
    }

    State m_state;
    std::shared_ptr<Run> m_run;
    std::unique_ptr<Timer> m_timer;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    std::array<std::unique_ptr<Checked>, 6> timers;
    for (int steps = 0; steps < 48 && !input.isAtEnd(); ++steps) {
        std::unique_ptr<Checked>& timer = timers[input.below(timers.size())];
        if (timer == nullptr || input.below(16) == 0) {
            timer = std::make_unique<Checked>(&input);
            timer->compare();
        }
        timer->step(&input);
    }
    for (const std::unique_ptr<Checked>& timer : timers) {
        if (timer != nullptr) timer->compare();
    }
    return 0;
}
