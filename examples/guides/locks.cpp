// locks.cpp: a queue between two threads, whose locking Clang checks.
#include <cstdio>
#include <deque>
#include <thread>

#include "base/synchronization.h"

using namespace tevalon::base;

namespace {

class Keys {
public:
    void press(int key) TEVALON_EXCLUDES(m_mutex) {
        {
            const AutoLock lock(m_mutex);
            m_pressed.push_back(key);
        }
        m_isPressed.notify_one();
    }

    int wait() TEVALON_EXCLUDES(m_mutex) {
        UniqueLock lock(m_mutex);  // The guard that a condition variable takes.
        while (m_pressed.empty()) m_isPressed.wait(lock);
        const int key = m_pressed.front();
        m_pressed.pop_front();
        return key;
    }

private:
    Mutex m_mutex;  // Not recursive.
    ConditionVariable m_isPressed;
    std::deque<int> m_pressed TEVALON_GUARDED_BY(m_mutex);
};

}  // namespace

int main() {
    Keys keys;
    std::thread viewer([&keys] {
        for (const int key : {4, 0, 3}) keys.press(key);
    });
    for (int i = 0; i < 3; ++i) std::printf("key %d\n", keys.wait());
    viewer.join();
}
