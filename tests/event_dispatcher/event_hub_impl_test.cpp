#include "event_dispatcher/event_hub_impl.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "event_dispatcher/event_fixtures.h"

namespace {

using namespace tevalon::base;
using namespace tevalon::base::event_dispatcher;
using test::LogCapture;
using test::LogEntry;

void ignore(std::shared_ptr<BrowserEvent>) {}

EventHubImpl::InnerHandler_t key(std::int32_t source, std::int32_t type) {
    return {source, type, nullptr};
}

class EventHubImplTest : public testing::Test {
protected:
    LogCapture m_log{kLogInfo};
};

TEST_F(EventHubImplTest, AThreadWithoutAHubReportsItAndEnds) {
    EventHubImpl::handleEventTask(nullptr);

    const std::vector<LogEntry> expected = {
        hubLine(kLogError, "handleEventTask", "Param is NULL.\n")};
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventHubImplTest, AHandlerExistsForItsTypeFromItsModule) {
    EventHubImpl impl(7);
    impl.registerHandler(3, 5, ignore);

    EXPECT_TRUE(impl.handlerExists(key(3, 5)));
    EXPECT_FALSE(impl.handlerExists(key(4, 5)));
    EXPECT_FALSE(impl.handlerExists(key(3, 6)));
    // Any module is a wildcard in a handler, not in what is looked up.
    EXPECT_FALSE(impl.handlerExists(key(kAnyModule, 5)));
}

TEST_F(EventHubImplTest, AHandlerForAnyModuleExistsForAllOfItsType) {
    EventHubImpl impl(7);
    impl.registerHandler(5, ignore);

    EXPECT_TRUE(impl.handlerExists(key(3, 5)));
    EXPECT_TRUE(impl.handlerExists(key(kAnyModule, 5)));
    EXPECT_FALSE(impl.handlerExists(key(3, 6)));
}

TEST_F(EventHubImplTest, HasNoHandlerAtFirst) {
    EventHubImpl impl(7);

    EXPECT_FALSE(impl.handlerExists(key(3, 5)));
    EXPECT_FALSE(impl.handlerExists(key(kAnyModule, kAnyModule)));
}

/// Has a handler's end register another one with the hub that it is destroyed with.
class RegistersAtItsEnd {
public:
    explicit RegistersAtItsEnd(EventHubImpl* p_hub) : m_hub(p_hub) {}
    ~RegistersAtItsEnd() { EXPECT_EQ(m_hub->registerHandler(6, ignore), 0); }

    RegistersAtItsEnd(const RegistersAtItsEnd&) = delete;
    RegistersAtItsEnd& operator=(const RegistersAtItsEnd&) = delete;

private:
    EventHubImpl* const m_hub;
};

TEST_F(EventHubImplTest, WhatIsDestroyedWithItStartsNoThread) {
    auto* const p_impl = new EventHubImpl(7);
    p_impl->registerHandler(5, [last = std::make_shared<RegistersAtItsEnd>(p_impl)](
                                   const std::shared_ptr<BrowserEvent>&) {});
    p_impl->onUnregistered();
    m_log.clear();
    const test::CountCalls threads(test::Call::PthreadCreate);

    delete p_impl;

    EXPECT_EQ(threads.seen(), 0);
    std::vector<LogEntry> expected = noThreadLines();
    expected.push_back(
        hubLine(kLogError, "registerHandler", "Fail to create EventHandlerThread.\n"));
    EXPECT_EQ(m_log.entriesWithoutLineNumbers(), expected);
}

TEST_F(EventHubImplTest, HandlesEventsWithoutARecorder) {
    Inbox inbox;
    EventHubImpl impl(7);
    impl.registerHandler(5, inbox.handler());
    auto event = std::make_shared<BrowserEvent>(3, 5, nullptr);

    EXPECT_EQ(impl.receiveEvent<false>(std::shared_ptr<BrowserEvent>(event)), 0);

    ASSERT_TRUE(inbox.waitFor(1));
    EXPECT_EQ(inbox.events()[0], event);
    impl.onUnregistered();
}

TEST_F(EventHubImplTest, AWaitForAReplyNeedsNoStateReport) {
    BrowserEvent event(3, 5, nullptr);
    ASSERT_EQ(event.initWaitResultCv(), 0);

    EXPECT_EQ(event.waitForResult(1), kEventResultTimeout);
}

TEST_F(EventHubImplTest, HasTheNameThatOthersMustNotFind) {
    EXPECT_NE(dlsym(RTLD_DEFAULT, kHiddenSymbol), nullptr);
}

}  // namespace
