#include "support/placement.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

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

/// A process that never sleeps, on one processor.
class BusyProcess {
public:
    explicit BusyProcess(const cpu_set_t& cpus) : m_child(fork()) {
        if (m_child != 0) return;
        (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
        (void)sched_setaffinity(0, sizeof(cpus), &cpus);
        for (volatile unsigned count = 0;;) count = count + 1;
    }
    ~BusyProcess() {
        if (m_child <= 0) return;
        (void)kill(m_child, SIGKILL);
        (void)waitpid(m_child, nullptr, 0);
    }

    BusyProcess(const BusyProcess&) = delete;
    BusyProcess& operator=(const BusyProcess&) = delete;

private:
    const pid_t m_child;
};

/// While it lives, the kernel lets no processor sleep: a request of its power management.
class AwakeProcessors {
public:
    AwakeProcessors() : m_descriptor(open("/dev/cpu_dma_latency", O_WRONLY | O_CLOEXEC)) {
        constexpr std::int32_t kMicroseconds = 0;
        if (m_descriptor < 0) return;
        m_isGranted =
            write(m_descriptor, &kMicroseconds, sizeof(kMicroseconds)) == sizeof(kMicroseconds);
    }
    ~AwakeProcessors() {
        if (m_descriptor >= 0) (void)close(m_descriptor);
    }

    AwakeProcessors(const AwakeProcessors&) = delete;
    AwakeProcessors& operator=(const AwakeProcessors&) = delete;

    bool isGranted() const { return m_isGranted; }

private:
    const int m_descriptor;
    bool m_isGranted = false;
};

/// While it lives, a virtual processor does not poll before it halts, which takes long to end.
/// Elsewhere, and without the right to, nothing changes.
class HaltingProcessors {
public:
    HaltingProcessors() {
        std::ifstream(kFile) >> m_before;
        std::ofstream(kFile) << 0;
    }
    ~HaltingProcessors() {
        if (!m_before.empty()) std::ofstream(kFile) << m_before;
    }

    HaltingProcessors(const HaltingProcessors&) = delete;
    HaltingProcessors& operator=(const HaltingProcessors&) = delete;

private:
    static constexpr const char* kFile = "/sys/module/haltpoll/parameters/guest_halt_poll_ns";

    std::string m_before;
};

}  // namespace

class Placement::Conditions {
public:
    Conditions(Cpus cpus, const cpu_set_t& senders, const cpu_set_t& receivers) {
        if (cpus == Cpus::Busy) {
            m_busy.push_back(std::make_unique<BusyProcess>(senders));
            m_busy.push_back(std::make_unique<BusyProcess>(receivers));
        }
        if (cpus == Cpus::LightSleep) m_awake = std::make_unique<AwakeProcessors>();
        if (cpus == Cpus::DeepSleep) m_halting = std::make_unique<HaltingProcessors>();
    }

private:
    std::vector<std::unique_ptr<BusyProcess>> m_busy;
    std::unique_ptr<AwakeProcessors> m_awake;
    std::unique_ptr<HaltingProcessors> m_halting;
};

bool isPossible(Cpus cpus) {
    return cpus != Cpus::LightSleep || AwakeProcessors().isGranted();
}

const char* nameOf(Cpus cpus) {
    switch (cpus) {
        case Cpus::One:
            return "one_cpu";
        case Cpus::Two:
            return "two_cpus";
        case Cpus::Busy:
            return "busy";
        case Cpus::DeepSleep:
            return "deep_sleep";
        case Cpus::LightSleep:
            return "light_sleep";
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
    m_conditions = std::make_unique<Conditions>(cpus, m_senders, m_receivers);
}

Placement::~Placement() {
    use(m_before);
}

// A machine that refuses is measured as it is: its figures say so by their spread.
void Placement::use(const cpu_set_t& cpus) {
    (void)sched_setaffinity(0, sizeof(cpus), &cpus);
}

}  // namespace bench
