// Built without sanitizers, with the compiler's atomic operations; see schedule.h.
#include "failures.h"

#include <sched.h>

#include <cstdio>
#include <cstdlib>

#include "interposition.h"

namespace tevalon::testkit {
namespace kit {
namespace {

constexpr int kSlotCount = 16;
constexpr int kCallCount = static_cast<int>(Call::Count);

enum SlotState { kFree, kClaimed, kArmed };

struct Slot {
    int state;  // A SlotState.
    int users;  // Threads that look at it right now.
    int call;
    int error;
    long first;
    long times;
    const void* p_thread;  // Null stands for any.
    long seen;
    long hits;
};

Slot g_slots[kSlotCount];
int g_armed[kCallCount];  // How many slots want a call, so that the others cost one load.
thread_local char t_thread;

template <typename T>
T load(const T* p_value) {
    return __atomic_load_n(p_value, __ATOMIC_SEQ_CST);
}

template <typename T>
void store(T* p_value, T value) {
    __atomic_store_n(p_value, value, __ATOMIC_SEQ_CST);
}

int claimSlot() {
    for (int i = 0; i < kSlotCount; ++i) {
        int expected = kFree;
        if (__atomic_compare_exchange_n(&g_slots[i].state, &expected, static_cast<int>(kClaimed),
                                        false, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)) {
            return i;
        }
    }
    (void)std::fputs("testkit: too many FailCall at once\n", stderr);
    std::abort();
}

// Whether this use is one that the slot fails.
bool isDue(Slot* p_slot, Call call) {
    if (load(&p_slot->state) != kArmed || p_slot->call != static_cast<int>(call)) return false;
    const void* const p_thread = load(&p_slot->p_thread);
    if (p_thread != nullptr && p_thread != &t_thread) return false;
    const long use = __atomic_add_fetch(&p_slot->seen, 1, __ATOMIC_SEQ_CST);
    return use >= p_slot->first && use - p_slot->first < p_slot->times;
}

}  // namespace

int failureOf(Call call) {
    if (load(&g_armed[static_cast<int>(call)]) == 0) return kNoFailure;
    int error = kNoFailure;
    for (Slot& slot : g_slots) {
        __atomic_add_fetch(&slot.users, 1, __ATOMIC_SEQ_CST);
        if (isDue(&slot, call) && error == kNoFailure) {
            error = slot.error;
            __atomic_add_fetch(&slot.hits, 1, __ATOMIC_SEQ_CST);
        }
        __atomic_sub_fetch(&slot.users, 1, __ATOMIC_SEQ_CST);
    }
    return error;
}

}  // namespace kit

using kit::g_armed;
using kit::g_slots;

FailCall::FailCall(Call call, int error, long nth, long times) : m_slot(kit::claimSlot()) {
    kit::linkInterposers();
    kit::Slot& slot = g_slots[m_slot];
    slot.call = static_cast<int>(call);
    slot.error = error;
    slot.first = nth;
    slot.times = times;
    slot.p_thread = nullptr;
    slot.seen = 0;
    slot.hits = 0;
    kit::store(&slot.state, static_cast<int>(kit::kArmed));
    __atomic_add_fetch(&g_armed[slot.call], 1, __ATOMIC_SEQ_CST);
}

FailCall::~FailCall() {
    kit::Slot& slot = g_slots[m_slot];
    __atomic_sub_fetch(&g_armed[slot.call], 1, __ATOMIC_SEQ_CST);
    kit::store(&slot.state, static_cast<int>(kit::kClaimed));
    while (kit::load(&slot.users) != 0) (void)sched_yield();
    kit::store(&slot.state, static_cast<int>(kit::kFree));
}

FailCall& FailCall::onThisThread() {
    kit::store(&g_slots[m_slot].p_thread, static_cast<const void*>(&kit::t_thread));
    return *this;
}

long FailCall::seen() const {
    return kit::load(&g_slots[m_slot].seen);
}

long FailCall::hits() const {
    return kit::load(&g_slots[m_slot].hits);
}

}  // namespace tevalon::testkit
