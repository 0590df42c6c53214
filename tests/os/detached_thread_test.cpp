#include "os/detached_thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <cerrno>
#include <memory>
#include <system_error>

#include "support/event.h"
#include "support/fault_injection.h"

namespace {

using tevalon::base::startDetachedThread;

/// Tells when it is destroyed.
class Told {
public:
    explicit Told(test::Event* p_isGone) : m_isGone(p_isGone) {}
    ~Told() { m_isGone->set(); }

    Told(const Told&) = delete;
    Told& operator=(const Told&) = delete;

private:
    test::Event* const m_isGone;
};

TEST(DetachedThreadTest, RunsTheBodyOnAThreadThatNobodyJoinsAndDestroysItThere) {
    test::Event isGone;
    int detachState = PTHREAD_CREATE_JOINABLE;

    startDetachedThread([&detachState, told = std::make_shared<Told>(&isGone)] {
        pthread_attr_t attributes;
        EXPECT_EQ(pthread_getattr_np(pthread_self(), &attributes), 0);
        EXPECT_EQ(pthread_attr_getdetachstate(&attributes, &detachState), 0);
        (void)pthread_attr_destroy(&attributes);
    });

    ASSERT_TRUE(isGone.wait());
    EXPECT_EQ(detachState, PTHREAD_CREATE_DETACHED);
}

TEST(DetachedThreadTest, WithoutAThreadItThrowsAndDestroysTheBody) {
    test::Event isGone;
    const test::FailCall fail(test::Call::PthreadCreate, EAGAIN);

    try {
        startDetachedThread([told = std::make_shared<Told>(&isGone)] {});
        ADD_FAILURE() << "was started all the same";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EAGAIN);
    }

    EXPECT_TRUE(isGone.isSet());
}

}  // namespace
