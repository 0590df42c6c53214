#include "base/singleton.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include "support/event.h"
#include "support/fault_injection.h"
#include "support/fresh_process.h"
#include "support/threads.h"

namespace {

using test::Call;
using test::When;
using tevalon::base::DefaultSingletonTraits;
using tevalon::base::Singleton;
using tevalon::base::internal::WaitForInstance;

template <typename T>
T* instanceOf() {
    return Singleton<T, DefaultSingletonTraits<T>, T>::GetInstance();
}

TEST(SingletonTest, ThreadsThatRaceGetTheSameInstanceConstructedOnce) {
    static std::atomic<int> s_constructions{0};
    struct Service {
        Service() : value(42) { ++s_constructions; }
        int value;  // Plain: only the publication orders it before the readers.
    };
    constexpr int kThreads = 8;
    Service* instances[kThreads] = {};
    int values[kThreads] = {};

    test::runAtOnce(kThreads, [&](int i) {
        instances[i] = instanceOf<Service>();
        values[i] = instances[i]->value;
    });

    EXPECT_EQ(s_constructions, 1);
    for (int i = 0; i < kThreads; ++i) {
        EXPECT_EQ(instances[i], instances[0]);
        EXPECT_EQ(values[i], 42);
    }
}

TEST(SingletonTest, CallersDuringConstructionWaitForTheInstance) {
    static test::Event s_constructing;
    static test::Event s_otherWaits;
    static std::atomic<int> s_constructions{0};
    struct Service {
        Service() {
            ++s_constructions;
            s_constructing.set();
            finished = s_otherWaits.wait();
        }
        bool finished = false;
    };
    test::RunAtCall yields(
        Call::SchedYield, [] { s_otherWaits.set(); }, When().nth(3).anyThread());
    Service* seenByOther = nullptr;
    std::thread other([&] {
        (void)s_constructing.wait();
        seenByOther = instanceOf<Service>();
    });

    Service* const p_service = instanceOf<Service>();
    other.join();

    EXPECT_TRUE(p_service->finished);
    EXPECT_EQ(seenByOther, p_service);
    EXPECT_EQ(s_constructions, 1);
}

TEST(SingletonTest, ReturnsAtOnceAfterCreation) {
    static int s_constructions = 0;
    struct Service {
        Service() { ++s_constructions; }
        char byte = 0;
    };
    Service* const p_first = instanceOf<Service>();
    test::CountCalls yields(Call::SchedYield);

    Service* const p_second = instanceOf<Service>();

    EXPECT_EQ(p_second, p_first);
    EXPECT_EQ(yields.seen(), 0);
    EXPECT_EQ(s_constructions, 1);
}

TEST(SingletonTest, MakesItsInstanceThroughItsTraits) {
    struct Service {
        int value = 0;
    };
    struct Traits {
        static Service* create() {
            auto* const p_service = new Service;
            p_service->value = 7;
            return p_service;
        }
    };

    EXPECT_EQ((Singleton<Service, Traits, Service>::GetInstance()->value), 7);
}

TEST(SingletonTest, KeysTellInstancesOfOneClassApart) {
    struct Service {
        char byte = 0;
    };
    struct Red {};
    struct Blue {};
    using RedService = Singleton<Service, DefaultSingletonTraits<Service>, Red>;
    using BlueService = Singleton<Service, DefaultSingletonTraits<Service>, Blue>;

    Service* const p_red = RedService::GetInstance();
    Service* const p_blue = BlueService::GetInstance();

    EXPECT_NE(p_red, p_blue);
    EXPECT_EQ(RedService::GetInstance(), p_red);
}

// Each of these is about the state that a whole process is left in.

TEST(SingletonDeathTest, IsNeverDestroyed) {
    struct Service {
        ~Service() { std::fputs("destroyed\n", stderr); }
    };
    EXPECT_EXIT(
        {
            (void)instanceOf<Service>();
            std::exit(0);
        },
        testing::ExitedWithCode(0), testing::Eq(""));
}

struct Unmakeable {
    Unmakeable() {
        ++s_constructions;
        throw std::runtime_error("no service today");
    }
    static void* operator new(std::size_t size) {
        ++s_allocated;
        return ::operator new(size);
    }
    static void operator delete(void* p_memory) {
        --s_allocated;
        ::operator delete(p_memory);
    }
    static std::atomic<int> s_constructions;
    static std::atomic<int> s_allocated;
};
std::atomic<int> Unmakeable::s_constructions{0};
std::atomic<int> Unmakeable::s_allocated{0};

void expectInChild(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "not so: %s\n", what);
    std::_Exit(1);
}

void failToMakeIt() {
    try {
        (void)instanceOf<Unmakeable>();
    } catch (const std::runtime_error& error) {
        expectInChild(std::string(error.what()) == "no service today", "the text is its own");
        return;
    }
    expectInChild(false, "the exception reaches the caller");
}

TEST(SingletonDeathTest, AConstructorThatThrowsReachesTheCallerAndFreesItsMemory) {
    EXPECT_EXIT(
        {
            failToMakeIt();
            expectInChild(Unmakeable::s_constructions == 1, "constructed once");
            expectInChild(Unmakeable::s_allocated == 0, "memory freed");
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(SingletonDeathTest, AConstructorThatThrowsLeavesLaterCallsWaiting) {
    EXPECT_EXIT(
        {
            failToMakeIt();
            test::Event stillWaiting;
            test::RunAtCall yields(
                Call::SchedYield, [&] { stillWaiting.set(); }, When().nth(10000).anyThread());
            std::atomic<bool> returned{false};
            std::thread later([&] {
                (void)instanceOf<Unmakeable>();
                returned = true;
            });
            expectInChild(stillWaiting.wait(), "the later call waits");
            expectInChild(!returned, "the later call has not returned");
            expectInChild(Unmakeable::s_constructions == 1, "construction is not tried again");
            // The later call never returns, so the process ends from beneath it.
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(SingletonDeathTest, AThreadThatIsCancelledDuringCreationFinishesItFirst) {
    static std::atomic<bool> s_isFinished{false};
    struct Service {
        Service() {
            (void)pthread_cancel(pthread_self());
            pthread_testcancel();
            s_isFinished = true;
        }
        char byte = 0;
    };
    static Service* s_p_created = nullptr;
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        const auto create = [](void*) -> void* {
            s_p_created = instanceOf<Service>();
            pthread_testcancel();
            return nullptr;
        };
        pthread_t creator = {};
        ASSERT_EQ(pthread_create(&creator, nullptr, create, nullptr), 0);
        void* p_result = nullptr;
        ASSERT_EQ(pthread_join(creator, &p_result), 0);

        EXPECT_EQ(p_result, PTHREAD_CANCELED);
        ASSERT_TRUE(s_isFinished);  // All others would wait for ever.
        EXPECT_EQ(instanceOf<Service>(), s_p_created);
    });
}

TEST(WaitForInstanceTest, ReturnsAnythingButTheMarkerAtOnce) {
    std::intptr_t none = 0;
    std::intptr_t address = reinterpret_cast<std::intptr_t>(&none);
    std::intptr_t highAddress = INTPTR_MIN + 16;
    test::CountCalls yields(Call::SchedYield);

    EXPECT_EQ(WaitForInstance(&none), 0);
    EXPECT_EQ(WaitForInstance(&address), address);
    EXPECT_EQ(WaitForInstance(&highAddress), highAddress);

    EXPECT_EQ(yields.seen(), 0);
}

TEST(WaitForInstanceTest, YieldsUntilTheMarkerIsReplaced) {
    std::intptr_t word = 1;
    test::RunAtCall yields(
        Call::SchedYield, [&] { __atomic_store_n(&word, 4096, __ATOMIC_SEQ_CST); }, When().nth(5));

    const std::intptr_t seen = WaitForInstance(&word);

    EXPECT_EQ(seen, 4096);
    EXPECT_EQ(yields.seen(), 5);
}

TEST(WaitForInstanceTest, WaitsForAnotherThread) {
    std::intptr_t word = 1;
    test::Event waiting;
    test::RunAtCall yields(
        Call::SchedYield, [&] { waiting.set(); }, When().nth(2).anyThread());
    std::intptr_t seen = 0;
    std::thread waiter([&] { seen = WaitForInstance(&word); });

    ASSERT_TRUE(waiting.wait());
    __atomic_store_n(&word, 8192, __ATOMIC_SEQ_CST);
    waiter.join();

    EXPECT_EQ(seen, 8192);
}

TEST(WaitForInstanceTest, TakesThePointerSizedWordThatIsAnIntOnTheTarget) {
    EXPECT_TRUE(
        (std::is_same<decltype(&WaitForInstance), std::intptr_t (*)(std::intptr_t*)>::value));
    EXPECT_EQ(sizeof(std::intptr_t), sizeof(void*));
}

}  // namespace
