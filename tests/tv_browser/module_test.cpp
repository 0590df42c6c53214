#include "module.h"

#include <gmock/gmock.h>

#include <stdexcept>

#include "testkit/log.h"
#include "testkit/manual_time.h"
#include "tv_browser/story.h"

namespace tv_browser {
namespace {

using namespace std::chrono_literals;

using testing::ElementsAre;
using namespace tevalon::testkit;

constexpr auto kPatience = 20ms;  // On the clock that the tests turn.

std::unique_ptr<KeyRequest> press(const std::string& key) {
    return std::make_unique<KeyRequest>(EventType::PressKey, key);
}

// Replies what the test wants to see.
class Answering : public Module {
public:
    explicit Answering(Timeline& timeline) : Module(ModuleId::HbbtvController, timeline) {
        onRequest<KeyRequest>(EventType::PressKey,
                              [](const KeyRequest& request) { return pressKey(request.key); });
        onNotice<AppNotice>(ModuleId::ApplicationManager, EventType::AppState,
                            [this](const AppNotice& notice) { followApp(notice); });
    }

    bool hasAppStopped = false;
    bool wasCalledForStandby = false;

private:
    static Reply pressKey(const std::string& key) {
        if (key == "red") return Reply::KeyNotUsed;
        if (key == "exit") throw std::runtime_error("no exit");
        return Reply::Ok;
    }
    void followApp(const AppNotice& notice) {
        if (notice.state == AppState::Stopped) hasAppStopped = true;
    }
    void standby() override { wasCalledForStandby = true; }
};

class ModuleTest : public testing::Test {
protected:
    ~ModuleTest() override {
        m_answering.stop();
        (void)std::fclose(m_file);
    }

    std::vector<std::string> story() { return test::storyOf(test::contentsOf(m_file)); }

    std::FILE* const m_file = std::tmpfile();
    Timeline m_timeline{m_file};
    Answering m_answering{m_timeline};
    Module m_asking{ModuleId::Viewer, m_timeline};
};

TEST_F(ModuleTest, AskReturnsWhatTheHandlerReplied) {
    ASSERT_TRUE(m_answering.start());

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("red"), kPatience), Reply::KeyNotUsed);
    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("ok"), kPatience), Reply::Ok);

    EXPECT_THAT(story(), ElementsAre("hbbtv_controller is ready, as module 20",
                                     "viewer -> hbbtv_controller: key red",
                                     "viewer <- hbbtv_controller: page has no use for it",
                                     "viewer -> hbbtv_controller: key ok",
                                     "viewer <- hbbtv_controller: ok"));
}

TEST_F(ModuleTest, AskOfAModuleThatIsNotStartedIsNotDelivered) {
    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("red"), kPatience),
              Reply::NotDelivered);

    EXPECT_THAT(story(), ElementsAre("viewer -> hbbtv_controller: key red",
                                     "viewer <- hbbtv_controller: could not be delivered"));
}

TEST_F(ModuleTest, AskOfAModuleThatIsStoppedIsNotDelivered) {
    ASSERT_TRUE(m_answering.start());
    m_answering.stop();

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("red"), kPatience),
              Reply::NotDelivered);
}

TEST_F(ModuleTest, APayloadOfAnotherTypeFails) {
    ASSERT_TRUE(m_answering.start());

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController,
                           std::make_unique<Message>(EventType::PressKey, "no key"), kPatience),
              Reply::Failed);
}

TEST_F(ModuleTest, ASlowAnswerTimesOutAndComesLate) {
    ASSERT_TRUE(m_answering.start());
    m_asking.tell(ModuleId::HbbtvController, std::make_unique<SlowNotice>(60000));

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("red"), kPatience), Reply::TimedOut);
    advance(60s);

    EXPECT_THAT(
        story(),
        ElementsAre("hbbtv_controller is ready, as module 20",
                    "viewer => hbbtv_controller: take 60000 ms over the next answer",
                    "viewer -> hbbtv_controller: key red", "hbbtv_controller is busy for 60000 ms",
                    "viewer !! hbbtv_controller: no answer within 20 ms",
                    "hbbtv_controller !! answers 'key red' only now: page has no use for it"));
}

TEST_F(ModuleTest, StopEndsASlowAnswer) {
    ASSERT_TRUE(m_answering.start());
    m_asking.tell(ModuleId::HbbtvController, std::make_unique<SlowNotice>(60000));
    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("red"), kPatience), Reply::TimedOut);
    const auto before = Timeline::Clock::now();

    m_answering.stop();

    EXPECT_EQ(Timeline::Clock::now(), before);
}

TEST_F(ModuleTest, OnlyTheNextAnswerIsSlow) {
    ASSERT_TRUE(m_answering.start());
    m_asking.tell(ModuleId::HbbtvController, std::make_unique<SlowNotice>(1));

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("ok"), kPatience), Reply::Ok);
    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("ok"), kPatience), Reply::Ok);

    EXPECT_EQ(test::timesTold(story(), "is busy for 1 ms"), 1);
}

TEST_F(ModuleTest, AHandlerThatThrowsLosesItsEventAndNothingElse) {
    ASSERT_TRUE(m_answering.start());
    const CapturedLog log;

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("exit"), kPatience), Reply::TimedOut);
    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("ok"), kPatience), Reply::Ok);

    EXPECT_THAT(log, LoggedTimes(1, Text("'hbbtv_controller' drops event 2 from module 101, "
                                         "'key exit': no exit.\n")));
}

TEST_F(ModuleTest, TellReachesTheHandlerForItsSource) {
    Module manager(ModuleId::ApplicationManager, m_timeline);
    ASSERT_TRUE(m_answering.start());

    manager.tell(ModuleId::Everybody, std::make_unique<AppNotice>("news", AppState::Stopped));

    runUntilIdle();
    EXPECT_TRUE(m_answering.hasAppStopped);
}

TEST_F(ModuleTest, TellFromAnotherSourceIsNotTaken) {
    ASSERT_TRUE(m_answering.start());

    m_asking.tell(ModuleId::Everybody, std::make_unique<AppNotice>("news", AppState::Stopped));

    runUntilIdle();
    EXPECT_FALSE(m_answering.hasAppStopped);
}

TEST_F(ModuleTest, StandbyCallsTheModuleAndIsAnsweredAfterThat) {
    ASSERT_TRUE(m_answering.start());

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController,
                           std::make_unique<Message>(EventType::Standby, "finish"), kPatience),
              Reply::Ok);

    EXPECT_TRUE(m_answering.wasCalledForStandby);
}

TEST_F(ModuleTest, StopTwiceOrWithoutStartDoesNothing) {
    m_answering.stop();
    ASSERT_TRUE(m_answering.start());

    m_answering.stop();
    m_answering.stop();
}

}  // namespace
}  // namespace tv_browser
