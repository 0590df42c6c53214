// probe.cpp: a process that uses the debug library in one named way, for tests to watch from
// outside.

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "zor_debug/zor_debug.h"
#include "zor_debug/zor_debug_control.h"

namespace {

using Arguments = std::vector<std::string>;

void write(const std::string& text) {
    zorDebugOutput0("%s", text.c_str());
}

bool isOn(unsigned module, unsigned level) {
    DebugLevelRecord record = {static_cast<std::uint16_t>(level),
                               static_cast<std::uint16_t>(module), 0, 0};
    return zorDebugCheckLevelGetFrameAndChunk(&record) != 0;
}

void inThread(const std::function<void()>& body) {
    std::thread(body).join();
}

// Prints, for each MODULE:LEVEL, whether it is on.
int levels(const Arguments& arguments) {
    for (const std::string& argument : arguments) {
        unsigned module = 0;
        unsigned level = 0;
        if (std::sscanf(argument.c_str(), "%u:%u", &module, &level) != 2) return 2;
        std::printf("%d", isOn(module, level) ? 1 : 0);
    }
    return 0;
}

int writeAll(const Arguments& arguments) {
    for (const std::string& text : arguments) write(text);
    return 0;
}

int writeAtLevels(const Arguments&) {
    for (const unsigned level : {1U, 1000U, 3000U, 4000U, 5000U}) {
        if (isOn(0x5F, level)) zorDebugOutput0("level %u\n", level);
    }
    return 0;
}

int writeAsModules(const Arguments& arguments) {
    for (const std::string& argument : arguments) {
        const auto module = static_cast<unsigned>(std::stoul(argument, nullptr, 0));
        if (isOn(module, 1)) zorDebugOutput0("module %u\n", module);
    }
    return 0;
}

// What the wall clock shows, instead of the time; none where it is negative.
std::atomic<long long> g_wallSeconds{-1};

int writeAcross(const Arguments& arguments) {
    for (const std::string& seconds : arguments) {
        g_wallSeconds = std::stoll(seconds);
        write("line\n");
    }
    return 0;
}

void limitFileSize(rlim_t bytes) {
    rlimit limit = {};
    (void)getrlimit(RLIMIT_FSIZE, &limit);
    limit.rlim_cur = bytes;
    (void)setrlimit(RLIMIT_FSIZE, &limit);
}

// The disk takes a line, and a part of the next.
int limitFileSize(const Arguments& arguments) {
    (void)signal(SIGXFSZ, SIG_IGN);
    limitFileSize(12);
    write("12345678\n");
    write("abcdef\n");
    write("ghi\n");
    limitFileSize(RLIM_INFINITY);
    if (arguments.empty()) write("after\n");
    return 0;
}

// It takes a line, and then the first of two that come at once.
int limitFileSizeBetweenLines(const Arguments&) {
    (void)signal(SIGXFSZ, SIG_IGN);
    limitFileSize(12);
    write("12345678\n");
    write("ab\ncdef\n");
    limitFileSize(RLIM_INFINITY);
    write("after\n");
    return 0;
}

// One thread begins a line, another writes a whole one, the first ends its line.
int interleave(const Arguments&) {
    write("begun ");
    inThread([] { write("whole\n"); });
    write("ended\n");
    return 0;
}

// A thread ends with its line incomplete, then another thread writes.
int abandon(const Arguments&) {
    inThread([] { write("abandoned"); });
    write("next\n");
    return 0;
}

int storm(const Arguments&) {
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([number] {
            for (int line = 0; line < 300; ++line) {
                zorDebugOutput0("<%d", number);
                zorDebugOutput0(" %d", line);
                zorDebugOutput0(">\n(%d %d)\n", number, line);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    return 0;
}

bool waitForChild(pid_t child) {
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Forks while other threads write; every child writes too.
int forkStorm(const Arguments&) {
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int number = 0; number < 3; ++number) {
        threads.emplace_back([&stop] {
            while (!stop) {
                write("<parent");
                write(">\n");
            }
        });
    }
    int failures = 0;
    for (int i = 0; i < 40; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            (void)alarm(20);
            write("<child");
            write(">\n");
            _exit(0);
        }
        if (!waitForChild(child)) ++failures;
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
    return failures == 0 ? 0 : 1;
}

// The child begins anew: what its parent had begun is the parent's.
int forkInLine(const Arguments&) {
    write("parent ");
    const pid_t child = fork();
    if (child == 0) {
        write("child\n");
        std::exit(0);
    }
    const bool isChildWell = waitForChild(child);
    write("goes on\n");
    std::printf("%ld %ld", static_cast<long>(getpid()), static_cast<long>(child));
    return isChildWell ? 0 : 1;
}

// While it is set, a thread that reads a setting says so and waits for a fork to begin.
std::atomic<bool> g_holdsSettings{false};
std::atomic<bool> g_isReadingSettings{false};
std::atomic<bool> g_isForking{false};
std::atomic<bool> g_isWritten{false};

// Another thread is in its first call, reading the settings, when this one forks; the child writes
// and forks as well.
int forkInFirstCall(const Arguments&) {
    (void)pthread_atfork([] { g_isForking = true; }, nullptr, nullptr);
    g_holdsSettings = true;
    // Detached: the child, which does not have it, cannot join it.
    std::thread([] {
        write("thread\n");
        g_isWritten = true;
    }).detach();
    while (!g_isReadingSettings) std::this_thread::yield();
    const pid_t child = fork();
    g_holdsSettings = false;
    if (child == 0) {
        (void)alarm(20);
        write("child\n");
        const pid_t grandchild = fork();
        if (grandchild == 0) {
            (void)alarm(20);
            write("grandchild\n");
            _exit(0);
        }
        _exit(waitForChild(grandchild) ? 0 : 1);
    }
    while (!g_isWritten) std::this_thread::yield();
    return waitForChild(child) ? 0 : 1;
}

// Turns standard error to a pipe that stays open and that nobody reads.
int turnToDeadReader() {
    int ends[2];
    if (pipe(ends) != 0) std::exit(2);
    (void)dup2(ends[1], STDERR_FILENO);
    (void)close(ends[1]);
    return ends[0];
}

bool takesText(int descriptor) {
    pollfd wanted = {descriptor, POLLOUT, 0};
    return poll(&wanted, 1, 0) == 1;
}

int exitBesideStuckWriter(const Arguments&) {
    (void)turnToDeadReader();
    std::thread([] { write(std::string(1 << 20, 'x') + "\n"); }).detach();
    while (takesText(STDERR_FILENO)) std::this_thread::yield();
    std::printf("exits");
    return 0;
}

// What is kept back at the end of the process finds the pipe full.
int exitWithTextThatNobodyReads(const Arguments&) {
    const int reader = turnToDeadReader();
    const int flags = fcntl(STDERR_FILENO, F_GETFL);
    (void)fcntl(STDERR_FILENO, F_SETFL, flags | O_NONBLOCK);
    const std::string filling(4096, 'x');
    while (::write(STDERR_FILENO, filling.data(), filling.size()) > 0) {
    }
    (void)fcntl(STDERR_FILENO, F_SETFL, flags);
    write("kept back");
    std::printf("exits");
    return reader >= 0 ? 0 : 2;
}

struct LateWriter {
    ~LateWriter() { write("static destructor\n"); }
};

int lateExit(const Arguments&) {
    static LateWriter s_writer;
    (void)std::atexit([] { write("atexit\n"); });
    write("main without end");
    return 0;
}

int longLine(const Arguments&) {
    const std::string text(100000, 'x');
    zorDebugOutput0("%s|\n", text.c_str());
    return 0;
}

int keepErrno(const Arguments&) {
    errno = ENOENT;
    (void)isOn(0x5F, 1);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"  // Not ISO C, but what C libraries here print.
    zorDebugOutput0("%m\n");
#pragma GCC diagnostic pop
    const bool isKept = errno == ENOENT;
    (void)zorDebugSetFile("/does/not/exist");
    (void)zorDebugSetLevels("nonsense");
    return isKept && errno == ENOENT ? 0 : 1;
}

int brokenPipe(const Arguments&) {
    int ends[2];
    if (pipe(ends) != 0) return 2;
    (void)dup2(ends[1], STDERR_FILENO);
    (void)close(ends[0]);
    (void)close(ends[1]);
    write("nobody reads this\n");
    sigset_t pending;
    (void)sigpending(&pending);
    return sigismember(&pending, SIGPIPE) == 0 ? 0 : 1;
}

int closedStandardError(const Arguments& arguments) {
    (void)close(STDERR_FILENO);
    write("kept\n");
    std::fprintf(stderr, "not ours\n");
    return arguments.empty() ? 0 : 2;
}

// A thread is cancelled in the middle of writing; the others are not held up.
int cancel(const Arguments&) {
    static std::atomic<bool> s_isWriting{false};
    pthread_t thread;
    const auto body = [](void*) -> void* {
        while (true) {
            write("<cancelled>\n");
            s_isWriting = true;
            pthread_testcancel();
        }
    };
    if (pthread_create(&thread, nullptr, body, nullptr) != 0) return 2;
    while (!s_isWriting) std::this_thread::yield();
    (void)pthread_cancel(thread);
    (void)pthread_join(thread, nullptr);
    write("<after>\n");
    return 0;
}

int terminal(const Arguments&) {
    if (isatty(STDERR_FILENO) != 1) return 2;
    return writeAtLevels({});
}

int terminalModules(const Arguments&) {
    return writeAsModules(
        {"0x60", "0x61", "0x62", "0x63", "0x64", "0x65", "0x66", "0x67", "0x68", "0x69"});
}

__attribute__((constructor(101))) void writeBeforeMain() {
    if (std::getenv("PROBE_BEFORE_MAIN") != nullptr) write("before main\n");
}

const std::map<std::string, int (*)(const Arguments&)> kWays = {
    {"levels", levels},
    {"write", writeAll},
    {"write-at-levels", writeAtLevels},
    {"write-as-modules", writeAsModules},
    {"write-across", writeAcross},
    {"limit-file-size", limitFileSize},
    {"limit-file-size-between-lines", limitFileSizeBetweenLines},
    {"terminal-modules", terminalModules},
    {"interleave", interleave},
    {"abandon", abandon},
    {"storm", storm},
    {"fork-storm", forkStorm},
    {"fork-in-line", forkInLine},
    {"fork-in-first-call", forkInFirstCall},
    {"exit-beside-stuck-writer", exitBesideStuckWriter},
    {"exit-with-text-that-nobody-reads", exitWithTextThatNobodyReads},
    {"late-exit", lateExit},
    {"long-line", longLine},
    {"keep-errno", keepErrno},
    {"broken-pipe", brokenPipe},
    {"closed-standard-error", closedStandardError},
    {"cancel", cancel},
    {"terminal", terminal},
};

}  // namespace

// In place of the C library's, where the debug library looks for it.
extern "C" char* secure_getenv(const char* p_name) noexcept {
    if (g_holdsSettings) {
        g_isReadingSettings = true;
        while (!g_isForking) std::this_thread::yield();
    }
    using Function = char* (*)(const char*);
    static const auto s_next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "secure_getenv"));
    return s_next(p_name);
}

// In place of the C library's likewise.
extern "C" int clock_gettime(clockid_t clock, timespec* p_time) noexcept {
    if (clock == CLOCK_REALTIME && g_wallSeconds >= 0) {
        *p_time = {static_cast<time_t>(g_wallSeconds), 7000};
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, p_time));
}

int main(int argc, char** argv) {
    if (const char* p_seconds = std::getenv("PROBE_WALL_SECONDS")) {
        g_wallSeconds = std::atoll(p_seconds);
    }

    const auto way = argc > 1 ? kWays.find(argv[1]) : kWays.end();
    if (way == kWays.end()) return 2;
    (void)pthread_setname_np(pthread_self(), "zor_debug_probe");  // Whatever program runs us.
    return way->second(Arguments(argv + 2, argv + argc));
}
