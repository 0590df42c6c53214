// fault_injection.h: makes calls into the system and the C library fail, or do something else,
// in this very process: calls of the test, of the library under test, of libstdc++ alike.
//
// The test executable defines the functions under their own names and passes each call on to
// the next definition, unless one of the objects below, while it lives, says otherwise:
//
//     test::FailCall fail(test::Call::PthreadCreate, EAGAIN);
//     EXPECT_EQ(hub.registerHandler(kType, handler), 0);
//     EXPECT_EQ(fail.hits(), 1);
//
// Without further words it is the calling thread's first such call that is meant; test::When
// says more. To add a function: one enumerator here, one line in fault_injection.cpp.

#ifndef TESTS_SUPPORT_FAULT_INJECTION_H
#define TESTS_SUPPORT_FAULT_INJECTION_H

#include <atomic>
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace test {

/// The functions that can be interfered with.
enum class Call {
    PthreadMutexInit,
    PthreadMutexDestroy,
    PthreadMutexLock,
    PthreadMutexUnlock,
    PthreadCondInit,
    PthreadCondDestroy,
    PthreadCondWait,
    PthreadCondClockwait,
    PthreadCondSignal,
    PthreadCondBroadcast,
    PthreadCreate,
    PthreadJoin,
    PthreadCondTimedwait,
    SemWait,
    SemClockwait,
    SemPost,
    ClockGettime,
    SchedYield,
    Nanosleep,
    ClockNanosleep,
    Usleep,
    Pipe2,
    Select,
    Read,
    Write,
    Access,
    Opendir,
    Readdir,
    Closedir,
    Stat,
    Unlink,
    Rmdir,
    Openat,
    Fdopendir,
    Unlinkat,
    PosixFallocate,
    PthreadAtfork,
    UuidGenerate,        ///< To be replaced with an int(unsigned char*); it has no failures.
    ZorDebugCheckLevel,  ///< zorDebugCheckLevelGetFrameAndChunk
    New,                 ///< Every form of operator new; failing, it throws or returns null.
    Malloc,              ///< Not under a sanitizer, which brings its own; see isSupported().
    // Only in a program that also has tests/faults/more_calls.cpp.
    Open,
    Close,
    Fcntl,
    Fstat,
    Fstatfs,
    Isatty,
    Poll,
    Fopen,
    Fread,
    Fclose,
    Printf,
    Fprintf,
    Vsnprintf,
    Getrlimit,
    Mmap,
    Munmap,
    Realloc,
    Prctl,
    Syscall,
    Sysconf,
    SchedGetcpu,
    PthreadAttrInit,
    PthreadKeyCreate,
    PthreadSetspecific,
    PthreadSetname,
    PthreadGetname,
    PthreadMutexTrylock,
    PthreadSigmask,
    Sigpending,
    Sigtimedwait,
    Rename,
    Count
};

/// Whether calls of @p call can be interfered with in this build.
[[nodiscard]] bool isSupported(Call call);

/// What a watcher wants of a call: nothing by default.
struct CallFailure {
    bool isWanted = false;
    bool isAfterTheCall = false;  ///< Made, and only then reported as failed.
    int error = 0;                ///< As that of FailCall.
};

/// Asked about every call of every thread. @p caller is the call's return address,
/// @p pp_arguments points to its arguments, which may be changed: a write() made shorter, say.
using CallWatcher = CallFailure (*)(Call call, const void* caller, void* const* pp_arguments);

/// For a program that plans failures by where a call comes from. While there is a watcher, it
/// decides alone, and none of the objects below sees a call. Null ends that. What the watcher calls
/// itself is passed on untouched.
void setCallWatcher(CallWatcher watcher);

/// Told of every block that operator new and malloc() have given, in the thread that asked for it.
/// Null ends that. What it calls itself is passed on untouched.
using BlockWatcher = void (*)(Call call, const void* p_block);
void setBlockWatcher(BlockWatcher watcher);

/// Which uses of a call are meant: by default the first one by the thread that made this
/// object.
class When {
public:
    When();

    /// Not before the @p n-th matching use; the first is 1.
    When& nth(long n) {
        m_first = n;
        return *this;
    }
    /// That one and the following, @p n in all.
    When& times(long n) {
        m_times = n;
        return *this;
    }
    /// That one and all that follow.
    When& everyTime() { return times(kForEver); }
    /// Uses by any thread match.
    When& anyThread() {
        m_thread = nullptr;
        return *this;
    }
    /// Only uses whose first argument is @p object match.
    When& on(const void* object) {
        m_object = object;
        return *this;
    }
    /// The call is made, and only then reported as failed.
    When& afterTheCall() {
        m_afterTheCall = true;
        return *this;
    }

private:
    friend class Intervention;
    static constexpr long kForEver = 1L << 30;

    long m_first = 1;
    long m_times = 1;
    const void* m_thread;  // Null stands for any.
    const void* m_object = nullptr;
    bool m_afterTheCall = false;
};

/// What FailCall, RunAtCall and ReplaceCall have in common. Up to 32 may live at once; where
/// several mean the same use, the oldest has it, and all of them have seen it.
class Intervention {
public:
    Intervention(const Intervention&) = delete;
    Intervention& operator=(const Intervention&) = delete;

    /// Matching uses until now.
    [[nodiscard]] long seen() const;
    /// Those of them that were interfered with.
    [[nodiscard]] long hits() const;

protected:
    /// Runs in place of the call. @p p_result and @p pp_arguments point to the call's own.
    /// Returns whether the result stands; the call is made otherwise.
    using Action = bool (*)(void* p_self, void* p_result, void* const* pp_arguments);

    Intervention(Call call, const When& when);
    ~Intervention();

    void startFailing(int error);
    void startRunning(Action action, void* p_self);
    /// Returns when no thread is in the action, nor will enter it.
    void stop();

private:
    const int m_slot;
};

/// Makes a call fail: with @p error as its result where the function returns an error number,
/// and errno with -1 or null where it does not. Error 0 has a waiting function return at once.
class FailCall : public Intervention {
public:
    explicit FailCall(Call call, int error, const When& when = When()) : Intervention(call, when) {
        startFailing(error);
    }
    ~FailCall() { stop(); }
};

/// Fails nothing and counts the uses.
class CountCalls : public Intervention {
public:
    explicit CountCalls(Call call, const When& when = When()) : Intervention(call, when) {
        startRunning([](void*, void*, void* const*) { return false; }, nullptr);
    }
    ~CountCalls() { stop(); }
};

/// Hands an action to the threads that run it, and back to who made it: also for the eyes of the
/// thread sanitizer, which does not look into the test support.
class Handover {
public:
    void give() { m_isGiven.store(true, std::memory_order_release); }
    [[nodiscard]] bool isGiven() const { return m_isGiven.load(std::memory_order_acquire); }
    void giveBack() { m_returns.fetch_add(1, std::memory_order_release); }
    void takeBack() { (void)m_returns.load(std::memory_order_acquire); }

private:
    std::atomic<bool> m_isGiven{false};
    std::atomic<unsigned> m_returns{0};
};

/// Has the calling thread run @p action just before the call is made. The calls that the
/// action makes itself are passed on untouched.
class RunAtCall : public Intervention {
public:
    RunAtCall(Call call, std::function<void()> action, const When& when = When())
        : Intervention(call, when), m_action(std::move(action)) {
        m_handover.give();
        startRunning(&RunAtCall::run, this);
    }
    ~RunAtCall() {
        stop();
        m_handover.takeBack();
    }

private:
    static bool run(void* p_self, void*, void* const*) {
        auto* const self = static_cast<RunAtCall*>(p_self);
        if (!self->m_handover.isGiven()) return false;
        self->m_action();
        self->m_handover.giveBack();
        return false;
    }

    const std::function<void()> m_action;
    Handover m_handover;
};

template <typename Signature>
class ReplaceCall;

/// Has the calling thread run @p replacement instead of the call. The calls that it makes
/// itself are passed on untouched, so it may also make the call after all.
template <typename Result, typename... Arguments>
class ReplaceCall<Result(Arguments...)> : public Intervention {
public:
    ReplaceCall(Call call, std::function<Result(Arguments...)> replacement,
                const When& when = When().everyTime())
        : Intervention(call, when), m_replacement(std::move(replacement)) {
        m_handover.give();
        startRunning(&ReplaceCall::run, this);
    }
    ~ReplaceCall() {
        stop();
        m_handover.takeBack();
    }

private:
    static bool run(void* p_self, void* p_result, void* const* pp_arguments) {
        auto* const self = static_cast<ReplaceCall*>(p_self);
        if (!self->m_handover.isGiven()) return false;
        *static_cast<Result*>(p_result) =
            self->callWith(pp_arguments, std::index_sequence_for<Arguments...>());
        self->m_handover.giveBack();
        return true;
    }

    template <std::size_t... kIndex>
    Result callWith(void* const* pp_arguments, std::index_sequence<kIndex...>) {
        return m_replacement(*static_cast<Arguments*>(pp_arguments[kIndex])...);
    }

    const std::function<Result(Arguments...)> m_replacement;
    Handover m_handover;
};

/// While it lives, the calls of its thread are passed on untouched and uncounted. For what the
/// test support does itself.
class PassCalls {
public:
    PassCalls();
    ~PassCalls();

    PassCalls(const PassCalls&) = delete;
    PassCalls& operator=(const PassCalls&) = delete;
};

}  // namespace test

#endif  // TESTS_SUPPORT_FAULT_INJECTION_H
