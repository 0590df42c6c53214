// singleton.h: one instance of a class per process, made on first use and never destroyed.

#ifndef BASE_SINGLETON_H
#define BASE_SINGLETON_H

#include <cstdint>

#include "base/export.h"

namespace tevalon::base {

/// How Singleton makes its instance. Exported, though it is never linked to: a template is only
/// as visible as its arguments, and the singleton's word has to be seen by the whole process.
template <typename T>
struct TEVALON_BASE_EXPORT DefaultSingletonTraits {
    /// Called once, on the thread that asks for the instance first.
    static T* create() { return new T(); }
};

namespace internal {

/// Waits, yielding the processor, while @p p_instance holds the being-created marker, and
/// returns the word that replaced it. Without limit. Any thread.
TEVALON_BASE_EXPORT std::intptr_t WaitForInstance(std::intptr_t* p_instance);

/// Stands around the creation of an instance: in a forked child, where the thread that creates it
/// is missing, its word is back at kNoInstance. Up to 16 at once; a child would wait for ever for
/// one beyond that.
///
/// The creating thread is not cancelled meanwhile, for which all others would wait for ever.
class TEVALON_BASE_EXPORT CreationScope {
public:
    explicit CreationScope(std::intptr_t* p_instance);
    ~CreationScope();

    CreationScope(const CreationScope&) = delete;
    CreationScope& operator=(const CreationScope&) = delete;

private:
    int m_slot;
    int m_cancelStateBefore;
};

inline constexpr std::intptr_t kNoInstance = 0;
inline constexpr std::intptr_t kInstanceBeingCreated = 1;

/// An address in the upper half of a 32-bit process is a negative word.
constexpr bool isInstance(std::intptr_t word) {
    return static_cast<std::uintptr_t>(word) > static_cast<std::uintptr_t>(kInstanceBeingCreated);
}

}  // namespace internal

/// The one instance of @p T in the process, also when an executable and several shared
/// objects instantiate the template for the same @p T (which must then be exported by them).
///
///     Service* Service::GetInstance() {
///         return Singleton<Service, DefaultSingletonTraits<Service>, Service>::GetInstance();
///     }
///
/// @p Key tells several singletons of one class apart.
template <typename T, typename Traits = DefaultSingletonTraits<T>, typename Key = T>
class TEVALON_BASE_EXPORT Singleton {
public:
    Singleton() = delete;

    /// Returns the instance, creating it first if need be. Any thread: one creates, the others
    /// wait for it. T's constructor must not call this. What that constructor throws reaches
    /// the creating caller; every other call, then and later, waits for ever.
    /// In a forked child an instance that was finished is there; one that another thread was just
    /// creating is created anew by the first call.
    static T* GetInstance() {
        const std::intptr_t instance = __atomic_load_n(&instance_, __ATOMIC_SEQ_CST);
        if (internal::isInstance(instance)) return reinterpret_cast<T*>(instance);
        return createOrWait();
    }

private:
    static T* createOrWait() {
        {
            // Before the claim, so that no fork comes between the two.
            const internal::CreationScope creation(&instance_);
            if (claimCreation()) {
                T* p_instance = Traits::create();
                __atomic_store_n(&instance_, reinterpret_cast<std::intptr_t>(p_instance),
                                 __ATOMIC_SEQ_CST);
                return p_instance;
            }
        }
        return reinterpret_cast<T*>(internal::WaitForInstance(&instance_));
    }

    static bool claimCreation() {
        std::intptr_t seen = internal::kNoInstance;
        while (!__atomic_compare_exchange_n(&instance_, &seen, internal::kInstanceBeingCreated,
                                            /*weak=*/true, __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST)) {
            if (seen != internal::kNoInstance) return false;
        }
        return true;
    }

    // 0, the being-created marker, or the address of the finished instance. A plain word read
    // and written by atomic operations, so that every object file agrees on its layout.
    static std::intptr_t instance_;
};

template <typename T, typename Traits, typename Key>
std::intptr_t Singleton<T, Traits, Key>::instance_ = internal::kNoInstance;

}  // namespace tevalon::base

#endif  // BASE_SINGLETON_H
