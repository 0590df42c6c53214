"""Which thread waits for which: as src/diagnostics/wait_graph.h."""

from tevalon_gdb.looks import ANY_MODULE


def _thread_where(looks, is_right):
    return next((look.thread_id for look in looks if is_right(look)), 0)


class WaitGraph:
    """Threads are known by their kernel ids; 0 is none."""

    def __init__(self, snapshot):
        self._snapshot = snapshot
        self._wait_of = {}
        for wait in snapshot.waits:  # The youngest first: what the thread is blocked in.
            self._wait_of.setdefault(wait.thread_id, wait)
        self._awaited_by = {id(wait): self._find_awaited(wait) for wait in snapshot.waits}
        self._awaited = set(self._awaited_by.values())

    def _find_awaited(self, wait):
        seen = self._snapshot
        if wait.kind == 'SyncSend':
            return (_thread_where(seen.hubs, lambda hub: hub.is_busy and hub.event == wait.object)
                    or _thread_where(seen.hubs, lambda hub: hub.module == wait.target
                                     and hub.thread_id != 0))
        return (_thread_where(seen.hubs, lambda hub: hub.hub == wait.object)
                or _thread_where(seen.task_threads, lambda tasks: tasks.thread == wait.object)
                or _thread_where(seen.watch_dogs, lambda dog: dog.watch_dog == wait.object)
                or _thread_where(seen.runs, lambda run: run.timer == wait.object
                                 and run.thread_id != wait.thread_id))

    def thread_awaited_by(self, wait):
        return self._awaited_by[id(wait)]

    def wait_of(self, thread):
        return self._wait_of.get(thread)

    def next(self, thread):
        wait = self.wait_of(thread)
        return self.thread_awaited_by(wait) if wait is not None else 0

    def is_awaited(self, thread):
        return thread in self._awaited

    def circle_of(self, thread):
        """The threads of the circle that it is in, from it on; none where it is in no circle."""
        circle = [thread]
        following = self.next(thread)
        while following != 0 and following not in circle:
            circle.append(following)
            following = self.next(following)
        return circle if following == thread else []

    def is_first_of_circle(self, thread):
        """Whether it is in a circle, and has the least id of that."""
        circle = self.circle_of(thread)
        return bool(circle) and min(circle) == thread


def is_known(module):
    return module != ANY_MODULE
