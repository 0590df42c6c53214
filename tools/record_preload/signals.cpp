#include "signals.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <new>

#include "alternate_stack.h"
#include "reporter.h"

namespace tevalon::record_preload {
namespace {

constexpr int kDeadly[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGSYS, SIGTRAP};

struct sigaction g_before[NSIG];  // Written before our handlers are there.

/// Whether there is a handler, which then has been called.
bool callHandlerBefore(int signal, siginfo_t* p_info, void* p_context) {
    const struct sigaction& before = g_before[signal];
    if ((before.sa_flags & SA_SIGINFO) != 0) {
        before.sa_sigaction(signal, p_info, p_context);
        return true;
    }
    if (before.sa_handler == SIG_DFL || before.sa_handler == SIG_IGN) return false;
    before.sa_handler(signal);
    return true;
}

// A fault comes again when its instruction is executed again; what was sent has to be sent again.
// It arrives when this handler returns.
void endAsBefore(int signal, const siginfo_t* p_info) {
    const bool wasSent = p_info->si_code <= 0;
    if (wasSent && g_before[signal].sa_handler == SIG_IGN) return;
    struct sigaction end = {};
    end.sa_handler = SIG_DFL;
    (void)sigaction(signal, &end, nullptr);
    if (wasSent) (void)syscall(SYS_tgkill, getpid(), syscall(SYS_gettid), signal);
}

void onDeadlySignal(int signal, siginfo_t* p_info, void* p_context) {
    const int error = errno;
    if (hasReporter()) reportDeath();
    if (!callHandlerBefore(signal, p_info, p_context)) endAsBefore(signal, p_info);
    errno = error;
}

void onSnapshotSignal(int signal, siginfo_t* p_info, void* p_context) {
    const int error = errno;
    if (hasReporter()) requestSnapshot();
    (void)callHandlerBefore(signal, p_info, p_context);
    errno = error;
}

void handle(int signal, void (*handler)(int, siginfo_t*, void*), int flags) {
    struct sigaction action = {};
    action.sa_sigaction = handler;
    action.sa_flags = SA_SIGINFO | flags;
    (void)sigaction(signal, nullptr, &g_before[signal]);
    (void)sigaction(signal, &action, nullptr);
}

}  // namespace

void handleSignals(int snapshotSignal) {
    // This thread's, which may outlive every destructor.
    alignas(AlternateStack) static std::byte s_stack[sizeof(AlternateStack)];
    (void)new (s_stack) AlternateStack;
    for (const int signal : kDeadly) handle(signal, onDeadlySignal, SA_ONSTACK);
    if (snapshotSignal != 0) handle(snapshotSignal, onSnapshotSignal, SA_ONSTACK | SA_RESTART);
}

}  // namespace tevalon::record_preload
