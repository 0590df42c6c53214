// placement.h: which processors the threads of a benchmark run on.

#ifndef BENCHMARKS_SUPPORT_PLACEMENT_H
#define BENCHMARKS_SUPPORT_PLACEMENT_H

#include <sched.h>

#include <memory>

namespace bench {

enum class Cpus {
    One,         ///< Every thread on the same one.
    Two,         ///< Senders on one, receivers on another.
    Busy,        ///< The same, and on each a process that never sleeps.
    DeepSleep,   ///< As Two; a processor that is idle sleeps at once.
    LightSleep,  ///< As Two; a processor that is idle stays awake.
    Free,        ///< As the system likes.
};

/// The end of a row's name: "one_cpu", "two_cpus", "busy", "deep_sleep", "light_sleep" or
/// "unpinned".
const char* nameOf(Cpus cpus);

/// Whether this process may have the processors so; for LightSleep it takes rights.
bool isPossible(Cpus cpus);

/// Places the calling thread, and with it the threads that it makes from then on. Gives it back
/// its processors when destroyed. Belongs to that thread.
///
///     Placement placement(Cpus::Two);
///     placement.forReceivers();
///     Mailbox mailbox(...);       // Its thread is on the one processor,
///     placement.forSenders();     // this thread on the other.
class Placement {
public:
    explicit Placement(Cpus cpus);
    ~Placement();

    Placement(const Placement&) = delete;
    Placement& operator=(const Placement&) = delete;

    void forReceivers() const { use(m_receivers); }
    void forSenders() const { use(m_senders); }

private:
    static void use(const cpu_set_t& cpus);

    class Conditions;

    cpu_set_t m_before;
    cpu_set_t m_senders;
    cpu_set_t m_receivers;
    std::unique_ptr<Conditions> m_conditions;
};

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_PLACEMENT_H
