// mutant.h: which mutant of the library a process runs; put in front of every source by mutants.py.

#ifndef TESTS_MUTANTS_MUTANT_H
#define TESTS_MUTANTS_MUTANT_H

#ifdef __cplusplus

#include <new>

namespace mutants {

// One of each in every library and program. Written before anything else of it runs.
__attribute__((visibility("hidden"))) inline unsigned g_active = 0;  // 0: none.
__attribute__((visibility("hidden"))) inline unsigned char* g_reached = nullptr;

// Without the C library: tests stand in for its functions and count the calls.
inline long systemCall(long number, long a, long b, long c = 0, long d = 0, long e = 0,
                       long f = 0) {
    long result = number;
    register long fourth __asm__("r10") = d;
    register long fifth __asm__("r8") = e;
    register long sixth __asm__("r9") = f;
    __asm__ volatile("syscall"
                     : "+a"(result)
                     : "D"(a), "S"(b), "d"(c), "r"(fourth), "r"(fifth), "r"(sixth)
                     : "rcx", "r11", "memory");
    return result;
}

__attribute__((no_sanitize("thread", "address", "undefined"))) inline const char* valueOf(
    char** environment, const char* name) {
    for (; *environment != nullptr; ++environment) {
        const char* p_entry = *environment;
        const char* p_name = name;
        while (*p_name != '\0' && *p_entry == *p_name) ++p_entry, ++p_name;
        if (*p_name == '\0' && *p_entry == '=') return p_entry + 1;
    }
    return nullptr;
}

// The table of reached mutants is shared with every process that inherits the variable, so that
// what a child has reached counts however it ends.
__attribute__((constructor(101), no_sanitize("thread", "address", "undefined"))) static void start(
    int, char**, char** environment) {
    constexpr long kOpen = 2, kClose = 3, kMap = 9, kReadWrite = 2, kMapReadWrite = 3, kShared = 1;
    constexpr long kBytes = 1 << 16;
    if (const char* number = valueOf(environment, "MUTANT")) {
        unsigned active = 0;
        while (*number != '\0') active = active * 10 + static_cast<unsigned>(*number++ - '0');
        g_active = active;
    }
    const char* file = valueOf(environment, "MUTANTS_REACHED");
    if (file == nullptr || g_reached != nullptr) return;
    const long descriptor = systemCall(kOpen, reinterpret_cast<long>(file), kReadWrite);
    if (descriptor < 0) return;
    const long mapped = systemCall(kMap, 0, kBytes, kMapReadWrite, kShared, descriptor, 0);
    if (mapped > 0) g_reached = reinterpret_cast<unsigned char*>(mapped);
    (void)systemCall(kClose, descriptor, 0);
}

// Neither a sanitizer nor the schedule explorer is to see these accesses.
__attribute__((noinline, no_sanitize("thread", "address", "undefined"))) inline bool isActive(
    unsigned number) {
    if (g_reached != nullptr) *static_cast<volatile unsigned char*>(g_reached + number) = 1;
    return number == g_active;
}

// What the compiler evaluates has no mutants: a constant stays one.
__attribute__((always_inline)) constexpr bool is(unsigned number) {
    return !__builtin_is_constant_evaluated() && isActive(number);
}

// A mutex that nobody else has, in place of the one that a guard is given.
template <typename Mutex>
class Other;

template <typename Mutex>
class Other<Mutex&> {
public:
    Other() = default;
    ~Other() {
        if (m_isMade) reinterpret_cast<Mutex*>(m_memory)->~Mutex();
    }
    Other(const Other&) = delete;
    Other& operator=(const Other&) = delete;

    Mutex& pick(bool isOther, Mutex& mutex) {
        if (!isOther) return mutex;
        m_isMade = true;
        return *new (m_memory) Mutex();
    }

private:
    alignas(Mutex) unsigned char m_memory[sizeof(Mutex)];
    bool m_isMade = false;
};

template <typename Mutex>
class Other<Mutex*> {
public:
    Mutex* pick(bool isOther, Mutex* p_mutex) {
        return isOther ? &m_other.pick(true, *p_mutex) : p_mutex;
    }

private:
    Other<Mutex&> m_other;
};

// A guard that is not there.
template <typename Guard>
class Maybe {
public:
    explicit Maybe(bool isThere) : m_isThere(isThere) {
        if (isThere) new (m_memory) Guard;
    }
    ~Maybe() {
        if (m_isThere) reinterpret_cast<Guard*>(m_memory)->~Guard();
    }
    Maybe(const Maybe&) = delete;
    Maybe& operator=(const Maybe&) = delete;

private:
    alignas(Guard) unsigned char m_memory[sizeof(Guard)];
    bool m_isThere;
};

}  // namespace mutants

#endif  // __cplusplus

#endif  // TESTS_MUTANTS_MUTANT_H
