#include "reporter.h"

#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>

#include "base/diagnostics.h"

namespace tevalon::record_preload {
namespace {

namespace diagnostics = tevalon::base::diagnostics;

using Word = std::atomic<std::uint32_t>;
static_assert(sizeof(Word) == sizeof(std::uint32_t) && Word::is_always_lock_free);

enum : std::uint32_t { kSnapshot = 1, kDeath = 2 };

constexpr std::uint32_t kLongestWaitMs = 2000;
constexpr std::uint32_t kHeapPeriodMs = 1000;

const char* g_file;  // Like the next one written before the thread starts.
std::atomic<pid_t> g_process{0};
Word g_wanted{0};        // What the thread is to do: a set of the above.
Word g_deathsWanted{0};  // Numbers the calls of reportDeath().
Word g_deathsWritten{0};

#ifdef SYS_futex
constexpr long kFutexCall = SYS_futex;
/// As this call takes it, whatever the width of time_t here.
struct Wait {
    long seconds;
    long nanoseconds;
};
#else  // 32-bit systems that never had a narrow time.
constexpr long kFutexCall = SYS_futex_time64;
struct Wait {
    std::int64_t seconds;
    std::int64_t nanoseconds;
};
#endif

/// Until the word is not @p value any more, the time is over, or for no reason.
void waitWhile(Word& word, std::uint32_t value, std::uint64_t atMostMs) {
    const Wait wait = {static_cast<decltype(Wait::seconds)>(atMostMs / 1000),
                       static_cast<decltype(Wait::nanoseconds)>(atMostMs % 1000 * 1000000)};
    (void)syscall(kFutexCall, &word, FUTEX_WAIT_PRIVATE, value, &wait, nullptr, 0);
}

void wakeAll(Word& word) {
    (void)syscall(kFutexCall, &word, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

void want(std::uint32_t what) {
    (void)g_wanted.fetch_or(what, std::memory_order_release);
    wakeAll(g_wanted);
}

class File {
public:
    /// Made by us, or appended to where we have made it; never through a link.
    File(const char* path, bool isOurs)
        : m_fd(open(path,
                    O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY |
                        (isOurs ? 0 : O_CREAT | O_EXCL),
                    S_IRUSR | S_IWUSR)) {}
    ~File() {
        if (m_fd >= 0) (void)close(m_fd);
    }

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    [[nodiscard]] bool isOpen() const { return m_fd >= 0; }
    [[nodiscard]] int fd() const { return m_fd; }

private:
    const int m_fd;
};

void writeSnapshot() {
    static unsigned s_number;  // Of the thread alone.
    char path[PATH_MAX];
    (void)std::snprintf(path, sizeof(path), "%s.%u", g_file, ++s_number);
    const File recording(path, false);
    if (recording.isOpen()) (void)diagnostics::writeRecording(recording.fd());
    (void)std::snprintf(path, sizeof(path), "%s.%u.state", g_file, s_number);
    const File state(path, false);
    if (state.isOpen()) (void)diagnostics::writeState(state.fd());
}

void work() {
    const std::uint32_t wanted = g_wanted.exchange(0, std::memory_order_acquire);
    if ((wanted & kDeath) != 0) {
        const std::uint32_t number = g_deathsWanted.load(std::memory_order_acquire);
        appendState();
        g_deathsWritten.store(number, std::memory_order_release);
        wakeAll(g_deathsWritten);
    }
    if ((wanted & kSnapshot) != 0) writeSnapshot();
    // Only with nothing else to do: who dies may hold the allocator's lock.
    if (wanted == 0 && diagnostics::isRecording()) diagnostics::sampleHeap();
}

void* runReporter(void*) {
    (void)pthread_setname_np(pthread_self(), "tevalon-record");
    for (;;) {
        waitWhile(g_wanted, 0, kHeapPeriodMs);
        work();
    }
    return nullptr;
}

std::uint64_t nowMs() {
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
           static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

}  // namespace

bool startReporter(const char* file) {
    g_file = file;
    g_process.store(getpid(), std::memory_order_relaxed);
    sigset_t all;
    sigset_t before;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_SETMASK, &all, &before);  // The thread inherits it.
    pthread_attr_t attributes;
    pthread_t thread;
    bool isStarted = pthread_attr_init(&attributes) == 0;
    if (isStarted) {
        (void)pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
        isStarted = pthread_create(&thread, &attributes, runReporter, nullptr) == 0;
        (void)pthread_attr_destroy(&attributes);
    }
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (!isStarted) g_process.store(0, std::memory_order_relaxed);
    return isStarted;
}

bool hasReporter() {
    return g_process.load(std::memory_order_relaxed) == getpid();
}

void requestSnapshot() {
    want(kSnapshot);
}

void reportDeath() {
    const std::uint32_t number = g_deathsWanted.fetch_add(1, std::memory_order_acq_rel) + 1;
    want(kDeath);
    const std::uint64_t deadline = nowMs() + kLongestWaitMs;
    for (;;) {
        const std::uint32_t written = g_deathsWritten.load(std::memory_order_acquire);
        const std::uint64_t now = nowMs();
        if (static_cast<std::int32_t>(written - number) >= 0 || now >= deadline) return;
        waitWhile(g_deathsWritten, written, deadline - now);
    }
}

void appendState() {
    static std::atomic<bool> s_isOurs{false};
    char path[PATH_MAX];
    (void)std::snprintf(path, sizeof(path), "%s.state", g_file);
    const File state(path, s_isOurs.load(std::memory_order_relaxed));
    if (!state.isOpen()) return;
    s_isOurs.store(true, std::memory_order_relaxed);
    (void)diagnostics::writeState(state.fd());
}

}  // namespace tevalon::record_preload
