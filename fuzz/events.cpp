// Sequences of operations on event hubs, beside plain queues: who takes an event, in which order a
// hub handles its events, and what a send returns.

#include <array>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/event_dispatcher.h"
#include "support/expect.h"
#include "support/gate.h"
#include "support/input.h"

namespace {

using namespace tevalon::base::event_dispatcher;

constexpr std::int32_t kGateType = 1000;
constexpr std::int32_t kMarkType = 1001;
constexpr std::int32_t kTypes = 12;  // More than a list of handlers holds.
constexpr std::int32_t kModules = 3;

/// One more for each event, which is its reply too.
struct Number : EventParam {
    explicit Number(std::int32_t number_) : number(number_) {}
    std::int32_t intValue() override { return number; }

    const std::int32_t number;
};

struct HandlerModel {
    std::int32_t srcModule;
    std::int32_t eventType;
    int number;
};

/// A hub with what its handlers have noted, and what the model expects there.
class Box {
public:
    explicit Box(std::int32_t module) : m_hub(std::make_unique<EventHub>(module)) {
        (void)m_hub->registerHandler(kGateType, [this](const std::shared_ptr<BrowserEvent>&) {
            m_entered->open();
            m_left->pass();
        });
        (void)m_hub->registerHandler(
            kMarkType, [](const std::shared_ptr<BrowserEvent>& event) { event->replyResult(0); });
        fuzz::expectEqual(evtdispch_register_hub(m_hub.get()), 0, "a registration");
        fuzz::expectEqual(evtdispch_register_hub(m_hub.get()), 1, "a second registration");
    }

    ~Box() {
        release();
        fuzz::expectEqual(evtdispch_unregister_hub(m_hub.get()), 0, "an end of registration");
    }

    Box(const Box&) = delete;
    Box& operator=(const Box&) = delete;

    EventHub& hub() { return *m_hub; }
    bool isHeld() const { return m_isHeld; }

    void registerHandler(std::int32_t srcModule, std::int32_t eventType) {
        const int number = static_cast<int>(m_handlers.size());
        const bool isThere = takerOf(srcModule, eventType) != nullptr;
        const auto note = [this, number](const std::shared_ptr<BrowserEvent>& event) {
            const std::int32_t value = event->param->intValue();
            {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_noted.push_back(textOf(number, value));
            }
            event->replyResult(value);
        };
        const std::int32_t status = srcModule == kAnyModule
                                        ? m_hub->registerHandler(eventType, note)
                                        : m_hub->registerHandler(srcModule, eventType, note);
        fuzz::expectEqual(status, isThere ? 1 : 0, "a handler's registration");
        if (!isThere) m_handlers.push_back({srcModule, eventType, number});
        fuzz::expectEqual(m_hub->registerHandler(eventType, nullptr), 2, "an empty handler's");
    }

    /// What the hub answers.
    std::int32_t receiveModel(std::int32_t srcModule, std::int32_t eventType, std::int32_t value) {
        const HandlerModel* const p_taker = takerOf(srcModule, eventType);
        if (p_taker == nullptr) return -1;
        if (m_isHeld) {
            if (m_limit != 0 && m_waiting >= m_limit) return kEventQueueFull;
            ++m_waiting;
        }
        m_expected.push_back(textOf(p_taker->number, value));
        return 0;
    }

    void setLimit(std::uint32_t limit) {
        if (!m_isHeld) return;  // Whether the queue is full is only known of a hub that is held.
        m_limit = limit;
        m_hub->setQueueLimit(limit);
    }

    /// Holds the hub's thread in a handler: nothing is served meanwhile.
    void hold() {
        if (m_isHeld) return;
        m_entered = std::make_unique<fuzz::Gate>();
        m_left = std::make_unique<fuzz::Gate>();
        fuzz::expectEqual(m_hub->receiveEvent(m_hub->createEvent(kGateType)), 0,
                          "the gate's event");
        m_entered->pass();
        m_isHeld = true;
        m_waiting = 0;
    }

    void compareWaiting() const {
        if (m_isHeld) fuzz::expectEqual(m_hub->queueLength(), m_waiting, "the length of a queue");
    }

    /// Lets the thread go on, waits until all is served, and compares.
    void release() {
        setLimit(0);
        if (m_isHeld) m_left->open();
        m_isHeld = false;
        fuzz::expectEqual(
            m_hub->sendEventSync(m_hub->createEvent(kMarkType), m_hub->moduleId(), -1), 0,
            "the mark's reply");
        const std::lock_guard<std::mutex> lock(m_mutex);
        fuzz::expectEqual(m_noted, m_expected, "what was handled");
    }

private:
    static std::string textOf(int handler, std::int32_t value) {
        return std::to_string(handler) + ":" + std::to_string(value);
    }

    const HandlerModel* takerOf(std::int32_t srcModule, std::int32_t eventType) const {
        for (const HandlerModel& handler : m_handlers) {
            if (handler.eventType != eventType) continue;
            if (handler.srcModule == kAnyModule || handler.srcModule == srcModule) return &handler;
        }
        return nullptr;
    }

    std::vector<HandlerModel> m_handlers;
    std::vector<std::string> m_expected;
    std::uint32_t m_limit = 0;
    std::uint32_t m_waiting = 0;
    bool m_isHeld = false;
    std::unique_ptr<fuzz::Gate> m_entered;
    std::unique_ptr<fuzz::Gate> m_left;
    std::mutex m_mutex;
    std::vector<std::string> m_noted;
    std::unique_ptr<EventHub> m_hub;  // Last: its thread is gone before the others.
};

class Session {
public:
    void step(fuzz::Input* p_input) {
        const std::size_t index = p_input->below(kModules);
        std::unique_ptr<Box>& box = m_boxes[index];
        if (box == nullptr) {
            add(index);
            return;
        }
        switch (p_input->below(12)) {
            case 0:
                box->release();
                remove(index);
                break;
            case 1:
                box->hold();
                box->setLimit(static_cast<std::uint32_t>(p_input->below(4)));
                break;
            case 2:
                box->release();
                break;
            case 3:
                box->setLimit(static_cast<std::uint32_t>(p_input->below(4)));
                break;
            case 4:
            case 5:
                box->registerHandler(moduleOf(p_input), typeOf(p_input));
                break;
            case 6:
            case 7:
                sendSync(p_input, box.get());
                break;
            case 8:
                sendAsync(p_input, box.get());
                break;
            case 9:
                // So many of one kind that a limit is met.
                for (int i = 0; i < 6; ++i) send(0, static_cast<std::int32_t>(index), box.get());
                break;
            default:
                send(p_input, box.get());
        }
        for (const std::unique_ptr<Box>& each : m_boxes) {
            if (each != nullptr) each->compareWaiting();
        }
    }

    void end() {
        for (std::size_t i = 0; i < m_boxes.size(); ++i) remove(i);
    }

private:
    void add(std::size_t index) {
        m_boxes[index] = std::make_unique<Box>(static_cast<std::int32_t>(index));
        m_boxes[index]->registerHandler(kAnyModule, 0);
        m_order.push_back(index);
    }

    void remove(std::size_t index) {
        m_boxes[index].reset();
        for (std::size_t i = 0; i < m_order.size(); ++i) {
            if (m_order[i] == index) m_order.erase(m_order.begin() + static_cast<long>(i--));
        }
    }

    static std::int32_t moduleOf(fuzz::Input* p_input) {
        const auto module = static_cast<std::int32_t>(p_input->below(kModules + 1));
        return module == kModules ? kAnyModule : module;
    }

    static std::int32_t typeOf(fuzz::Input* p_input) {
        return static_cast<std::int32_t>(p_input->below(kTypes));
    }

    std::shared_ptr<BrowserEvent> makeEvent(EventHub* p_hub, std::int32_t eventType) {
        std::shared_ptr<BrowserEvent> event = p_hub->createEvent(eventType);
        event->param = new Number(++m_count + 1);  // No status of the library's.
        return event;
    }

    // The last hub's answer, where there is any.
    std::int32_t sendModel(const BrowserEvent& event, std::int32_t target) {
        std::int32_t answer = -1;
        for (const std::size_t index : m_order) {
            if (target != kAnyModule && target != static_cast<std::int32_t>(index)) continue;
            answer = m_boxes[index]->receiveModel(event.srcModule, event.eventType,
                                                  event.param->intValue());
        }
        return answer;
    }

    void send(fuzz::Input* p_input, Box* p_box) {
        const std::int32_t target = moduleOf(p_input);
        send(typeOf(p_input), target, p_box);
    }

    void send(std::int32_t eventType, std::int32_t target, Box* p_box) {
        const std::shared_ptr<BrowserEvent> event = makeEvent(&p_box->hub(), eventType);
        const std::int32_t expected = sendModel(*event, target);
        fuzz::expectEqual(p_box->hub().sendEvent(event, target), expected, "a send");
    }

    // A module that is held would not answer.
    std::int32_t answering(fuzz::Input* p_input) {
        const std::int32_t target = static_cast<std::int32_t>(p_input->below(kModules));
        const std::unique_ptr<Box>& box = m_boxes[static_cast<std::size_t>(target)];
        if (box != nullptr && box->isHeld()) box->release();
        return target;
    }

    void sendSync(fuzz::Input* p_input, Box* p_box) {
        const std::int32_t target = answering(p_input);
        const std::shared_ptr<BrowserEvent> event = makeEvent(&p_box->hub(), typeOf(p_input));
        const std::int32_t expected = sendModel(*event, target);
        fuzz::expectEqual(p_box->hub().sendEventSync(event, target, -1),
                          expected == 0 ? event->param->intValue() : -1, "a synchronous send");
    }

    void sendAsync(fuzz::Input* p_input, Box* p_box) {
        const std::int32_t target = answering(p_input);
        if (p_box->isHeld()) p_box->release();  // It is to call back.
        const std::shared_ptr<BrowserEvent> event = makeEvent(&p_box->hub(), typeOf(p_input));
        const std::int32_t expected = sendModel(*event, target);
        fuzz::Gate called;
        EventResult reply = 0;
        const auto callback = [&](EventResult result, const std::shared_ptr<BrowserEvent>&) {
            reply = result;
            called.open();
        };
        fuzz::expectEqual(p_box->hub().sendAsync(event, target, -1, callback), expected,
                          "an asynchronous send");
        if (expected != 0) return;
        called.pass();
        fuzz::expectEqual(reply, event->param->intValue(), "the reply of a callback");
    }

    std::array<std::unique_ptr<Box>, kModules> m_boxes;
    std::vector<std::size_t> m_order;  // Of registration.
    std::int32_t m_count = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    Session session;
    for (int steps = 0; steps < 64 && !input.isAtEnd(); ++steps) session.step(&input);
    session.end();
    return 0;
}
