#include "support/placement.h"

namespace bench {
namespace {

cpu_set_t onlyCpu(int cpu) {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(static_cast<unsigned int>(cpu), &cpus);
    return cpus;
}

// The first processor in the set at or below this one; the lowest numbers serve the interrupts
// of many machines, so the search begins at the top.
int cpuAtOrBelow(const cpu_set_t& cpus, int cpu) {
    while (cpu > 0 && !CPU_ISSET(static_cast<unsigned int>(cpu), &cpus)) --cpu;
    return cpu;
}

}  // namespace

const char* nameOf(Cpus cpus) {
    switch (cpus) {
        case Cpus::One:
            return "one_cpu";
        case Cpus::Two:
            return "two_cpus";
        case Cpus::Free:
            break;
    }
    return "unpinned";
}

Placement::Placement(Cpus cpus) {
    CPU_ZERO(&m_before);
    (void)sched_getaffinity(0, sizeof(m_before), &m_before);
    m_senders = m_before;
    m_receivers = m_before;
    if (cpus == Cpus::Free) return;

    const int first = cpuAtOrBelow(m_before, CPU_SETSIZE - 1);
    const int second = first > 0 ? cpuAtOrBelow(m_before, first - 1) : first;
    m_receivers = onlyCpu(first);
    m_senders = onlyCpu(cpus == Cpus::One ? first : second);
}

Placement::~Placement() {
    use(m_before);
}

// A machine that refuses is measured as it is: its figures say so by their spread.
void Placement::use(const cpu_set_t& cpus) {
    (void)sched_setaffinity(0, sizeof(cpus), &cpus);
}

}  // namespace bench
