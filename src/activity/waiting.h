// waiting.h: a thread waits for those that serve an object.

#ifndef SRC_ACTIVITY_WAITING_H
#define SRC_ACTIVITY_WAITING_H

#include "activity/activity.h"
#include "record/wait_scope.h"

namespace tevalon::base::activity {

/// Stands around such a wait: whoever looks sees it, and one that takes long is recorded.
class Waiting {
public:
    /// @param where  Stop, Destructor or Unregister.
    Waiting(record::Wait where, const void* p_object)
        : m_activity(kindOf(where), p_object),
          m_recorded(where, p_object, record::isOn() ? threadOf(p_object) : 0) {}

    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

private:
    static Kind kindOf(record::Wait where) {
        if (where == record::Wait::Stop) return Kind::Stop;
        return where == record::Wait::Destructor ? Kind::Destructor : Kind::Unregister;
    }

    const ListedActivity m_activity;
    const record::WaitScope m_recorded;
};

}  // namespace tevalon::base::activity

#endif  // SRC_ACTIVITY_WAITING_H
