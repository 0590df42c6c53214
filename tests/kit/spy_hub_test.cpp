#include "testkit/spy_hub.h"

#include <gmock/gmock.h>

#include <cstddef>
#include <string>
#include <vector>

#include "base/event_dispatcher.h"

namespace {

using tevalon::base::event_dispatcher::EventHub;
using tevalon::base::event_dispatcher::EventParam;
using tevalon::base::event_dispatcher::fillReply;
using tevalon::base::event_dispatcher::kEventResultTimeout;
using tevalon::base::event_dispatcher::makeEvent;
using tevalon::base::event_dispatcher::makeRequest;
using tevalon::base::event_dispatcher::payload;
using tevalon::base::event_dispatcher::replyOf;
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
    spy.answer(1, [](const SpyHub::Event& event) { return 2 * event->param->intValue(); });
    EventHub asking(kAsking);

    EXPECT_EQ(ask(asking, 1, 21), 42);
}

struct Page {
    std::string genre;
    std::size_t number;
};

TEST(SpyHubTest, AnswersARequestWithWhatItFillsIt) {
    SpyHub spy(kSpy);
    spy.answer(1, [](const SpyHub::Event& request) {
        const Page* const p_page = payload<Page>(request);
        if (p_page == nullptr) return -2;
        return fillReply<std::vector<std::string>>(request, p_page->number, p_page->genre) ? 0 : -3;
    });
    EventHub asking(kAsking);
    const auto request = makeRequest<std::vector<std::string>, Page>(asking, 1, "film", 2U);

    EXPECT_EQ(asking.sendEventSync(request, kSpy, kNoLimit), 0);

    ASSERT_NE(replyOf<std::vector<std::string>>(request), nullptr);
    EXPECT_THAT(*replyOf<std::vector<std::string>>(request), testing::ElementsAre("film", "film"));
    EXPECT_EQ(ask(asking, 1), -2);
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

TEST(SpyHubTest, SendsAnEventThatWasMadeWithItsPayload) {
    SpyHub spy(kSpy);
    SpyHub other(kAsking);
    other.take(5);

    EXPECT_EQ(spy.send(makeEvent<Page>(spy.hub(), 5, "news", 3U), kAsking), 0);

    ASSERT_TRUE(other.waitFor(5));
    EXPECT_EQ(other.received()[0]->srcModule, kSpy);
    const Page* const p_page = payload<Page>(other.received(5).back());
    ASSERT_NE(p_page, nullptr);
    EXPECT_EQ(p_page->genre, "news");
    EXPECT_EQ(p_page->number, 3U);
}

}  // namespace
