#include "base/event_dispatcher/hub_registration.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

#include "event_dispatcher/event_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;

constexpr std::int32_t kModule = 51;
constexpr std::int32_t kType = 5;

class HubRegistrationTest : public testing::Test {
protected:
    bool isRegistered() { return evtdispch_send_event(m_sender.createEvent(kType), kModule) == 0; }

    Inbox m_inbox;
    EventHub m_sender{1};
    EventHub m_hub{kModule};
    const std::int32_t m_added = m_hub.registerHandler(kType, m_inbox.handler());
};

TEST_F(HubRegistrationTest, RegistersTheHubForItsScope) {
    {
        const HubRegistration registration(&m_hub);

        EXPECT_EQ(registration.status(), 0);
        EXPECT_TRUE(isRegistered());
    }

    EXPECT_FALSE(isRegistered());
}

TEST_F(HubRegistrationTest, MovedToItselfItGoesOn) {
    HubRegistration registration(&m_hub);
    HubRegistration& same = registration;

    registration = std::move(same);

    EXPECT_EQ(registration.status(), 0);
    EXPECT_TRUE(isRegistered());
}

TEST_F(HubRegistrationTest, StopsTheHubsThread) {
    test::Event entered;
    test::Event left;
    ASSERT_EQ(m_hub.registerHandler(kType + 1,
                                    [&](std::shared_ptr<BrowserEvent>) {
                                        entered.set();
                                        left.set();
                                    }),
              0);
    {
        const HubRegistration registration(&m_hub);
        ASSERT_EQ(m_sender.sendEvent(m_sender.createEvent(kType + 1), kModule), 0);
        ASSERT_TRUE(entered.wait());
    }

    EXPECT_TRUE(left.isSet());
}

TEST_F(HubRegistrationTest, LeavesAHubThatWasRegisteredAlready) {
    const HubRegistration first(&m_hub);
    {
        const HubRegistration second(&m_hub);

        EXPECT_EQ(second.status(), 1);
    }

    EXPECT_TRUE(isRegistered());
}

TEST_F(HubRegistrationTest, OfNoHubIsNone) {
    (void)EventDispatcher::GetInstance();  // Which says so when it is created.
    const test::LogCapture log(kLogError);
    std::int32_t status = 0;
    {
        const HubRegistration registration(nullptr);
        status = registration.status();
    }

    EXPECT_EQ(status, 2);
    EXPECT_EQ(log.entriesWithoutLineNumbers(), std::vector<test::LogEntry>{dispatcherLine(
                                                   kLogError, "registerHub", "p_hub is NULL.\n")});
}

TEST_F(HubRegistrationTest, EndsEarlierByReset) {
    HubRegistration registration(&m_hub);

    registration.reset();
    EXPECT_FALSE(isRegistered());
    registration.reset();

    const HubRegistration again(&m_hub);
    EXPECT_EQ(again.status(), 0);
}

TEST_F(HubRegistrationTest, MovesWithItsRegistration) {
    HubRegistration outer(nullptr);
    {
        HubRegistration inner(&m_hub);
        HubRegistration moved(std::move(inner));
        outer = std::move(moved);
    }

    EXPECT_TRUE(isRegistered());
    EXPECT_EQ(outer.status(), 0);
    EXPECT_FALSE(std::is_copy_constructible_v<HubRegistration>);
}

TEST_F(HubRegistrationTest, UnregistersWhatItHadBeforeAnAssignment) {
    EventHub other(kModule + 1);
    HubRegistration registration(&m_hub);

    registration = HubRegistration(&other);

    EXPECT_FALSE(isRegistered());
    EXPECT_EQ(evtdispch_register_hub(&other), 1);
}

}  // namespace
