// The order of the fields of what is behind the handles. No client sees their offsets.

#include <gtest/gtest.h>

#include <type_traits>

#include "event_dispatcher/event_hub_impl.h"
#include "layout/field.h"
#include "timer/timer_impl.h"

namespace layout {

using tevalon::base::event_dispatcher::EventHubImpl;
using tevalon::base::simple_timer::ExpiredTime;
using tevalon::base::simple_timer::TimerImpl;
using Handler = EventHubImpl::InnerHandler_t;

LAYOUT_FIELD(TimerMutex, TimerImpl, m_mutex);
LAYOUT_FIELD(TimerCond, TimerImpl, m_cond);
LAYOUT_FIELD(TimerTimer, TimerImpl, m_timer);
LAYOUT_FIELD(TimerName, TimerImpl, m_name);
LAYOUT_FIELD(TimerTimeout, TimerImpl, m_timeout);
LAYOUT_FIELD(TimerHandlerField, TimerImpl, m_handler);
LAYOUT_FIELD(TimerUserData, TimerImpl, m_userData);
LAYOUT_FIELD(TimerType, TimerImpl, m_type);
LAYOUT_FIELD(TimerExpiredTime, TimerImpl, m_expiredTime);
LAYOUT_FIELD(TimerIsValid, TimerImpl, m_isValid);
LAYOUT_FIELD(TimerIsStarted, TimerImpl, m_isStarted);
LAYOUT_FIELD(TimerIsRunning, TimerImpl, m_isRunning);
LAYOUT_FIELD(TimerNeedStop, TimerImpl, m_needStop);

LAYOUT_FIELD(ExpiredSec, ExpiredTime, sec);
LAYOUT_FIELD(ExpiredNsec, ExpiredTime, nsec);

LAYOUT_FIELD(HandlerSrcModule, Handler, srcModule);
LAYOUT_FIELD(HandlerEventType, Handler, eventType);
LAYOUT_FIELD(HandlerHandler, Handler, handler);

LAYOUT_FIELD(HubThreadMtx, EventHubImpl, m_threadMtx);
LAYOUT_FIELD(HubExit, EventHubImpl, m_exit);
LAYOUT_FIELD(HubThread, EventHubImpl, m_thread);
LAYOUT_FIELD(HubQueueMtx, EventHubImpl, m_queueMtx);
LAYOUT_FIELD(HubQueueCv, EventHubImpl, m_wakeUp);
LAYOUT_FIELD(HubEventQueue, EventHubImpl, m_eventQueue);
LAYOUT_FIELD(HubHandlerMtx, EventHubImpl, m_handlerMtx);
LAYOUT_FIELD(HubHandlers, EventHubImpl, m_handlers);

TEST(ImplementationLayoutTest, TimerImpl) {
    expectInOrder(TimerMutex(), TimerCond(), TimerTimer(), TimerName(), TimerTimeout(),
                  TimerHandlerField(), TimerUserData(), TimerType(), TimerExpiredTime(),
                  TimerIsValid(), TimerIsStarted(), TimerIsRunning(), TimerNeedStop());
    EXPECT_EQ(fieldOf(TimerMutex()).offset, 0U);
}

TEST(ImplementationLayoutTest, ExpiredTimeIsTwo32BitNumbers) {
    EXPECT_EQ(fieldOf(ExpiredSec()), (Field{0, 4}));
    EXPECT_EQ(fieldOf(ExpiredNsec()), (Field{4, 4}));
    EXPECT_EQ(sizeof(ExpiredTime), 8U);
}

TEST(ImplementationLayoutTest, InnerHandler) {
    EXPECT_EQ(fieldOf(HandlerSrcModule()), (Field{0, 4}));
    EXPECT_EQ(fieldOf(HandlerEventType()), (Field{4, 4}));
    EXPECT_EQ(fieldOf(HandlerHandler()), (Field{8, sizeof(EventHubImpl::Handler)}));
}

TEST(ImplementationLayoutTest, EventHubImpl) {
    expectInOrder(HubThreadMtx(), HubExit(), HubThread(), HubQueueMtx(), HubQueueCv(),
                  HubEventQueue(), HubHandlerMtx(), HubHandlers());
    EXPECT_EQ(fieldOf(HubThreadMtx()).offset, 0U);
    EXPECT_FALSE(std::is_polymorphic_v<EventHubImpl>);
}

}  // namespace layout
