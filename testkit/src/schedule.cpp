#include "schedule.h"

#include <execinfo.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

namespace tevalon::testkit {
namespace {

constexpr std::size_t kMostLocations = 8192;
constexpr std::int64_t kTimerSlack = 50'000;  // Deadlines so close are over together.
constexpr std::uint32_t kReadingsBeforeClockMoves = 8;
constexpr std::int64_t kClockStep = 10'000;
constexpr std::uint32_t kReadsOfLoop = 2;
constexpr std::uint32_t kReadsBeforeYield = 128;

// Zero at first, and so without a copy in the program's file.
alignas(Location) std::array<std::byte, kMostLocations * sizeof(Location)> g_locationMemory;
std::array<std::uint16_t, kMostLocations * 2> g_locationSlots;  // Number plus one.
Accesses g_accesses;
static_assert(std::is_trivially_default_constructible_v<Accesses>);

std::uint64_t mixed(std::uint64_t hash, std::uint64_t value) {
    std::uint64_t sum = hash * 0x9E3779B97F4A7C15U + value;
    sum = (sum ^ sum >> 30U) * 0xBF58476D1CE4E5B9U;
    sum = (sum ^ sum >> 27U) * 0x94D049BB133111EBU;
    return sum ^ sum >> 31U;
}

void futexWait(const std::uint32_t* p_word, std::uint32_t value) {
    (void)syscall(SYS_futex, p_word, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
}

void futexWake(const std::uint32_t* p_word) {
    (void)syscall(SYS_futex, p_word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void awaitBaton(std::uint32_t* p_baton) {
    while (__atomic_load_n(p_baton, __ATOMIC_ACQUIRE) == 0) futexWait(p_baton, 0);
    *p_baton = 0;
}

}  // namespace

Schedule g_schedule;
thread_local Thread* Schedule::t_self = nullptr;
thread_local int Unhooked::t_depth = 0;

void Schedule::begin(RunRecord* p_record, const ScenarioOptions& options) {
    m_record = p_record;
    m_options = options;
    m_now = 0;
    m_random = p_record->seed;
    for (std::uint32_t& priority : m_priorities) {
        priority = RunRecord::kMostChanges + static_cast<std::uint32_t>(random() >> 40U);
    }
    const std::uint32_t expected = std::max(p_record->expectedDecisions, 1U);
    for (std::uint32_t i = 0; i < p_record->priorityChanges; ++i) {
        m_changes[i] = static_cast<std::uint32_t>(random() % expected);
    }
    t_self = addThread();
    t_self->handle = pthread_self();
    (void)std::snprintf(t_self->name, sizeof(t_self->name), "scenario");
    m_isActive = true;
}

Thread* Schedule::threadOf(pthread_t handle) {
    for (int i = 0; i < m_count; ++i) {
        if (pthread_equal(thread(i).handle, handle) != 0) return &thread(i);
    }
    return nullptr;
}

Location* Schedule::find(std::uintptr_t address, std::size_t* p_slot) {
    std::size_t slot = (address ^ address >> 14U) % g_locationSlots.size();
    auto* const p_locations = reinterpret_cast<Location*>(g_locationMemory.data());
    for (; g_locationSlots[slot] != 0; slot = (slot + 1) % g_locationSlots.size()) {
        Location& location = p_locations[g_locationSlots[slot] - 1];
        if (location.address == address) return &location;
    }
    *p_slot = slot;
    return nullptr;
}

Location& Schedule::at(const volatile void* p_address) {
    const auto address = reinterpret_cast<std::uintptr_t>(p_address);
    std::size_t slot = 0;
    if (Location* const p_known = find(address, &slot)) return *p_known;
    if (m_locationCount == kMostLocations) {
        finish(Outcome::Unsupported, "more than %zu variables to synchronise by", kMostLocations);
    }
    auto* const p_locations = reinterpret_cast<Location*>(g_locationMemory.data());
    auto* const p_location = ::new (&p_locations[m_locationCount]) Location();
    g_locationSlots[slot] = ++m_locationCount;
    p_location->address = address;
    p_location->isContended = m_record->takesAllPoints || m_record->contended.contains(address);
    return *p_location;
}

void Schedule::setHistory(Thread& thread, std::uint64_t history) {
    m_state += mixed(history, static_cast<std::uint64_t>(thread.id)) -
               mixed(thread.history, static_cast<std::uint64_t>(thread.id));
    thread.history = history;
}

// A location that only one thread touches, but for what came before there were others, or that all
// only read, commutes with whatever the others do: no scheduling point is needed there. What a
// thread touches when the others have ended counts: in another schedule they have not. Where a
// schedule shows that to be wrong, the search begins anew with one more contended location.
void Schedule::touch(Location& location, Touch touch, const Thread& self) {
    if (location.firstThread == kNobody) {
        location.firstThread = static_cast<std::int8_t>(self.id);
    } else if (location.firstThread != self.id) {
        location.hasSeveralThreads = true;
    }
    if (touch == Touch::Write) location.isWritten = true;
    if (location.isContended || !location.hasSeveralThreads || !location.isWritten) return;
    location.isContended = true;
    (void)m_record->contended.insert(location.address);
}

// A thread that reads the same value again and again, and does nothing else, waits for another one:
// two such reads from one place are points, later ones are not, and in the end it yields. Reads
// from several places may each decide something else.
bool Schedule::isLoop(const Location& location, Touch touch, const void* p_place, Thread& self) {
    const bool isEqual = touch == Touch::Read && self.p_lastRead == &location &&
                         self.lastVersion == location.version;
    self.equalReads = isEqual ? self.equalReads + 1 : 0;
    self.equalReadsHere = isEqual && self.p_lastPlace == p_place ? self.equalReadsHere + 1 : 0;
    self.p_lastPlace = p_place;
    self.p_lastRead = touch == Touch::Read ? &location : nullptr;
    self.lastVersion = location.version;
    return self.equalReadsHere >= kReadsOfLoop;
}

void Schedule::countStep() {
    if (++m_steps > m_options.mostSteps) {
        finish(Outcome::Livelock, "more than %u steps", m_options.mostSteps);
    }
}

void Schedule::point(Location& location, Touch touch, const char* verb, std::uint64_t value,
                     const void* p_place) {
    Thread& self = *t_self;
    countStep();
    const bool isLooping = isLoop(location, touch, p_place, self);
    const std::uint32_t moment = m_moment++;
    const bool isDue = isDeviationDue(moment);
    if (m_count > 1) {
        this->touch(location, touch, self);
        if (self.equalReads >= kReadsBeforeYield) {
            self.equalReads = 0;
            yield();
        } else if (isDue || (location.isContended && !isLooping)) {
            offerPreemption(self, moment);
        }
    }
    if (isTold()) tell(verb, location.address, value);
}

void Schedule::offerPreemption(Thread& self, std::uint32_t moment) {
    Options options = runnable(true);
    if (options.count < 2) return;
    // The running thread first.
    auto* const p_end = options.values.begin() + options.count;
    auto* const p_self = std::find(options.values.begin(), p_end, self.id);
    std::rotate(options.values.begin(), p_self, p_self + 1);
    pruneIfVisited(self.id);
    switchTo(thread(decide(moment, options, 1)));
}

void Schedule::happened(Location& location, Touch touch, std::uint64_t value) {
    Thread& self = *t_self;
    std::uint64_t history = mixed(self.history, location.version);
    history = mixed(history, location.address + static_cast<std::uint64_t>(touch));
    if (value != 0) history = mixed(history, value);
    setHistory(self, history);
    if (touch == Touch::Read) return;
    location.version = history;
    self.clockReadings = 0;
    for (int i = 0; i < m_count; ++i) {
        if (i != self.id) thread(i).hasYielded = false;
    }
}

void Schedule::acquire(Location& location) {
    t_self->clock.join(location.released);
}

void Schedule::release(Location& location) {
    location.released.join(t_self->clock);
    t_self->clock.tick(t_self->id);
}

bool Schedule::isDeviationDue(std::uint32_t moment) {
    while (m_nextDeviation < m_record->deviationCount &&
           m_record->deviations[m_nextDeviation].moment < moment) {
        ++m_nextDeviation;  // It does not fit, as one may that a shrunk trace has kept.
    }
    return m_nextDeviation < m_record->deviationCount &&
           m_record->deviations[m_nextDeviation].moment == moment;
}

// The state is what the threads have done and seen: equal histories have led to equal states,
// whatever the order of steps that do not depend on each other (happens-before caching: Musuvathi
// and Qadeer, PLDI 2007). It was searched already, if with as many preemptions left.
void Schedule::pruneIfVisited(int running) {
    if (!m_record->prunes || m_nextDeviation < m_record->deviationCount) return;
    constexpr std::uint64_t kLeftMask = 0xF;
    std::uint64_t state = mixed(m_state, static_cast<std::uint64_t>(m_now));
    state = mixed(state, static_cast<std::uint64_t>(running) + 1);
    for (int i = 0; i < m_count; ++i) {
        if (thread(i).hasYielded) state = mixed(state, static_cast<std::uint64_t>(i) + 100);
    }
    const auto left = static_cast<std::uint64_t>(m_record->bound - m_preemptions) + 1;
    state = (state & ~kLeftMask) | left;
    auto& visited = m_record->visited;
    if (visited.count > RunRecord::kMostStates / 4 * 3) return;
    std::uint64_t* const p_slot = visited.find(state, ~kLeftMask);
    if (p_slot == nullptr) return;
    if (*p_slot == 0) {
        ++visited.count;
    } else if ((*p_slot & kLeftMask) >= left) {
        finish(Outcome::Pruned, "%s", "");
    }
    *p_slot = state;
}

int Schedule::decide(std::uint32_t moment, const Options& options, int othersCost) {
    ++m_decisions;
    const bool isDecided = m_record->policy == Policy::Default;
    if (isDecided && m_preemptions + othersCost > m_record->bound && !isDeviationDue(moment)) {
        return options.values[0];
    }
    const int index = isDecided ? indexOfDeviation(moment, options) : indexByPolicy(options);
    if (index != 0) m_preemptions += othersCost;
    const auto count = m_record->decisionCount;
    if (count < RunRecord::kMostDecisions) {
        m_record->decisions[count] = {moment,
                                      static_cast<std::uint8_t>(options.count),
                                      static_cast<std::uint8_t>(index),
                                      static_cast<std::uint8_t>(othersCost),
                                      0,
                                      options.values};
        m_record->decisionCount = count + 1;
    }
    return options.values[static_cast<std::size_t>(index)];
}

int Schedule::indexOfDeviation(std::uint32_t moment, const Options& options) {
    if (!isDeviationDue(moment)) return 0;
    const std::uint32_t value = m_record->deviations[m_nextDeviation++].value;
    for (int i = 0; i < options.count; ++i) {
        if (options.values[static_cast<std::size_t>(i)] == value) return i;
    }
    return 0;
}

int Schedule::indexByPolicy(const Options& options) {
    if (m_record->policy == Policy::Priority) return indexOfPriority(options);
    return static_cast<int>(random() % static_cast<std::uint64_t>(options.count));
}

// Probabilistic concurrency testing (Burckhardt, Kothari, Musuvathi and Nagarakatte, ASPLOS 2010).
int Schedule::indexOfPriority(const Options& options) {
    for (std::uint32_t i = 0; i < m_record->priorityChanges; ++i) {
        if (m_changes[i] == m_decisions) m_priorities[options.values[0]] = i;
    }
    int best = 0;
    for (int i = 1; i < options.count; ++i) {
        if (m_priorities[options.values[static_cast<std::size_t>(i)]] >
            m_priorities[options.values[static_cast<std::size_t>(best)]]) {
            best = i;
        }
    }
    return best;
}

std::uint64_t Schedule::random() {
    m_random += 0x9E3779B97F4A7C15U;
    return mixed(m_random, 0);
}

bool Schedule::canRun(const Thread& thread) const {
    if (thread.isEnded) return false;
    return thread.waitsFor == nullptr || thread.ready(thread.p_context, thread.deadline <= m_now);
}

Schedule::Options Schedule::runnable(bool areYieldedLeftOut) const {
    Options options;
    for (int i = 0; i < m_count; ++i) {
        const Thread& thread = m_threads[static_cast<std::size_t>(i)];
        if (areYieldedLeftOut && thread.hasYielded) continue;
        if (canRun(thread)) options.add(i);
    }
    return options;
}

Thread* Schedule::nextThread() {
    while (true) {
        const Options options = runnable(true);
        if (options.count > 0) {
            const std::uint32_t moment = m_moment++;
            if (options.count == 1) return &thread(options.values[0]);
            pruneIfVisited(kNobody);
            return &thread(decide(moment, options, 0));
        }
        const bool isNobodyReady = runnable(false).count == 0;
        if (!isNobodyReady || m_standStill == 0) {
            if (advanceToDeadline()) continue;
        } else if (advanceToDeadline()) {
            finish(Outcome::OnlyTimeOut, "%s", "nothing but a time-out ends the wait");
        }
        if (isNobodyReady) reportDeadlock();
        for (Thread& thread : m_threads) thread.hasYielded = false;
    }
}

// To the first deadline of a thread that waits, and to those that are as good as equal.
bool Schedule::advanceToDeadline() {
    std::int64_t first = kNever;
    for (int i = 0; i < m_count; ++i) {
        const Thread& thread = this->thread(i);
        if (thread.isEnded || thread.waitsFor == nullptr || canRun(thread)) continue;
        if (thread.deadline > m_now) first = std::min(first, thread.deadline);
    }
    if (first == kNever) return false;
    std::int64_t last = first;
    for (int i = 0; i < m_count; ++i) {
        const Thread& thread = this->thread(i);
        if (thread.isEnded || thread.waitsFor == nullptr) continue;
        if (thread.deadline <= first + kTimerSlack) last = std::max(last, thread.deadline);
    }
    advance(last - m_now);
    return true;
}

void Schedule::advance(std::int64_t nanoseconds) {
    m_now += nanoseconds;
    for (Thread& thread : m_threads) {
        thread.hasYielded = false;
        thread.clockReadings = 0;
    }
    if (isTold()) tell("the clock goes on by (ns)", 0, static_cast<std::uint64_t>(nanoseconds));
}

std::int64_t Schedule::readClock() {
    Thread& self = *t_self;
    if (++self.clockReadings > kReadingsBeforeClockMoves) m_now += kClockStep;
    setHistory(self, mixed(self.history, static_cast<std::uint64_t>(m_now)));
    return m_now;
}

void Schedule::block(const char* waitsFor, Location* p_location, std::int64_t deadline,
                     int awaitedThread) {
    Thread& self = *t_self;
    self.waitsFor = waitsFor;
    self.p_awaited = p_location;
    self.awaitedThread = awaitedThread;
    self.deadline = deadline;
    countStep();
    if (isTold()) {
        tell("waits for", p_location != nullptr ? p_location->address : 0);
        noteEnd(self);
    }
    switchTo(*nextThread());
    self.waitsFor = nullptr;
    self.deadline = kNever;
}

int Schedule::choose(int count, int othersCost) {
    Options options;
    for (int i = 0; i < count; ++i) options.add(i);
    const std::uint32_t moment = m_moment++;
    const int chosen = count > 1 ? decide(moment, options, othersCost) : 0;
    setHistory(*t_self, mixed(t_self->history, static_cast<std::uint64_t>(chosen)));
    return chosen;
}

void Schedule::yield() {
    Thread& self = *t_self;
    countStep();
    self.hasYielded = true;
    if (isTold()) {
        tell("yields", 0);
        noteEnd(self);
    }
    switchTo(*nextThread());
    self.hasYielded = false;
}

void Schedule::sleepUntil(std::int64_t deadline) {
    (void)waitUntil("the end of its sleep", nullptr, deadline, [](bool isOver) { return isOver; });
}

Thread* Schedule::addThread() {
    if (m_count >= std::min(m_options.mostThreads, kMostThreads)) return reuseThread();
    Thread& thread = m_threads[static_cast<std::size_t>(m_count)];
    thread.id = m_count;
    ++m_count;
    beginThread(&thread, 0);
    return &thread;
}

// The place of one that has ended and that nobody can join any more. It really ends now, for the
// new one takes its stack.
Thread* Schedule::reuseThread() {
    for (int i = 0; i < m_count; ++i) {
        Thread& thread = this->thread(i);
        if (!thread.isEnded || !(thread.isJoined || thread.isDetached)) continue;
        __atomic_store_n(&thread.baton, 1, __ATOMIC_RELEASE);
        futexWake(&thread.baton);
        joinEnded(thread.handle);
        const VectorClock clock = thread.clock;
        const std::uint64_t history = thread.history;
        thread = Thread();
        thread.id = i;
        thread.clock = clock;
        thread.history = history;
        beginThread(&thread, history);
        return &thread;
    }
    finish(Outcome::Unsupported, "more than %d threads at once", m_count);
}

void Schedule::beginThread(Thread* p_thread, std::uint64_t earlierHistory) {
    const auto id = static_cast<std::uint64_t>(p_thread->id);
    if (t_self != nullptr) {
        p_thread->clock.join(t_self->clock);
        t_self->clock.tick(t_self->id);
        setHistory(*p_thread, mixed(mixed(t_self->history, earlierHistory), id));
    }
    p_thread->clock.tick(p_thread->id);
    ++m_alive;
    m_record->threads = static_cast<std::uint32_t>(m_count);
}

void Schedule::removeThread(Thread* p_thread) {
    p_thread->isEnded = true;
    --m_alive;
}

void Schedule::joined(const Thread& thread) {
    t_self->clock.join(thread.clock);
    setHistory(*t_self, mixed(t_self->history, thread.history));
}

void Schedule::awaitFirstTurn(Thread* p_thread) {
    t_self = p_thread;
    awaitBaton(&p_thread->baton);
    if (isTold()) tell("starts", 0);
}

void Schedule::endThread() {
    Thread& self = *t_self;
    if (isTold()) tell("ends", 0);
    self.isEnded = true;
    self.clock.tick(self.id);
    --m_alive;
    switchTo(*nextThread());
    // What the C library still does for a thread that ends would not be scheduled: that waits until
    // reuseThread(), or for ever.
    awaitBaton(&self.baton);
    t_self = nullptr;
}

void Schedule::switchTo(Thread& next) {
    Thread& self = *t_self;
    if (&next == &self) return;
    if (isTold() && self.waitsFor == nullptr && !self.isEnded) noteEnd(self);
    __atomic_store_n(&next.baton, 1, __ATOMIC_RELEASE);
    futexWake(&next.baton);
    if (!self.isEnded) awaitBaton(&self.baton);
}

void Schedule::checkAccess(std::uintptr_t address, std::size_t size, Access access,
                           std::uintptr_t place) {
    const Thread& self = *t_self;
    const Accesses::Conflict conflict =
        g_accesses.add(address, size, access, self.id, self.clock, place, m_record->checksRaces);
    if (conflict.isFound) reportConflict(conflict, address, access);
}

void Schedule::freed(std::uintptr_t address, std::size_t size, std::uintptr_t place) {
    constexpr std::size_t kMostBytes = 4096;
    const std::size_t bytes = std::min(size, kMostBytes);
    if (bytes == 0) return;
    checkAccess(address, bytes, {true, false, true}, place);
    if (m_count < 2) return;
    for (std::size_t i = 0; i < bytes; ++i) {
        std::size_t slot = 0;
        if (Location* const p_location = find(address + i, &slot)) {
            touch(*p_location, Touch::Write, *t_self);
        }
    }
}

void Schedule::checkAlive(const Location& location, std::size_t size, std::uintptr_t place) {
    if (location.isDestroyed) {
        finish(Outcome::UseAfterEnd, "use of a destroyed object at %#zx", location.address);
    }
    const Accesses::Conflict conflict = g_accesses.findFreed(location.address, size);
    (void)place;
    if (conflict.isFound) reportConflict(conflict, location.address, {true, true, false});
}

void Schedule::reportConflict(const Accesses::Conflict& conflict, std::uintptr_t address,
                              Access access) {
    m_record->otherPlace = conflict.place;
    m_record->otherThread = conflict.thread;
    const char* const what = access.isFree ? "freed" : access.isWrite ? "written" : "read";
    if (conflict.isFreed) {
        finish(Outcome::UseAfterEnd, "memory at %#zx is %s after it was freed", address, what);
    }
    finish(Outcome::DataRace, "memory at %#zx is %s without an order to another access", address,
           what);
}

// Follows from thread 0 what each waits for: a circle of locks and joins is a deadlock, and at the
// end of a chain is somebody who waits for a signal that nobody is left to give.
void Schedule::reportDeadlock() {
    const Thread* p_thread = &thread(0);
    for (int steps = 0; steps < m_count; ++steps) {
        const int owner = p_thread->p_awaited != nullptr ? p_thread->p_awaited->owner : kNobody;
        const int next = p_thread->awaitedThread != kNobody ? p_thread->awaitedThread : owner;
        if (next == kNobody) {
            finish(Outcome::LostWakeUp, "%s waits for %s, and nobody is left to end that",
                   p_thread->name, p_thread->waitsFor != nullptr ? p_thread->waitsFor : "nothing");
        }
        p_thread = &thread(next);
    }
    finish(Outcome::Deadlock, "%s waits for %s, in a circle", p_thread->name, p_thread->waitsFor);
}

void Schedule::tell(const char* verb, std::uintptr_t object, std::uint64_t value) {
    if (m_record->eventCount == RunRecord::kMostEvents || t_self == nullptr) return;
    const Unhooked unhooked;
    Event& event = m_record->events[m_record->eventCount++];
    event.moment = m_moment;
    event.thread = static_cast<std::uint8_t>(t_self->id);
    event.isSwitch = std::exchange(m_lastTold, t_self->id) != t_self->id;
    event.verb = verb;
    event.object = object;
    event.value = value;
    event.nanoseconds = m_now;
    void* frames[Event::kMostFrames];
    const int count = backtrace(frames, Event::kMostFrames);
    event.frames = static_cast<std::uint8_t>(count);
    for (int i = 0; i < count; ++i) {
        event.stack[static_cast<std::size_t>(i)] = reinterpret_cast<std::uintptr_t>(frames[i]);
    }
}

void Schedule::noteEnd(const Thread& thread) {
    const Unhooked unhooked;
    ThreadEnd& end = m_record->threadEnds[static_cast<std::size_t>(thread.id)];
    void* frames[Event::kMostFrames];
    const int count = backtrace(frames, Event::kMostFrames);
    end.frames = static_cast<std::uint8_t>(count);
    for (int i = 0; i < count; ++i) {
        end.stack[static_cast<std::size_t>(i)] = reinterpret_cast<std::uintptr_t>(frames[i]);
    }
}

// Of the threads that have come to their end: how far others are by then means nothing.
void Schedule::noteEndState() {
    if (m_record->ends.count > RunRecord::kMostStates / 4 * 3) return;
    std::uint64_t state = 1;
    for (int i = 0; i < m_count; ++i) {
        if (i == 0 || thread(i).isEnded) state = mixed(state, thread(i).history);
    }
    (void)m_record->ends.insert(state);
}

void Schedule::finish(Outcome outcome, const char* format, ...) {
    RunRecord& record = *m_record;
    va_list args;
    va_start(args, format);
    (void)std::vsnprintf(record.text, sizeof(record.text), format, args);
    va_end(args);
    record.moments = m_moment;
    if (outcome == Outcome::Passed) noteEndState();
    record.steps = m_steps;
    record.elapsed = m_now;
    record.failingThread = t_self != nullptr ? t_self->id : kNobody;
    if (record.isTold) {
        if (t_self != nullptr && !t_self->isEnded && t_self->waitsFor == nullptr) noteEnd(*t_self);
        for (int i = 0; i < m_count; ++i) {
            const Thread& thread = this->thread(i);
            ThreadEnd& end = record.threadEnds[static_cast<std::size_t>(i)];
            std::memcpy(end.name, thread.name, sizeof(end.name));
            end.waitsFor = thread.waitsFor;
            end.object = thread.p_awaited != nullptr ? thread.p_awaited->address : 0;
            end.owner = thread.awaitedThread != kNobody ? thread.awaitedThread
                        : thread.p_awaited != nullptr   ? thread.p_awaited->owner
                                                        : kNobody;
            end.isEnded = thread.isEnded;
        }
    }
    record.outcome = outcome;
    (void)syscall(SYS_exit_group, 0);
    __builtin_unreachable();
}

}  // namespace tevalon::testkit
