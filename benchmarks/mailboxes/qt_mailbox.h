// qt_mailbox.h: Qt Core, an object on a QThread to which events are posted.

#ifndef BENCHMARKS_MAILBOXES_QT_MAILBOX_H
#define BENCHMARKS_MAILBOXES_QT_MAILBOX_H

#include <QCoreApplication>
#include <QEvent>
#include <QObject>
#include <QThread>
#include <utility>

#include "mailboxes/handlers.h"

namespace bench {

class QtMailbox : public EventMaker {
public:
    static constexpr const char* kName = "Qt";

    explicit QtMailbox(HandlerList handlers) : m_receiver(std::move(handlers)) {
        needApplication();
        m_receiver.moveToThread(&m_thread);
        m_thread.start();
    }
    ~QtMailbox() {
        m_thread.quit();
        m_thread.wait();
    }

    void post(EventPointer event) {
        QCoreApplication::postEvent(&m_receiver, new Delivery(std::move(event)));
    }

    int call(int type) {
        const auto event = std::make_shared<Call>(type);
        QMetaObject::invokeMethod(
            &m_receiver, [this, event] { m_receiver.handle(event); }, Qt::BlockingQueuedConnection);
        return event->reply;
    }

private:
    class Delivery : public QEvent {
    public:
        explicit Delivery(EventPointer event) : QEvent(QEvent::User), m_event(std::move(event)) {}
        EventPointer take() { return std::move(m_event); }

    private:
        EventPointer m_event;
    };

    // The connection itself waits until the handler has returned.
    struct Call : Event {
        using Event::Event;
        void replyResult(int result) override { reply = result; }
        int reply = 0;
    };

    class Receiver : public QObject {
    public:
        explicit Receiver(HandlerList handlers) : m_handlers(std::move(handlers)) {}
        void handle(EventPointer event) const { m_handlers.handle(std::move(event)); }

    protected:
        void customEvent(QEvent* p_event) override {
            handle(static_cast<Delivery*>(p_event)->take());
        }

    private:
        const Handlers<EventPointer> m_handlers;
    };

    static void needApplication() {
        static int s_count = 1;
        static char s_name[] = "benchmark";
        static char* s_arguments[] = {s_name, nullptr};
        static const QCoreApplication s_application(s_count, s_arguments);
    }

    Receiver m_receiver;
    QThread m_thread;
};

}  // namespace bench

#endif  // BENCHMARKS_MAILBOXES_QT_MAILBOX_H
