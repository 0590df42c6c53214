// fail_call.h: makes calls of the system and the C library fail, to test what a module does then.

#ifndef TESTKIT_FAIL_CALL_H
#define TESTKIT_FAIL_CALL_H

namespace tevalon::testkit {

/// The functions that can be made to fail, each by its POSIX name; those for large files, such as
/// open64(), count as the ones without the number.
enum class Call {
    PthreadCreate,
    PthreadMutexInit,
    PthreadMutexLock,
    PthreadCondInit,
    PthreadCondWait,
    PthreadCondTimedwait,  ///< And pthread_cond_clockwait().
    SemInit,
    SemWait,
    SemTimedwait,  ///< And sem_clockwait().
    ClockGettime,
    Nanosleep,  ///< And clock_nanosleep().
    Select,
    Poll,
    EpollWait,
    Pipe,  ///< And pipe2().
    Open,  ///< And openat().
    Read,
    Write,
    Close,
    Stat,
    Access,
    Opendir,
    Mkdir,
    Rmdir,
    Unlink,  ///< And unlinkat().
    Rename,
    Socket,
    Connect,
    Accept,
    Send,
    Recv,
    Count  ///< How many there are.
};

/// While it lives, uses of a function fail: with @p error as the result of the functions that
/// return an error number, and in errno of the others. The calls of the module, of tevalon-base and
/// of the C++ library count; those inside the C library, such as of fopen(), do not.
///
///     tevalon::testkit::FailCall fail(tevalon::testkit::Call::PthreadCreate, EAGAIN);
///     EXPECT_FALSE(module.start());
///     EXPECT_EQ(fail.hits(), 1);
///
/// Up to 16 may live at once; where several mean the same use, the oldest has it, and all of them
/// have seen it.
///
/// Thread-safety: any thread may make, ask and destroy one; the uses of all threads count.
class FailCall {
public:
    static constexpr long kEveryTime = 1L << 30;  ///< For @p times: that one and all that follow.

    /// @param call   The function.
    /// @param error  As errno has them. 0 has a function return at once, as if it had succeeded.
    /// @param nth    The first use to fail, counted from here on; 1 is the next one.
    /// @param times  So many uses, that one and the following.
    FailCall(Call call, int error, long nth = 1, long times = 1);
    ~FailCall();

    FailCall(const FailCall&) = delete;
    FailCall& operator=(const FailCall&) = delete;

    /// Only uses by the calling thread count from here on.
    FailCall& onThisThread();

    /// Uses until now.
    long seen() const;
    /// Those of them that failed.
    long hits() const;

private:
    const int m_slot;
};

}  // namespace tevalon::testkit

#endif  // TESTKIT_FAIL_CALL_H
