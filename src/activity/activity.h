// activity.h: what the process's threads serve and wait for, for others to look at.

#ifndef SRC_ACTIVITY_ACTIVITY_H
#define SRC_ACTIVITY_ACTIVITY_H

#include <cstdint>

namespace tevalon::base::activity {

enum class Kind : std::uint8_t {
    HubThread,    ///< Serves a hub.
    TaskThread,   ///< Serves a timer thread.
    WatchThread,  ///< Serves a watchdog.
    TimerRun,     ///< Runs the handler of a simple timer.
    SyncSend,     ///< Waits for the reply to an event.
    Stop,         ///< This and the following: waits for the threads that serve an object.
    Destructor,
    Unregister,
};

class Activity;

#ifdef TEVALON_BASE_NO_DIAGNOSTICS

class ListedActivity {
public:
    ListedActivity(Kind /*kind*/, const void* /*p_object*/) {}
    ~ListedActivity() {}  // So that one that is only constructed counts as used.
};

inline void forgetObject(const void* /*p_object*/) {}
inline std::int32_t threadOf(const void* /*p_object*/) {
    return 0;
}

#else

/// On the stack of a thread, for as long as it does what this says. The process keeps them in a
/// list: nothing is added to the objects for it, and a thread that ends in the middle leaves it.
/// What derived classes add is read by others at any time: it is constant, or atomic.
class Activity {
public:
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;

    Kind kind() const { return m_kind; }
    /// The kernel's id.
    std::int32_t threadId() const { return m_threadId; }
    /// Null once forgetObject() was called, and in a child that a thread serving it has forked.
    /// Otherwise it exists as long as the list is locked.
    const void* object() const { return m_object; }

protected:
    /// @param p_object  What is served or waited for, by whatever address its family knows it.
    Activity(Kind kind, const void* p_object);
    ~Activity() = default;

private:
    friend class Change;
    friend class List;

    Activity* m_next = nullptr;
    Activity** m_link = nullptr;  // What points to this.
    const void* m_object;
    std::int32_t m_threadId;
    const Kind m_kind;
};

/// Keeps an activity in the list; the last member of the class that derives from it, so that the
/// list has only whole ones. Neither allocates nor logs, and is no cancellation point.
class Listing {
public:
    explicit Listing(Activity* p_activity);
    ~Listing();

    Listing(const Listing&) = delete;
    Listing& operator=(const Listing&) = delete;

private:
    Activity* const m_activity;
};

/// One that says no more than that.
class ListedActivity : public Activity {
public:
    ListedActivity(Kind kind, const void* p_object) : Activity(kind, p_object) {}

private:
    const Listing m_listing{this};
};

/// For an object that is destroyed by a thread that serves it, and goes on: once this has returned
/// nobody looks at it.
void forgetObject(const void* p_object);

/// The kernel's id of a thread that serves @p p_object, or runs its handler; 0 where there is none.
std::int32_t threadOf(const void* p_object);

/// The list, locked: no activity in it ends meanwhile. With it no lock must be waited for.
class List {
public:
    /// @param untilNs  Waits so long at most, on the monotonic clock.
    explicit List(std::uint64_t untilNs);
    ~List();

    List(const List&) = delete;
    List& operator=(const List&) = delete;

    [[nodiscard]] bool isLocked() const { return m_isLocked; }

    /// The youngest first. Only where it is locked.
    template <typename Visit>
    void forEach(Visit visit) const {
        for (const Activity* p_next = first(); p_next != nullptr; p_next = p_next->m_next) {
            visit(*p_next);
        }
    }

private:
    static const Activity* first();

    const bool m_isLocked;
};

#endif

}  // namespace tevalon::base::activity

#endif  // SRC_ACTIVITY_ACTIVITY_H
