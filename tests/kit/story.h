// story.h: what happened in a test, in order.

#ifndef TESTS_KIT_STORY_H
#define TESTS_KIT_STORY_H

#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace test {

/// Any thread may add to it: threads that take turns are not ordered for the thread sanitizer,
/// hence the lock.
class Story {
public:
    void add(std::string event) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(std::move(event));
    }
    std::vector<std::string> events() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }
    void clear() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.clear();
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_events;
};

}  // namespace test

#endif  // TESTS_KIT_STORY_H
