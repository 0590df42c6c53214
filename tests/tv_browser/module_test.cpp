#include "module.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

#include "support/event.h"
#include "support/log_capture.h"
#include "tv_browser/story.h"

namespace tv_browser {
namespace {

using namespace std::chrono_literals;

constexpr auto kLong = std::chrono::milliseconds(30000);  // Only turns a hang into a failure.

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

    test::Event appStopped;
    test::Event calledForStandby;

private:
    static Reply pressKey(const std::string& key) {
        if (key == "red") return Reply::KeyNotUsed;
        if (key == "exit") throw std::runtime_error("no exit");
        return Reply::Ok;
    }
    void followApp(const AppNotice& notice) {
        if (notice.state == AppState::Stopped) appStopped.set();
    }
    void standby() override { calledForStandby.set(); }
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

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("red"), kLong), Reply::KeyNotUsed);
    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("ok"), kLong), Reply::Ok);

    EXPECT_EQ(story(), (std::vector<std::string>{
                           "hbbtv_controller is ready, as module 20",
                           "viewer -> hbbtv_controller: key red",
                           "viewer <- hbbtv_controller: page has no use for it",
                           "viewer -> hbbtv_controller: key ok",
                           "viewer <- hbbtv_controller: ok",
                       }));
}

TEST_F(ModuleTest, AskOfAModuleThatIsNotStartedIsNotDelivered) {
    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("red"), kLong), Reply::NotDelivered);

    EXPECT_EQ(story(), (std::vector<std::string>{
                           "viewer -> hbbtv_controller: key red",
                           "viewer <- hbbtv_controller: could not be delivered",
                       }));
}

TEST_F(ModuleTest, AskOfAModuleThatIsStoppedIsNotDelivered) {
    ASSERT_TRUE(m_answering.start());
    m_answering.stop();

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("red"), kLong), Reply::NotDelivered);
}

TEST_F(ModuleTest, APayloadOfAnotherTypeFails) {
    ASSERT_TRUE(m_answering.start());

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController,
                           std::make_unique<Message>(EventType::PressKey, "no key"), kLong),
              Reply::Failed);
}

TEST_F(ModuleTest, ASlowAnswerTimesOutAndComesLate) {
    ASSERT_TRUE(m_answering.start());
    m_asking.tell(ModuleId::HbbtvController, std::make_unique<SlowNotice>(60000));

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("red"), 20ms), Reply::TimedOut);
    m_answering.stop();  // Ends the delay.

    EXPECT_TRUE(test::tellsInOrder(
        story(), {
                     "viewer => hbbtv_controller: take 60000 ms over the next answer",
                     "viewer -> hbbtv_controller: key red",
                     "hbbtv_controller is busy for 60000 ms",
                     "viewer !! hbbtv_controller: no answer within 20 ms",
                     "hbbtv_controller !! answers 'key red' only now: page has no use for it",
                 }));
}

TEST_F(ModuleTest, OnlyTheNextAnswerIsSlow) {
    ASSERT_TRUE(m_answering.start());
    m_asking.tell(ModuleId::HbbtvController, std::make_unique<SlowNotice>(1));

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("ok"), kLong), Reply::Ok);
    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("ok"), kLong), Reply::Ok);

    EXPECT_EQ(test::timesTold(story(), "is busy for 1 ms"), 1);
}

TEST_F(ModuleTest, AHandlerThatThrowsLosesItsEventAndNothingElse) {
    ASSERT_TRUE(m_answering.start());
    const test::LogCapture log;

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("exit"), 20ms), Reply::TimedOut);
    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("ok"), kLong), Reply::Ok);

    EXPECT_EQ(log.texts(tevalon::base::kLogError).size(), 1U);
    EXPECT_TRUE(
        log.waitFor("'hbbtv_controller' drops event 2 from module 101, 'key exit': no exit.\n"));
}

TEST_F(ModuleTest, TellReachesTheHandlerForItsSource) {
    Module manager(ModuleId::ApplicationManager, m_timeline);
    ASSERT_TRUE(m_answering.start());

    manager.tell(ModuleId::Everybody, std::make_unique<AppNotice>("news", AppState::Stopped));

    EXPECT_TRUE(m_answering.appStopped.wait());
}

TEST_F(ModuleTest, TellFromAnotherSourceIsNotTaken) {
    ASSERT_TRUE(m_answering.start());

    m_asking.tell(ModuleId::Everybody, std::make_unique<AppNotice>("news", AppState::Stopped));
    // Ordered behind it, had it been taken.
    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController, press("ok"), kLong), Reply::Ok);

    EXPECT_FALSE(m_answering.appStopped.isSet());
}

TEST_F(ModuleTest, StandbyCallsTheModuleAndIsAnsweredAfterThat) {
    ASSERT_TRUE(m_answering.start());

    EXPECT_EQ(m_asking.ask(ModuleId::HbbtvController,
                           std::make_unique<Message>(EventType::Standby, "finish"), kLong),
              Reply::Ok);

    EXPECT_TRUE(m_answering.calledForStandby.isSet());
}

TEST_F(ModuleTest, StopTwiceOrWithoutStartDoesNothing) {
    m_answering.stop();
    ASSERT_TRUE(m_answering.start());

    m_answering.stop();
    m_answering.stop();
}

}  // namespace
}  // namespace tv_browser
