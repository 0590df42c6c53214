#include "testkit/spy_hub.h"

#include <gmock/gmock.h>

#include "base/event_dispatcher.h"

namespace {

using tevalon::base::event_dispatcher::BrowserEvent;
using tevalon::base::event_dispatcher::EventHub;
using tevalon::base::event_dispatcher::EventParam;
using tevalon::base::event_dispatcher::kEventResultTimeout;
using tevalon::testkit::SpyHub;

constexpr int kSpy = 70;
constexpr int kAsking = 71;
constexpr int kNoLimit = -1;

class Number : public EventParam {
public:
    explicit Number(int value) : m_value(value) {}
    std::int32_t intValue() override { return m_value; }

private:
    const int m_value;
};

int ask(EventHub& hub, int eventType, int value = 0, int timeoutMs = kNoLimit) {
    auto event = hub.createEvent(eventType);
    event->param = new Number(value);
    return hub.sendEventSync(event, kSpy, timeoutMs);
}

TEST(SpyHubTest, AnswersByType) {
    SpyHub spy(kSpy);
    spy.answer(1, 10).answer(2, 20);
    EventHub asking(kAsking);

    EXPECT_EQ(ask(asking, 1), 10);
    EXPECT_EQ(ask(asking, 2), 20);
}

TEST(SpyHubTest, AnswersWhatItIsToldLast) {
    SpyHub spy(kSpy);
    spy.answer(1, 10);
    EventHub asking(kAsking);
    EXPECT_EQ(ask(asking, 1), 10);

    spy.answer(1, 11);

    EXPECT_EQ(ask(asking, 1), 11);
}

TEST(SpyHubTest, AnswersByTheEvent) {
    SpyHub spy(kSpy);
    spy.answer(1, [](const BrowserEvent& event) { return 2 * event.param->intValue(); });
    EventHub asking(kAsking);

    EXPECT_EQ(ask(asking, 1, 21), 42);
}

TEST(SpyHubTest, TakesWithoutAnAnswer) {
    SpyHub spy(kSpy);
    spy.take(1);
    EventHub asking(kAsking);

    EXPECT_EQ(ask(asking, 1, 0, 10), kEventResultTimeout);
}

TEST(SpyHubTest, DoesNotTakeWhatItIsNotToldOf) {
    SpyHub spy(kSpy);
    spy.take(1);
    EventHub asking(kAsking);

    EXPECT_EQ(ask(asking, 2), -1);
}

TEST(SpyHubTest, RemembersWhatHasComeInOrder) {
    SpyHub spy(kSpy);
    spy.take(1).answer(2, 0);
    EventHub asking(kAsking);

    (void)asking.sendEvent(asking.createEvent(1), kSpy);
    EXPECT_EQ(ask(asking, 2, 5), 0);
    ASSERT_TRUE(spy.waitFor(2));

    ASSERT_EQ(spy.received().size(), 2U);
    EXPECT_EQ(spy.received()[0]->eventType, 1);
    EXPECT_EQ(spy.received()[0]->srcModule, kAsking);
    ASSERT_EQ(spy.received(2).size(), 1U);
    EXPECT_EQ(spy.received(2)[0]->param->intValue(), 5);
}

TEST(SpyHubTest, WaitsForSoManyOfAType) {
    SpyHub spy(kSpy);
    spy.take(1).take(2);
    EventHub asking(kAsking);
    for (int i = 0; i < 3; ++i) {
        (void)asking.sendEvent(asking.createEvent(1), kSpy);
        (void)asking.sendEvent(asking.createEvent(2), kSpy);
    }

    EXPECT_TRUE(spy.waitFor(1, 3));
    EXPECT_EQ(spy.count(1), 3U);
    EXPECT_FALSE(spy.waitFor(1, 4, std::chrono::milliseconds(1)));
}

TEST(SpyHubTest, ForgetsWhatIsCleared) {
    SpyHub spy(kSpy);
    spy.answer(1, 0);
    EventHub asking(kAsking);
    EXPECT_EQ(ask(asking, 1), 0);
    ASSERT_TRUE(spy.waitFor(1));

    spy.clear();

    EXPECT_EQ(spy.count(1), 0U);
}

TEST(SpyHubTest, SendsInTheModulesName) {
    SpyHub spy(kSpy);
    SpyHub other(kAsking);
    other.take(5);

    EXPECT_EQ(spy.send(5, kAsking, std::make_unique<Number>(9)), 0);

    ASSERT_TRUE(other.waitFor(5));
    EXPECT_EQ(other.received()[0]->srcModule, kSpy);
    EXPECT_EQ(other.received()[0]->param->intValue(), 9);
}

}  // namespace
