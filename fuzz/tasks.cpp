// Sequences of operations on a timer thread, beside a list in order of time. The worker is held in
// a task while the others are posted and cancelled; then it fires what is due, in the order that
// the list has. What is due lies in the past, so that no wait is part of it.

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "base/timer.h"
#include "support/expect.h"
#include "support/gate.h"
#include "support/input.h"

namespace {

using namespace tevalon::base::timer;

constexpr double kFirst = 1e-6;  // Seconds since the machine was started.
constexpr double kLast = 1.0;
constexpr std::int32_t kHourMs = 3600 * 1000;

struct Entry {
    int number;
    double time;
    std::int32_t sessionId;
    std::int32_t taskId;
    double childTime;  // What it posts when it is fired, unless 0.
    bool isCancelled = false;
};

/// Behind all that are not later; a cancelled one is passed over.
void insert(std::vector<Entry>* p_queue, const Entry& entry) {
    auto at = p_queue->begin();
    while (at != p_queue->end() && (at->isCancelled || at->time <= entry.time)) ++at;
    p_queue->insert(at, entry);
}

/// The numbers of what was fired, in order.
class Record {
public:
    void add(int number) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_numbers.push_back(number);
    }

    std::vector<int> take() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::vector<int> numbers;
        numbers.swap(m_numbers);
        return numbers;
    }

private:
    std::mutex m_mutex;
    std::vector<int> m_numbers;
};

class Session {
public:
    void run(fuzz::Input* p_input) {
        while (!p_input->isAtEnd()) {
            round(p_input);
            if (!p_input->flag()) continue;
            m_thread.stop();
            fuzz::expect(!m_thread.isBusy(), "busy behind stop()");
        }
    }

private:
    void post(const std::shared_ptr<TimerTaskBase>& task, double time) {
        task->setNextFireTime(time);
        m_thread.postTask(task);
    }

    std::shared_ptr<CallableTimerTask> makeTask(int number, std::int32_t taskId, double childTime) {
        return std::make_shared<CallableTimerTask>(
            [this, number, childTime] {
                m_record.add(number);
                if (childTime > 0) post(makeTask(-number, 0, 0), childTime);
            },
            taskId);
    }

    void round(fuzz::Input* p_input) {
        fuzz::Gate entered;
        fuzz::Gate left;
        post(std::make_shared<CallableTimerTask>([&] {
                 entered.open();
                 left.pass();
             }),
             kFirst);
        entered.pass();
        fuzz::expect(m_thread.isBusy(), "not busy in a task");
        // The worker drops what was cancelled when it comes to it, which nobody can tell.
        const std::int32_t before = m_thread.taskCount();
        std::int32_t posted = 0;
        for (std::size_t i = p_input->below(24); i > 0 && !p_input->isAtEnd(); --i) {
            posted += step(p_input);
            fuzz::expectEqual(m_thread.taskCount(), before + posted, "the number of tasks");
            fuzz::expectEqual(m_thread.hasTask(), before + posted > 0, "whether there are any");
        }
        fuzz::Gate fired;
        post(std::make_shared<CallableTimerTask>([&] { fired.open(); }), kLast);
        left.open();
        fired.pass();
        fuzz::expectEqual(m_record.take(), fireModel(), "what is fired");
    }

    std::int32_t step(fuzz::Input* p_input) {
        switch (p_input->below(8)) {
            case 0: {
                const std::int32_t id = static_cast<std::int32_t>(p_input->below(3));
                m_thread.cancelTaskByTaskId(id);
                cancelModel([id](const Entry& entry) { return entry.taskId == id; });
                // What post() makes has no id of its own.
                if (id == 0) m_handles.clear();
                return 0;
            }
            case 1: {
                if (m_queue.empty()) return 0;
                const std::int32_t id = m_queue[p_input->below(m_queue.size())].sessionId;
                m_thread.cancelTaskBySessionId(id);
                cancelModel([id](const Entry& entry) { return entry.sessionId == id; });
                return 0;
            }
            case 2: {
                if (m_handles.empty()) return 0;
                const std::size_t index = p_input->below(m_handles.size());
                Handle& handle = m_handles[index];
                fuzz::expectEqual(handle.handle.cancel(), !handle.isCancelled, "cancel()");
                fuzz::expect(!handle.handle.cancel(), "cancel() again");
                handle.isCancelled = true;
                return 0;
            }
            case 3:
                m_handles.push_back({m_thread.post([this] { m_record.add(INT32_MIN); }, kHourMs)});
                return 1;
            case 4:
                // Never fired, but for the order of what is.
                m_thread.postTask(makeTask(INT32_MAX, 0, 0), kHourMs);
                return 1;
            case 5:
                return burst(p_input);
            default: {
                const double time = timeOf(p_input);
                const std::int32_t taskId = static_cast<std::int32_t>(p_input->below(3));
                const double childTime = p_input->below(4) == 0 ? timeOf(p_input) : 0;
                const auto task = makeTask(++m_count, taskId, childTime);
                post(task, time);
                insert(&m_queue, {m_count, time, task->sessionId(), taskId, childTime});
                return 1;
            }
        }
    }

    // More than a block of the queue holds, in rising, falling or mixed order.
    std::int32_t burst(fuzz::Input* p_input) {
        const auto count = static_cast<int>(p_input->byte());
        const unsigned factor = p_input->byte();
        for (int i = 0; i < count; ++i) {
            const double time =
                kFirst + 1e-4 * (1 + static_cast<int>(factor * static_cast<unsigned>(i) % 256U));
            const auto task = makeTask(++m_count, 7, 0);
            post(task, time);
            insert(&m_queue, {m_count, time, task->sessionId(), 7, 0});
        }
        return count;
    }

    // Few times, so that many are equal.
    static double timeOf(fuzz::Input* p_input) {
        return kFirst + 0.001 * static_cast<double>(1 + p_input->below(16));
    }

    void cancelModel(const std::function<bool(const Entry&)>& isMeant) {
        for (Entry& entry : m_queue) {
            if (isMeant(entry)) entry.isCancelled = true;
        }
    }

    std::vector<int> fireModel() {
        std::vector<int> numbers;
        while (!m_queue.empty()) {
            const Entry first = m_queue.front();
            m_queue.erase(m_queue.begin());
            if (first.isCancelled) continue;
            numbers.push_back(first.number);
            if (first.childTime > 0) {
                insert(&m_queue, {-first.number, first.childTime, 0, 0, 0});
            }
        }
        return numbers;
    }

    struct Handle {
        TaskHandle handle;
        bool isCancelled = false;
    };

    Record m_record;
    std::vector<Entry> m_queue;
    std::vector<Handle> m_handles;
    int m_count = 0;
    TimerThread m_thread;  // Last: its worker is gone before the others.
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    Session().run(&input);
    return 0;
}
