// Atomic operations and fences: scheduling points, and what happens-before is made of.
#include <cstdint>
#include <cstring>

#include "hooks.h"

namespace tevalon::testkit {
namespace {

bool acquires(int order) {
    return order == __ATOMIC_ACQUIRE || order == __ATOMIC_CONSUME || order == __ATOMIC_ACQ_REL ||
           order == __ATOMIC_SEQ_CST;
}
bool releases(int order) {
    return order == __ATOMIC_RELEASE || order == __ATOMIC_ACQ_REL || order == __ATOMIC_SEQ_CST;
}

template <typename T>
std::uint64_t bitsOf(T value) {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof(value));
    return bits;
}

/// One operation on an atomic variable: the scheduling point before it, its effects after it.
class Step {
public:
    Step(const volatile void* p_address, std::size_t size, Touch touch, const char* verb,
         const void* p_place, std::uint64_t value = 0)
        : m_location(g_schedule.at(p_address)) {
        g_schedule.point(m_location, touch, verb, value, p_place);
        g_schedule.access(m_location.address, size, {touch == Touch::Write, true, false},
                          reinterpret_cast<std::uintptr_t>(p_place));
    }

    void read(int order) {
        Thread& self = *Schedule::self();
        if (acquires(order)) {
            g_schedule.acquire(m_location);
        } else {
            self.seenRelaxed.join(m_location.released);
        }
    }
    // Of a store: what was released before is no longer there to be acquired.
    void replace(int order) {
        m_location.released.clear();
        write(order);
    }
    // Of a read-modify-write: it continues the release sequence.
    void write(int order) {
        if (releases(order)) {
            g_schedule.release(m_location);
        } else {
            m_location.released.join(Schedule::self()->releasedByFence);
        }
    }
    void end(Touch touch, std::uint64_t value = 0) {
        g_schedule.happened(m_location, touch, value);
    }

private:
    Location& m_location;
};

template <typename T>
T load(const volatile T* p_address, int order, const void* p_place) {
    if (!isHooked()) return __atomic_load_n(p_address, __ATOMIC_SEQ_CST);
    Step step(p_address, sizeof(T), Touch::Read, "loads", p_place);
    const T value = __atomic_load_n(p_address, __ATOMIC_SEQ_CST);
    step.read(order);
    step.end(Touch::Read);
    return value;
}

template <typename T>
void store(volatile T* p_address, T value, int order, const void* p_place) {
    if (!isHooked()) return __atomic_store_n(p_address, value, __ATOMIC_SEQ_CST);
    Step step(p_address, sizeof(T), Touch::Write, "stores", p_place, bitsOf(value));
    __atomic_store_n(p_address, value, __ATOMIC_SEQ_CST);
    step.replace(order);
    step.end(Touch::Write);
}

template <typename T, typename Operation>
T modify(volatile T* p_address, int order, const char* verb, const void* p_place, T operand,
         Operation operation) {
    if (!isHooked()) return operation(p_address, operand);
    Step step(p_address, sizeof(T), Touch::Write, verb, p_place, bitsOf(operand));
    const T before = operation(p_address, operand);
    step.read(order);
    step.write(order);
    step.end(Touch::Write);
    return before;
}

template <typename T>
bool compareExchange(volatile T* p_address, T* p_expected, T desired, int order, int failureOrder,
                     const void* p_place) {
    if (!isHooked()) {
        return __atomic_compare_exchange_n(p_address, p_expected, desired, false, __ATOMIC_SEQ_CST,
                                           __ATOMIC_SEQ_CST);
    }
    Step step(p_address, sizeof(T), Touch::Write, "compares and exchanges", p_place,
              bitsOf(desired));
    const bool isDone = __atomic_compare_exchange_n(p_address, p_expected, desired, false,
                                                    __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
    step.read(isDone ? order : failureOrder);
    if (isDone) step.write(order);
    step.end(isDone ? Touch::Write : Touch::Read);
    return isDone;
}

}  // namespace

void linkAtomicHooks() {}

}  // namespace tevalon::testkit

namespace testkit = tevalon::testkit;

#define TESTKIT_FETCH(bits, name, verb)                                                      \
    TESTKIT_HOOK std::uint##bits##_t __tsan_atomic##bits##_##name(                           \
        volatile std::uint##bits##_t* p_address, std::uint##bits##_t operand, int order) {   \
        return testkit::modify(p_address, order, verb, __builtin_return_address(0), operand, \
                               [](auto* p_word, auto value) {                                \
                                   return __atomic_##name(p_word, value, __ATOMIC_SEQ_CST);  \
                               });                                                           \
    }

#define TESTKIT_ATOMIC(bits)                                                                      \
    TESTKIT_HOOK std::uint##bits##_t __tsan_atomic##bits##_load(                                  \
        const volatile std::uint##bits##_t* p_address, int order) {                               \
        return testkit::load(p_address, order, __builtin_return_address(0));                      \
    }                                                                                             \
    TESTKIT_HOOK void __tsan_atomic##bits##_store(volatile std::uint##bits##_t* p_address,        \
                                                  std::uint##bits##_t value, int order) {         \
        testkit::store(p_address, value, order, __builtin_return_address(0));                     \
    }                                                                                             \
    TESTKIT_HOOK std::uint##bits##_t __tsan_atomic##bits##_exchange(                              \
        volatile std::uint##bits##_t* p_address, std::uint##bits##_t value, int order) {          \
        return testkit::modify(p_address, order, "exchanges", __builtin_return_address(0), value, \
                               [](auto* p_word, auto desired) {                                   \
                                   return __atomic_exchange_n(p_word, desired, __ATOMIC_SEQ_CST); \
                               });                                                                \
    }                                                                                             \
    TESTKIT_FETCH(bits, fetch_add, "adds")                                                        \
    TESTKIT_FETCH(bits, fetch_sub, "subtracts")                                                   \
    TESTKIT_FETCH(bits, fetch_and, "ands")                                                        \
    TESTKIT_FETCH(bits, fetch_or, "ors")                                                          \
    TESTKIT_FETCH(bits, fetch_xor, "xors")                                                        \
    TESTKIT_FETCH(bits, fetch_nand, "nands")                                                      \
    TESTKIT_HOOK int __tsan_atomic##bits##_compare_exchange_strong(                               \
        volatile std::uint##bits##_t* p_address, std::uint##bits##_t* p_expected,                 \
        std::uint##bits##_t desired, int order, int failureOrder) {                               \
        return testkit::compareExchange(p_address, p_expected, desired, order, failureOrder,      \
                                        __builtin_return_address(0));                             \
    }                                                                                             \
    TESTKIT_HOOK int __tsan_atomic##bits##_compare_exchange_weak(                                 \
        volatile std::uint##bits##_t* p_address, std::uint##bits##_t* p_expected,                 \
        std::uint##bits##_t desired, int order, int failureOrder) {                               \
        return testkit::compareExchange(p_address, p_expected, desired, order, failureOrder,      \
                                        __builtin_return_address(0));                             \
    }                                                                                             \
    TESTKIT_HOOK std::uint##bits##_t __tsan_atomic##bits##_compare_exchange_val(                  \
        volatile std::uint##bits##_t* p_address, std::uint##bits##_t expected,                    \
        std::uint##bits##_t desired, int order, int failureOrder) {                               \
        (void)testkit::compareExchange(p_address, &expected, desired, order, failureOrder,        \
                                       __builtin_return_address(0));                              \
        return expected;                                                                          \
    }

TESTKIT_ATOMIC(8)
TESTKIT_ATOMIC(16)
TESTKIT_ATOMIC(32)
TESTKIT_ATOMIC(64)

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the compiler calls.

// A fence orders the thread's own accesses to several variables. With loads that see the last store
// there is nothing to schedule at it; it counts for happens-before.
TESTKIT_HOOK void __tsan_atomic_thread_fence(int order) {
    __atomic_thread_fence(__ATOMIC_SEQ_CST);
    if (!testkit::isHooked()) return;
    testkit::Thread& self = *testkit::Schedule::self();
    if (testkit::acquires(order)) self.clock.join(self.seenRelaxed);
    if (testkit::releases(order)) {
        self.releasedByFence = self.clock;
        self.clock.tick(self.id);
    }
}
TESTKIT_HOOK void __tsan_atomic_signal_fence(int) {}
// NOLINTEND(bugprone-reserved-identifier)
