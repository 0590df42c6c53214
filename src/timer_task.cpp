#include "base/timer/timer_task.h"

#include "base/timer/timer_execution_context.h"

namespace tevalon::base::timer {
namespace {

// Relaxed: only that no two tasks get the same number matters. Counted unsigned, so that the
// number after the last is defined.
std::int32_t nextSessionId() {
    static std::atomic<std::uint32_t> s_taskCounter{0};
    return static_cast<std::int32_t>(s_taskCounter.fetch_add(1, std::memory_order_relaxed) + 1U);
}

}  // namespace

TimerTaskBase::TimerTaskBase() : m_nextFireTime(0.0), m_sessionId(nextSessionId()), m_taskId(0) {}

TimerTaskBase::~TimerTaskBase() = default;

// Relaxed throughout: each value stands for itself. What a task needs besides reaches the thread
// that fires it through the lock of the queue.
void TimerTaskBase::setNextFireTime(double fireTime) {
    m_nextFireTime.store(fireTime, std::memory_order_relaxed);
}

double TimerTaskBase::getNextFireTime() const {
    return m_nextFireTime.load(std::memory_order_relaxed);
}

std::int32_t TimerTaskBase::sessionId() const {
    return m_sessionId;
}

std::int32_t TimerTaskBase::taskId() const {
    return m_taskId.load(std::memory_order_relaxed);
}

void TimerTaskBase::setTaskId(std::int32_t taskId) {
    m_taskId.store(taskId, std::memory_order_relaxed);
}

CallableTimerTask::CallableTimerTask(std::function<void()> work, std::int32_t taskId)
    : m_work(std::move(work)) {
    setTaskId(taskId);
}

CallableTimerTask::~CallableTimerTask() = default;

void CallableTimerTask::fire() {
    m_work();
}

TimerExecutable::~TimerExecutable() = default;

TimerExecutionContext::TimerExecutionContext(TimerExecutable* p_executable)
    : aliveMagic(kAliveMagic), executable(p_executable) {}

void TimerExecutionContext::markAsDead() {
    aliveMagic = 0;
}

}  // namespace tevalon::base::timer
