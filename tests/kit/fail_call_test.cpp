#include "testkit/fail_call.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <thread>

#include "base/event_dispatcher.h"
#include "base/utils.h"
#include "testkit/log.h"

namespace {

using tevalon::base::event_dispatcher::BrowserEvent;
using tevalon::base::event_dispatcher::EventHub;
using tevalon::testkit::Call;
using tevalon::testkit::CapturedLog;
using tevalon::testkit::FailCall;
using tevalon::testkit::Logged;
using tevalon::testkit::Message;
namespace log_messages = tevalon::testkit::log_messages;

int closeNothing() {
    errno = 0;
    return close(-1);
}

TEST(FailCallTest, FailsTheNextUseAlone) {
    const FailCall fail(Call::Close, EIO);

    EXPECT_EQ(closeNothing(), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(closeNothing(), -1);
    EXPECT_EQ(errno, EBADF);

    EXPECT_EQ(fail.seen(), 2);
    EXPECT_EQ(fail.hits(), 1);
}

TEST(FailCallTest, FailsTheNthUseAndSoManyMore) {
    const FailCall fail(Call::Access, EACCES, 2, 2);

    EXPECT_EQ(access("/", F_OK), 0);
    EXPECT_EQ(access("/", F_OK), -1);
    EXPECT_EQ(access("/", F_OK), -1);
    EXPECT_EQ(access("/", F_OK), 0);

    EXPECT_EQ(fail.hits(), 2);
}

TEST(FailCallTest, FailsEveryUseUntilItsEnd) {
    {
        const FailCall fail(Call::Access, EACCES, 1, FailCall::kEveryTime);
        for (int i = 0; i < 5; ++i) EXPECT_EQ(access("/", F_OK), -1);
    }

    EXPECT_EQ(access("/", F_OK), 0);
}

TEST(FailCallTest, LeavesOtherFunctionsAlone) {
    const FailCall fail(Call::Write, EIO, 1, FailCall::kEveryTime);

    EXPECT_EQ(access("/", F_OK), 0);

    EXPECT_EQ(fail.seen(), 0);
}

TEST(FailCallTest, CountsTheUsesOfAllThreadsUnlessToldOtherwise) {
    FailCall any(Call::Access, EACCES, 1, FailCall::kEveryTime);
    FailCall here(Call::Access, EACCES, 1, FailCall::kEveryTime);
    here.onThisThread();
    int result = 0;

    std::thread other([&] { result = access("/", F_OK); });
    other.join();

    EXPECT_EQ(result, -1);
    EXPECT_EQ(any.hits(), 1);
    EXPECT_EQ(here.seen(), 0);
}

TEST(FailCallTest, TheOldestOfSeveralHasTheUse) {
    const FailCall oldest(Call::Access, EACCES);
    const FailCall other(Call::Access, ENOENT);

    EXPECT_EQ(access("/", F_OK), -1);

    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(other.seen(), 1);
    EXPECT_EQ(other.hits(), 0);
}

TEST(FailCallTest, ReachesTheLibraryAndTheCxxLibrary) {
    const CapturedLog log;
    EventHub hub(42);
    const FailCall fail(Call::PthreadCreate, EAGAIN);

    EXPECT_EQ(hub.registerHandler(1, [](const std::shared_ptr<BrowserEvent>&) {}), 0);

    EXPECT_EQ(fail.hits(), 1);
    EXPECT_THAT(log, Logged(Message(log_messages::kHubNoThread)));
}

TEST(FailCallTest, ReachesFunctionsForLargeFiles) {
    const FailCall fail(Call::Open, EMFILE);

    EXPECT_EQ(open("/dev/null", O_RDONLY | O_CLOEXEC), -1);

    EXPECT_EQ(errno, EMFILE);
}

}  // namespace
