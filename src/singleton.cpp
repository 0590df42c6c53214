#include "base/singleton.h"

#include <pthread.h>
#include <sched.h>

#include <array>
#include <atomic>

#include "os/forked_child.h"

namespace tevalon::base::internal {
namespace {

struct Creation {
    std::atomic<std::intptr_t*> p_instance;  // Null where there is none.
    pthread_t thread;                        // Before p_instance is more than taken.
};

constexpr int kMostCreations = 16;
constexpr int kNoSlot = -1;

std::array<Creation, kMostCreations> g_creations;

// Whoever has taken a slot for a while, lest two threads write its other field.
std::intptr_t g_taken;

bool isCreatedHere(const std::intptr_t* p_instance) {
    for (const Creation& creation : g_creations) {
        if (creation.p_instance.load() == p_instance &&
            pthread_equal(creation.thread, pthread_self()) != 0) {
            return true;
        }
    }
    return false;
}

void resetInForkedChild() {
    for (Creation& creation : g_creations) {
        std::intptr_t* const p_instance = creation.p_instance.load();
        if (p_instance == nullptr || isCreatedHere(p_instance)) continue;
        if (__atomic_load_n(p_instance, __ATOMIC_SEQ_CST) == kInstanceBeingCreated) {
            __atomic_store_n(p_instance, kNoInstance, __ATOMIC_SEQ_CST);
        }
        creation.p_instance = nullptr;
    }
}

}  // namespace

CreationScope::CreationScope(std::intptr_t* p_instance)
    : m_slot(kNoSlot), m_cancelStateBefore(PTHREAD_CANCEL_ENABLE) {
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_cancelStateBefore);
    inEachForkedChild(resetInForkedChild);
    for (int i = 0; i < kMostCreations; ++i) {
        Creation& creation = g_creations[static_cast<std::size_t>(i)];
        std::intptr_t* p_none = nullptr;
        if (!creation.p_instance.compare_exchange_strong(p_none, &g_taken)) continue;
        creation.thread = pthread_self();
        creation.p_instance = p_instance;
        m_slot = i;
        return;
    }
}

CreationScope::~CreationScope() {
    if (m_slot != kNoSlot) g_creations[static_cast<std::size_t>(m_slot)].p_instance = nullptr;
    (void)pthread_setcancelstate(m_cancelStateBefore, nullptr);
}

std::intptr_t WaitForInstance(std::intptr_t* p_instance) {
    while (true) {
        const std::intptr_t instance = __atomic_load_n(p_instance, __ATOMIC_SEQ_CST);
        if (instance != kInstanceBeingCreated) return instance;
        (void)sched_yield();  // Fails on no Linux; a failed yield is only a faster spin.
    }
}

}  // namespace tevalon::base::internal
