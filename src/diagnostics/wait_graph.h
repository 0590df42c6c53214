// wait_graph.h: which thread waits for which.

#ifndef SRC_DIAGNOSTICS_WAIT_GRAPH_H
#define SRC_DIAGNOSTICS_WAIT_GRAPH_H

#include <cstddef>
#include <cstdint>

#include "diagnostics/snapshot.h"

namespace tevalon::base::diagnostics {

/// Threads are known by their kernel ids; 0 is none.
///
/// Thread-safety: none.
class WaitGraph {
public:
    /// @param snapshot  Not owned; must outlive this, unchanged.
    explicit WaitGraph(const Snapshot& snapshot) : m_snapshot(snapshot) {}

    /// The thread that would end @p wait: the one in whose handler the event is, else the first one
    /// of a hub that it was sent to; or one that serves the object. 0 where there is none.
    std::int32_t threadAwaitedBy(const WaitLook& wait) const;

    /// What @p threadId waits for in the innermost of its calls; null where it does not wait.
    const WaitLook* waitOf(std::int32_t threadId) const;

    /// The next thread on the way; 0 where @p threadId waits for none.
    std::int32_t next(std::int32_t threadId) const;

    bool isAwaited(std::int32_t threadId) const;
    /// Whether the way from @p threadId leads back to it.
    bool isInCircle(std::int32_t threadId) const;
    /// Whether it is in a circle, and has the least id of that.
    bool isFirstOfCircle(std::int32_t threadId) const;

private:
    const Snapshot& m_snapshot;
};

}  // namespace tevalon::base::diagnostics

#endif  // SRC_DIAGNOSTICS_WAIT_GRAPH_H
