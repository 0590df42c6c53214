// A program that records marks, and knows nothing of who may have started the recorder. It ends in
// the way that its argument names.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include "base/diagnostics.h"

namespace {

namespace diagnostics = tevalon::base::diagnostics;

void say(const char* line) {
    (void)!write(STDOUT_FILENO, line, std::strlen(line));
}

// ---- a handler that is there before any library's code runs ----

void onFault(int) {
    say("the handler that was there\n");
    _exit(3);
}

void onUser(int) {
    say("the handler that was there\n");
}

void onFaultWithInfo(int, siginfo_t* p_info, void*) {
    say(p_info->si_signo == SIGSEGV ? "the handler that was there\n" : "another signal\n");
    _exit(3);
}

char g_ownStack[1 << 16];

void setOwnStack() {
    stack_t mine = {};
    mine.ss_sp = g_ownStack;
    mine.ss_size = sizeof(g_ownStack);
    (void)sigaltstack(&mine, nullptr);
}

bool hasOwnStack() {
    stack_t now = {};
    return sigaltstack(nullptr, &now) == 0 && now.ss_sp == g_ownStack;
}

extern "C" void installHandlersFirst(int argc, char** argv, char**) {
    if (argc >= 2 && std::strcmp(argv[1], "own stack from the start") == 0) setOwnStack();
    if (argc < 2 || std::strstr(argv[1], "handled") == nullptr) return;
    struct sigaction action = {};
    if (std::strstr(argv[1], "with information") != nullptr) {
        action.sa_sigaction = onFaultWithInfo;
        action.sa_flags = SA_SIGINFO;
    } else if (std::strstr(argv[1], "ignored") != nullptr) {
        action.sa_handler = SIG_IGN;
    } else {
        action.sa_handler = onFault;
    }
    (void)sigaction(SIGSEGV, &action, nullptr);
    action = {};
    action.sa_handler = onUser;
    (void)sigaction(SIGUSR2, &action, nullptr);
}

__attribute__((section(".preinit_array"), used)) void (*g_first)(int, char**,
                                                                 char**) = installHandlersFirst;

// ---- ends ----

volatile std::uintptr_t g_nowhere = 64;  // In the page that is never mapped.

void fault() {
    *reinterpret_cast<volatile int*>(g_nowhere) = 1;
}

volatile int g_deepest = 1 << 30;

__attribute__((noinline)) int overflow(int depth) {
    volatile char room[4096] = {};
    room[0] = static_cast<char>(depth);
    if (depth == g_deepest) return 0;
    return overflow(depth + 1) + room[0];
}

bool isThere(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && status.st_size > 0;
}

/// Asks for a copy, and waits for its last file.
void snapshot(const std::string& lastFile) {
    (void)raise(SIGUSR2);
    while (!isThere(lastFile)) (void)usleep(1000);
}

int cancelThreads() {
    constexpr int kThreads = 100;
    for (int i = 0; i < kThreads; ++i) {
        pthread_t thread;
        const auto run = [](void*) -> void* {
            for (;;) (void)pause();
        };
        if (pthread_create(&thread, nullptr, run, nullptr) != 0) return 1;
        (void)pthread_cancel(thread);
        if (pthread_join(thread, nullptr) != 0) return 1;
    }
    return 0;
}

int forkAndFault() {
    const pid_t child = fork();
    if (child == 0) fault();
    int status = 0;
    (void)waitpid(child, &status, 0);
    diagnostics::mark("after the child");
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV ? 0 : 1;
}

// A thread's own alternate stack is left alone, whenever it was set.
int keepOwnStack() {
    bool isKept = false;
    std::thread([&] {
        setOwnStack();
        isKept = hasOwnStack();
    }).join();
    return isKept ? 0 : 1;
}

// No room for its stack.
int failToCreate() {
    pthread_attr_t attributes;
    (void)pthread_attr_init(&attributes);
    (void)pthread_attr_setstacksize(&attributes, ~std::size_t{0xFFFFF});
    pthread_t thread;
    const auto run = [](void*) -> void* { return nullptr; };
    const int error = pthread_create(&thread, &attributes, run, nullptr);
    (void)pthread_attr_destroy(&attributes);
    return error != 0 ? 0 : 1;
}

bool isReporterThere() {
    DIR* const p_tasks = opendir("/proc/self/task");
    bool isThere = false;
    while (const dirent* p_task = p_tasks != nullptr ? readdir(p_tasks) : nullptr) {
        std::string name;
        (void)std::getline(
            std::ifstream(std::string("/proc/self/task/") + p_task->d_name + "/comm"), name);
        isThere = isThere || name == "tevalon-record";
    }
    if (p_tasks != nullptr) (void)closedir(p_tasks);
    return isThere;
}

// In a child, which has no reporter. Forked when that has taken its name: a sanitizer's allocator,
// whose locks a thread takes when it begins, does not know of forks.
int useChild() {
    while (!isReporterThere()) (void)usleep(1000);
    const pid_t child = fork();
    if (child == 0) {
        bool isRun = false;
        const auto run = [](void* p_run) -> void* {
            *static_cast<bool*>(p_run) = true;
            return nullptr;
        };
        pthread_t thread;
        if (pthread_create(&thread, nullptr, run, &isRun) != 0) _exit(1);
        (void)pthread_join(thread, nullptr);
        (void)raise(SIGUSR2);
        _exit(isRun ? 0 : 1);
    }
    int status = 0;
    (void)waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}

int runThread() {
    bool isRun = false;
    std::thread([&] { isRun = true; }).join();
    return isRun ? 0 : 1;
}

}  // namespace

// In the place of the library's own where the environment wants it: a start that answers this, and
// a report that never ends.
namespace tevalon::base::diagnostics {
__attribute__((visibility("default"))) Status startRecording(const RecordingOptions& options) {
    if (const char* p_answer = std::getenv("CLIENT_START_ANSWERS")) {
        return static_cast<Status>(std::atoi(p_answer));
    }
    using Function = Status (*)(const RecordingOptions&);
    constexpr const char* kName =
        "_ZN7tevalon4base11diagnostics14startRecordingERKNS1_16RecordingOptionsE";
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, kName))(options);
}
__attribute__((visibility("default"))) Status writeState(int fd) {
    if (std::getenv("CLIENT_STATE_HANGS") != nullptr) {
        for (;;) (void)pause();
    }
    char name[16] = {};
    (void)pthread_getname_np(pthread_self(), name, sizeof(name));
    (void)dprintf(fd, "state of the client, thread '%s'\n", name);
    return Status::Ok;
}
}  // namespace tevalon::base::diagnostics

int main(int argc, char** argv) {
    const std::string end = argc > 1 ? argv[1] : "";
    const rlimit noCore = {0, 0};
    (void)setrlimit(RLIMIT_CORE, &noCore);
    diagnostics::mark(end.c_str(), 42);
    if (end == "kill") (void)raise(SIGKILL);
    if (end == "fault" || end.rfind("handled fault", 0) == 0) fault();
    if (end == "handled sent fault, ignored") (void)kill(getpid(), SIGSEGV);
    if (end == "own stack") return keepOwnStack();
    if (end == "own stack from the start") return hasOwnStack() ? 0 : 1;
    if (end == "refused thread") return failToCreate();
    if (end == "child") return useChild();
    if (end == "a thread") return runThread();
    if (end == "process id") say(std::to_string(getpid()).c_str());
    if (end == "fault on a thread") std::thread(fault).join();
    if (end == "overflow") return overflow(0);
    if (end == "overflow on a thread") std::thread([] { (void)overflow(0); }).join();
    if (end == "cancelled threads") return cancelThreads();
    if (end == "abort") std::abort();
    if (end == "sent fault") (void)kill(getpid(), SIGSEGV);
    if (end == "copy" || end == "handled copy") snapshot(argv[2]);
    if (end == "two copies") {
        snapshot(argv[2]);
        diagnostics::mark("between");
        snapshot(argv[3]);
    }
    if (end == "_exit") _exit(0);
    if (end == "fork") return forkAndFault();
    return 0;
}
