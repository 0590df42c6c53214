// Does one thing over and over, or with very many of something, and compares what the process has
// at the beginning and at the end.
//
//     endurance starts|timers|hubs|queue|unserved [--seconds=N] [--size=N]
//
// Prints both looks, each as a line of JSON. Exit status: 0 when nothing was left over, 1 when
// there was, or something was lost, 2 for a wrong argument.

#include <atomic>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/event_dispatcher.h"
#include "base/simple_timer.h"
#include "base/timer.h"
#include "soak/process_look.h"

namespace {

using namespace std::chrono_literals;
using namespace tevalon::base::event_dispatcher;
using tevalon::base::simple_timer::CONTINUE;
using tevalon::base::simple_timer::ONCE;
using tevalon::base::simple_timer::Timer;
using tevalon::base::timer::CallableTimerTask;
using tevalon::base::timer::TimerThread;
using Clock = std::chrono::steady_clock;

constexpr std::int32_t kType = 1;
constexpr long kMostGrowthKib = 32 * 1024;  // What allocators and sanitizers keep.

struct Settings {
    std::chrono::seconds duration{2};
    int size = 1000;
};

/// Counts down; whoever waits goes on at 0.
class Countdown {
public:
    explicit Countdown(int count) : m_count(count) {}

    void reset(int count) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_count = count;
    }

    void countDown() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (--m_count <= 0) m_change.notify_all();
    }

    void wait() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_change.wait(lock, [this] { return m_count <= 0; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_change;
    int m_count;
};

/// A hub that is registered while it exists.
class Mailbox {
public:
    Mailbox(std::int32_t module, EventHub::Handler handler) : m_hub(module) {
        (void)m_hub.registerHandler(kType, std::move(handler));
        (void)evtdispch_register_hub(&m_hub);
    }
    ~Mailbox() { (void)evtdispch_unregister_hub(&m_hub); }

    Mailbox(const Mailbox&) = delete;
    Mailbox& operator=(const Mailbox&) = delete;

    EventHub& hub() { return m_hub; }
    std::int32_t send(EventHub* p_from) {
        return p_from->sendEvent(p_from->createEvent(kType), m_hub.moduleId());
    }

private:
    EventHub m_hub;
};

// A start and a stop of a timer thread, a hub and a timer, a thousand times a second.
bool oneStart() {
    Countdown done(3);
    {
        Mailbox mailbox(7, [&](const std::shared_ptr<BrowserEvent>&) { done.countDown(); });
        TimerThread thread;
        thread.postTask(std::make_shared<CallableTimerTask>([&] { done.countDown(); }), 0);
        Timer timer(
            "once", 0ms, [&](Timer*, void*) { done.countDown(); }, nullptr, ONCE);
        if (timer.start() != 0 || mailbox.send(&mailbox.hub()) != 0) return false;
        done.wait();
        thread.stop();
    }
    return true;
}

bool starts(const Settings& settings) {
    const Clock::time_point end = Clock::now() + settings.duration;
    Clock::time_point next = Clock::now();
    while (Clock::now() < end) {
        if (!oneStart()) return false;
        next += 1ms;  // The rate is the subject.
        std::this_thread::sleep_until(next);
    }
    return true;
}

// Each fires every ten seconds, from another moment on.
bool timers(const Settings& settings) {
    std::atomic<long> fired{0};
    std::vector<std::unique_ptr<Timer>> timers;
    for (int i = 0; i < settings.size; ++i) {
        timers.push_back(std::make_unique<Timer>(
            "many", 10s, [&fired](Timer*, void*) { ++fired; }, nullptr, CONTINUE));
        if (timers.back()->start() != 0) return false;
        if (i % 10 == 9) std::this_thread::sleep_for(1ms);  // Spread over the ten seconds.
    }
    std::this_thread::sleep_for(settings.duration);  // The duration itself.
    const auto expected = settings.size * static_cast<long>(settings.duration / 10s) / 2;
    for (const std::unique_ptr<Timer>& timer : timers) (void)timer->stopNoBlock();
    timers.clear();
    return fired >= expected;
}

// Round after round each sends to the next one.
bool hubs(const Settings& settings) {
    const Clock::time_point end = Clock::now() + settings.duration;
    Countdown round(0);
    std::vector<std::unique_ptr<Mailbox>> mailboxes;
    for (int i = 0; i < settings.size; ++i) {
        mailboxes.push_back(std::make_unique<Mailbox>(
            i, [&](const std::shared_ptr<BrowserEvent>&) { round.countDown(); }));
    }
    do {
        round.reset(settings.size);
        for (int i = 0; i < settings.size; ++i) {
            Mailbox& from = *mailboxes[static_cast<std::size_t>(i)];
            Mailbox& to = *mailboxes[static_cast<std::size_t>((i + 1) % settings.size)];
            if (to.send(&from.hub()) != 0) return false;
        }
        round.wait();
    } while (Clock::now() < end);
    return true;
}

// Waiting behind a handler that does not return, then served in order.
bool queue(const Settings& settings) {
    const Clock::time_point end = Clock::now() + settings.duration;
    do {
        Countdown held(1);
        Countdown entered(1);
        Countdown served(settings.size + 1);
        Mailbox mailbox(7, [&](const std::shared_ptr<BrowserEvent>&) {
            entered.countDown();
            held.wait();
            served.countDown();
        });
        if (mailbox.send(&mailbox.hub()) != 0) return false;
        entered.wait();
        for (int i = 0; i < settings.size; ++i) {
            if (mailbox.send(&mailbox.hub()) != 0) return false;
        }
        if (mailbox.hub().queueLength() != static_cast<std::uint32_t>(settings.size)) return false;
        held.countDown();
        served.wait();
    } while (Clock::now() < end);
    return true;
}

// With a limit, all the time: what is refused costs nothing in the end.
bool unserved(const Settings& settings) {
    const Clock::time_point end = Clock::now() + settings.duration;
    Countdown held(1);
    Mailbox mailbox(7, [&](const std::shared_ptr<BrowserEvent>&) { held.wait(); });
    mailbox.hub().setQueueLimit(static_cast<std::uint32_t>(settings.size));
    long refused = 0;
    while (Clock::now() < end) {
        for (int i = 0; i < 1000; ++i) {
            const std::int32_t status = mailbox.send(&mailbox.hub());
            if (status == kEventQueueFull) ++refused;
            if (status != 0 && status != kEventQueueFull) return false;
        }
    }
    held.countDown();
    return refused > 0;
}

struct Task {
    const char* name;
    bool (*run)(const Settings& settings);
};

constexpr Task kTasks[] = {{"starts", starts},
                           {"timers", timers},
                           {"hubs", hubs},
                           {"queue", queue},
                           {"unserved", unserved}};

/// Reads @p prefix and a number from 1; false when it is something else.
bool parse(std::string_view argument, std::string_view prefix, int* p_number) {
    if (argument.substr(0, prefix.size()) != prefix) return false;
    const char* const p_end = argument.data() + argument.size();
    const auto [p_rest, error] = std::from_chars(argument.data() + prefix.size(), p_end, *p_number);
    return error == std::errc() && p_rest == p_end && *p_number > 0;
}

int usage() {
    std::fputs("usage: endurance starts|timers|hubs|queue|unserved [--seconds=N] [--size=N]\n",
               stderr);
    return 2;
}

int run(const Task& task, const Settings& settings) {
    // What is made once and kept is there before.
    Settings first = settings;
    first.duration = std::min(settings.duration, std::chrono::seconds(1));
    if (!task.run(first)) return 1;
    const soak::Look before = soak::look();
    soak::print("begin", before);
    const bool isGood = task.run(settings);
    const bool isSettled = soak::hasSettled(before);
    const soak::Look after = soak::look();
    soak::print("end", after);
    if (!isGood) std::fprintf(stderr, "endurance: %s: something was lost\n", task.name);
    if (!isSettled) std::fprintf(stderr, "endurance: %s: something is left over\n", task.name);
    const bool hasGrown = after.memoryKib > before.memoryKib + kMostGrowthKib;
    if (hasGrown) std::fprintf(stderr, "endurance: %s: memory has grown\n", task.name);
    return isGood && isSettled && !hasGrown ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    Settings settings;
    int seconds = 2;
    for (int i = 2; i < argc; ++i) {
        if (!parse(argv[i], "--seconds=", &seconds) && !parse(argv[i], "--size=", &settings.size)) {
            return usage();
        }
    }
    settings.duration = std::chrono::seconds(seconds);
    for (const Task& task : kTasks) {
        if (argc > 1 && task.name == std::string_view(argv[1])) return run(task, settings);
    }
    return usage();
}
