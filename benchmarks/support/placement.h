// placement.h: which processors the threads of a benchmark run on.

#ifndef BENCHMARKS_SUPPORT_PLACEMENT_H
#define BENCHMARKS_SUPPORT_PLACEMENT_H

#include <sched.h>

namespace bench {

enum class Cpus {
    One,   ///< Every thread on the same one.
    Two,   ///< Senders on one, receivers on another.
    Free,  ///< As the system likes.
};

/// The end of a row's name: "one_cpu", "two_cpus" or "unpinned".
const char* nameOf(Cpus cpus);

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

    cpu_set_t m_before;
    cpu_set_t m_senders;
    cpu_set_t m_receivers;
};

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_PLACEMENT_H
