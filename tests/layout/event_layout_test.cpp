// The layouts of the events.

#include <gtest/gtest.h>

#include <type_traits>

#include "base/event_dispatcher.h"
#include "layout/field.h"

namespace layout {

using namespace tevalon::base::event_dispatcher;

LAYOUT_FIELD(EventSrcModule, BrowserEvent, srcModule);
LAYOUT_FIELD(EventEventType, BrowserEvent, eventType);
LAYOUT_FIELD(EventPayload, BrowserEvent, param);
LAYOUT_FIELD(EventWaitResultMtx, BrowserEvent, waitResultMtx);
LAYOUT_FIELD(EventWaitResultCv, BrowserEvent, waitResultCv);
LAYOUT_FIELD(EventReplied, BrowserEvent, replied);
LAYOUT_FIELD(EventReply, BrowserEvent, result);

LAYOUT_FIELD(HubImpl, EventHub, m_impl);
LAYOUT_FIELD(HubModuleId, EventHub, m_moduleId);

LAYOUT_FIELD(DispatcherHubs, EventDispatcher, m_hubs);

TEST(EventLayoutTest, EventParamHoldsNothing) {
    EXPECT_TRUE(std::is_polymorphic_v<EventParam>);
    EXPECT_EQ(sizeof(EventParam), kTable);
}

TEST(EventLayoutTest, AReplyIsOneWord) {
    EXPECT_EQ(sizeof(EventResult), 4U);
    EXPECT_TRUE(std::is_signed_v<EventResult>);
}

TEST(EventLayoutTest, BrowserEvent) {
    expectLayout<BrowserEvent>(kBrowserEvent, EventSrcModule(), EventEventType(), EventPayload(),
                               EventWaitResultMtx(), EventWaitResultCv(), EventReplied(),
                               EventReply());
    EXPECT_FALSE(std::is_polymorphic_v<BrowserEvent>);
}

TEST(EventLayoutTest, EventHub) {
    expectLayout<EventHub>(kEventHub, HubImpl(), HubModuleId());
    EXPECT_FALSE(std::is_polymorphic_v<EventHub>);
}

TEST(EventLayoutTest, EventDispatcher) {
    expectLayout<EventDispatcher>(kEventDispatcher, DispatcherHubs());
    EXPECT_FALSE(std::is_polymorphic_v<EventDispatcher>);
}

}  // namespace layout
