"""What can fail, and how."""

import errno

# The errors that a call can give to a caller that makes no mistake, the most telling first. "+": the
# call is made, and reported as failed then: it has no other way to fail, or would leave a lock held
# that the system never leaves so. "short": half of what was asked for.
WRITE_ERRORS = ["EIO", "ENOSPC", "EINTR", "EAGAIN", "EPIPE", "short"]
ERRORS = {
    "new": ["ENOMEM"],
    "malloc": ["ENOMEM"],
    "realloc": ["ENOMEM"],
    "mmap": ["ENOMEM", "EAGAIN"],
    "munmap": ["ENOMEM+"],
    "pthread_create": ["EAGAIN", "ENOMEM"],
    "pthread_attr_init": ["ENOMEM"],
    "pthread_atfork": ["ENOMEM"],
    "pthread_key_create": ["EAGAIN", "ENOMEM"],
    "pthread_setspecific": ["ENOMEM"],
    "pthread_setname_np": ["ERANGE"],
    "pthread_getname_np": ["ERANGE"],
    "pthread_mutex_init": ["ENOMEM", "EAGAIN"],
    "pthread_mutex_lock": ["EINVAL"],
    "pthread_mutex_trylock": ["EBUSY"],
    "pthread_mutex_unlock": ["EPERM+"],
    "pthread_cond_init": ["ENOMEM", "EAGAIN"],
    "pthread_cond_wait": ["EINVAL", "wake"],
    "pthread_cond_clockwait": ["EINVAL", "wake"],
    "pthread_cond_timedwait": ["EINVAL", "wake"],
    "pthread_cond_signal": ["EINVAL+"],
    "pthread_cond_broadcast": ["EINVAL+"],
    "sem_wait": ["EINTR"],
    "sem_clockwait": ["EINTR"],
    "clock_gettime": ["EINVAL"],
    "nanosleep": ["EINTR"],
    "clock_nanosleep": ["EINTR"],
    "sched_yield": ["ENOSYS"],
    "sched_getcpu": ["ENOSYS"],
    "prctl": ["EINVAL"],
    "getrlimit": ["ENOSYS"],
    "pipe2": ["EMFILE", "ENFILE"],
    "select": ["ENOMEM", "EINTR"],
    "poll": ["ENOMEM", "EINTR"],
    "read": ["EIO", "EINTR", "EAGAIN", "short"],
    "write": WRITE_ERRORS,
    "open": ["EMFILE", "ENFILE", "ENOSPC", "EACCES", "EEXIST", "EINTR"],
    "close": ["EIO+", "EINTR+"],
    "fcntl": ["EMFILE", "EINVAL"],
    "fstat": ["EIO"],
    "fstatfs": ["ENOSYS"],
    "isatty": ["ENOTTY"],
    "fopen": ["EMFILE", "ENOENT", "ENOMEM"],
    "fread": ["EIO", "short"],
    "fclose": ["EIO+"],
    "printf": ["EIO"],
    "fprintf": ["EIO"],
    "vsnprintf": ["EOVERFLOW"],
    "access": ["ENOENT", "EACCES", "EIO"],
    "opendir": ["EMFILE", "ENOMEM", "EACCES"],
    "readdir": ["EIO"],
    "closedir": ["EIO+"],
    "stat": ["ENOENT", "EACCES", "EIO"],
    "unlink": ["EACCES", "EBUSY"],
    "rename": ["EACCES", "EISDIR", "ENOSPC"],
    "rmdir": ["EACCES", "ENOTEMPTY"],
    "openat": ["EMFILE", "EACCES", "ELOOP"],
    "fdopendir": ["ENOMEM"],
    "unlinkat": ["EACCES", "EBUSY"],
    "posix_fallocate": ["ENOSPC", "EINTR", "EFBIG", "EOPNOTSUPP"],
    "sigtimedwait": ["EAGAIN", "EINTR"],
    "syscall(openat)": ["EMFILE", "ENFILE", "EACCES"],
    "syscall(read)": ["EIO", "EINTR"],
    "syscall(write)": WRITE_ERRORS,
    "syscall(close)": ["EIO+"],
}

# What is called and not in the table, since it cannot fail where its arguments are good. (But
# atexit(): without memory, from the 33rd on. Then what is static is not destroyed.)
CANNOT_FAIL = """
    pthread_mutex_destroy pthread_cond_destroy pthread_attr_destroy pthread_attr_setdetachstate
    pthread_join pthread_detach pthread_self pthread_equal pthread_once pthread_setcancelstate
    pthread_key_delete pthread_sigmask sem_init sem_destroy sem_post sysconf sigpending sigaddset
    sigemptyset sigismember uuid_generate mallinfo2 getauxval getenv secure_getenv getpid exit
    getopt_long dirfd geteuid localtime_r snprintf strerror strerror_r tolower ceil ldexp free
    __errno_location
    bcmp memchr memcmp memcpy memmove memrchr memset strcmp strlen strncmp strnlen strrchr strstr
    atexit __cxa_atexit __cxa_finalize __tls_get_addr __stack_chk_fail
    zorDebugCheckLevelGetFrameAndChunk zorDebugOutput0 zorDebugOutputV
    syscall(gettid) syscall(getcpu)
""".split()

# What the compiler calls on its own, and the C++ library.
NOT_OURS = ("_Z", "__cxa_", "_Unwind", "__asan", "__ubsan", "__tsan")

# Once one call has failed, all that follow do: what a process without memory, threads,
# descriptors, disk and clock meets. Locks hold: without them it would end at the next one.
LATER = {
    name: errors[0]
    for name, errors in ERRORS.items()
    if "(" not in name and not errors[0].endswith("+") and name not in
    ("pthread_mutex_lock", "pthread_mutex_trylock", "pthread_cond_wait", "pthread_cond_clockwait",
     "pthread_cond_timedwait", "sem_wait", "sem_clockwait")
}
LATER["syscall"] = "EIO"

# Nor is one of them the first: without memory for the text of its error the process ends.
LOCKS = ("pthread_mutex_lock", "pthread_mutex_unlock")

SYSTEM_CALLS = {"x86_64": {0: "read", 1: "write", 3: "close", 186: "gettid", 257: "openat",
                           309: "getcpu"}}


def number(error):
    """As engine.cpp reads it."""
    if error == "short":
        return "s"
    if error == "wake":
        return "0"
    suffix = "+" if error.endswith("+") else ""
    return str(getattr(errno, error.rstrip("+"))) + suffix
