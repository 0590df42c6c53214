#include <cstdint>
#include <memory>
#include <vector>

#include "base/timer.h"
#include "hot_paths/gate.h"
#include "hot_paths/hot_path.h"
#include "support/random_delays.h"

namespace bench {
namespace {

using tevalon::base::timer::CallableTimerTask;
using tevalon::base::timer::TimerThread;
using Task = std::shared_ptr<CallableTimerTask>;

/// A timer thread that is kept in a task while others are queued.
class HeldThread {
public:
    HeldThread() {
        m_thread.postTask(std::make_shared<CallableTimerTask>([this] { m_hold.keep(); }), 0);
        m_hold.waitUntilThere();
    }
    ~HeldThread() { m_hold.release(); }

    HeldThread(const HeldThread&) = delete;
    HeldThread& operator=(const HeldThread&) = delete;

    static std::vector<Task> create(int count) {
        std::vector<Task> created;
        for (int i = 0; i < count; ++i) {
            created.push_back(std::make_shared<CallableTimerTask>([] {}));
        }
        return created;
    }
    void post(const std::vector<Task>& tasks) {
        for (const Task& task : tasks) m_thread.postTask(task, m_delays.next());
    }
    TimerThread& thread() { return m_thread; }

private:
    FarDelays m_delays;
    Hold m_hold;
    TimerThread m_thread;
};

void post(int waiting, int count) {
    HeldThread held;
    held.post(HeldThread::create(waiting));
    const std::vector<Task> tasks = HeldThread::create(count);
    const Counted counted;
    held.post(tasks);
}

// In random order as they are: their times are random.
void cancel(int waiting, int count) {
    HeldThread held;
    const std::vector<Task> tasks = HeldThread::create(waiting);
    held.post(tasks);
    const Counted counted;
    for (int i = 0; i < count; ++i) {
        held.thread().cancelTaskBySessionId(tasks[static_cast<std::size_t>(i)]->sessionId());
    }
}

// As the thread itself does before each task.
void pop(int waiting, int count) {
    HeldThread held;
    const std::vector<Task> tasks = HeldThread::create(waiting + count);
    held.post(tasks);
    const Counted counted;
    for (int i = 0; i < count; ++i) (void)held.thread().popFirstTask();
}

}  // namespace

void addTaskPaths(HotPaths* p_paths) {
    for (const int waiting : {10, 1000}) {
        const int count = waiting <= 10 ? 5 : 100;  // Little beside those that wait.
        const std::string end = '/' + std::to_string(waiting) + "_waiting";
        const auto add = [&](const char* name, void (*run)(int, int), bool isLong) {
            p_paths->push_back(
                {"tasks/" + (name + end), count, [=](int n) { run(waiting, n); }, isLong});
        };
        add("post", post, false);
        add("cancel", cancel, waiting > 10);  // May look at each of them.
        add("pop", pop, waiting > 10);        // Has to make more of them than the others.
    }
}

}  // namespace bench
