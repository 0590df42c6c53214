#include "base/threading/basic_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "support/event.h"
#include "support/fault_injection.h"

namespace {

using test::Call;
using tevalon::base::Threading::BasicThread;

class Owner {
public:
    int run() {
        m_runner = std::this_thread::get_id();
        started.set();
        (void)m_stopped.wait();
        m_hasReturned = true;
        return 7;
    }
    void stop() {
        ++stops;
        m_stopped.set();
    }

    bool hasReturned() const { return m_hasReturned; }
    std::thread::id runner() const { return m_runner; }

    test::Event started;
    std::atomic<int> stops{0};

private:
    test::Event m_stopped;
    std::thread::id m_runner;
    bool m_hasReturned = false;  // Read after the join only.
};

TEST(BasicThreadTest, RunsItsOwnerOnAThreadOfItsOwn) {
    Owner owner;
    auto thread = std::make_shared<BasicThread<Owner>>(&owner);

    EXPECT_TRUE(owner.started.wait());
    EXPECT_NE(owner.runner(), std::this_thread::get_id());
    EXPECT_EQ(owner.stops, 0);
}

TEST(BasicThreadTest, TheLastHolderThatLetsGoStopsTheOwnerAndJoins) {
    Owner owner;
    auto thread = std::make_shared<BasicThread<Owner>>(&owner);
    auto other = thread;
    test::CountCalls joins(Call::PthreadJoin);

    thread.reset();
    EXPECT_EQ(owner.stops, 0);
    other.reset();

    EXPECT_EQ(owner.stops, 1);
    EXPECT_EQ(joins.seen(), 1);
    EXPECT_TRUE(owner.hasReturned());
}

TEST(BasicThreadTest, TheThreadHasDefaultAttributesAndReturnsTheResultOfRun) {
    Owner owner;
    pthread_t handle{};
    const pthread_attr_t* p_attributes = nullptr;
    void* p_result = nullptr;
    {
        test::ReplaceCall<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> create(
            Call::PthreadCreate, [&](pthread_t* p_handle, const pthread_attr_t* p_given,
                                     void* (*p_start)(void*), void* p_argument) {
                p_attributes = p_given;
                return pthread_create(p_handle, p_given, p_start, p_argument);
            });
        test::ReplaceCall<int(pthread_t, void**)> join(Call::PthreadJoin,
                                                       [&](pthread_t thread, void** pp_result) {
                                                           handle = thread;
                                                           EXPECT_EQ(pp_result, nullptr);
                                                           return pthread_join(thread, &p_result);
                                                       });
        BasicThread<Owner> thread(&owner);
    }

    EXPECT_EQ(p_attributes, nullptr);
    EXPECT_EQ(p_result, reinterpret_cast<void*>(std::intptr_t{7}));
}

TEST(BasicThreadTest, ThrowsWhenThereIsNoThreadToBeHad) {
    Owner owner;
    test::FailCall fail(Call::PthreadCreate, EAGAIN);

    try {
        BasicThread<Owner> thread(&owner);
        ADD_FAILURE() << "was made all the same";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Thread initialization failed");
    }
    EXPECT_EQ(owner.stops, 0);
}

/// Ends its thread from within.
class EndsItself {
public:
    int run() {
        EXPECT_TRUE(created.wait());
        m_thread->end();
        pthread_attr_t attributes;
        EXPECT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
        EXPECT_EQ(pthread_attr_getdetachstate(&attributes, &detachState), 0);
        (void)pthread_attr_destroy(&attributes);
        ended.set();
        return 0;
    }
    void stop() { ++stops; }

    void create() {
        m_thread = std::make_unique<BasicThread<EndsItself>>(this);
        created.set();
    }

    test::Event created;
    test::Event ended;
    int stops = 0;
    int detachState = PTHREAD_CREATE_JOINABLE;

private:
    std::unique_ptr<BasicThread<EndsItself>> m_thread;
};

TEST(BasicThreadTest, EndedByItselfItIsDetachedAndNotJoined) {
    const test::CountCalls joins(Call::PthreadJoin, test::When().anyThread());
    EndsItself owner;

    owner.create();

    ASSERT_TRUE(owner.ended.wait());
    EXPECT_EQ(owner.stops, 1);
    EXPECT_EQ(owner.detachState, PTHREAD_CREATE_DETACHED);
    EXPECT_EQ(joins.seen(), 0);
}

TEST(BasicThreadTest, WhoEndsItMayBeCancelledAfterwardsIfBefore) {
    for (const int before : {PTHREAD_CANCEL_DISABLE, PTHREAD_CANCEL_ENABLE}) {
        Owner owner;
        BasicThread<Owner> thread(&owner);
        int after = -1;
        (void)pthread_setcancelstate(before, nullptr);

        thread.end();

        (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &after);
        EXPECT_EQ(after, before);
    }
}

TEST(BasicThreadTest, HoldsItsOwnerAndTheHandle) {
    struct Fields {
        Owner* p_owner;
        pthread_t handle;
    };
    EXPECT_EQ(sizeof(BasicThread<Owner>), sizeof(Fields));
}

}  // namespace
