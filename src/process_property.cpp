#include "base/utils/process_property.h"

#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <map>

#include "base/synchronization/auto_lock.h"
#include "base/synchronization/mutex.h"
#include "locks/annotated_mutex.h"
#include "os/forked_child.h"

namespace base {
namespace {

using tevalon::base::AnnotatedMutex;
using tevalon::base::AutoLock;
using tevalon::base::inEachForkedChild;
using tevalon::base::Mutex;
using tevalon::base::MutexGuard;
using tevalon::base::replaceUndestroyed;

class PropertyTable {
public:
    std::string get(const std::string& name) TEVALON_EXCLUDES(m_propertyMutex) {
        const AutoLock lock(m_propertyMutex);
        const auto property = m_properties.find(name);
        return property != m_properties.end() ? property->second : std::string();
    }

    std::string set(const std::string& name, std::string value) TEVALON_EXCLUDES(m_propertyMutex) {
        const AutoLock lock(m_propertyMutex);
        m_properties[name].swap(value);
        return value;
    }

    // A fork waits for whoever is in the table, so that a child finds it whole.
    void lock() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        (void)pthread_mutex_lock(m_propertyMutex.nativeHandle());
    }
    void unlock() TEVALON_NO_THREAD_SAFETY_ANALYSIS {
        (void)pthread_mutex_unlock(m_propertyMutex.nativeHandle());
    }

    void clear() TEVALON_EXCLUDES(m_propertyMutex) {
        const AutoLock lock(m_propertyMutex);
        m_properties.clear();
    }

private:
    Mutex m_propertyMutex;
    std::map<std::string, std::string> m_properties TEVALON_GUARDED_BY(m_propertyMutex);
};

// Emptied when the process exits, but never destroyed: a detached thread may still ask.
std::atomic<PropertyTable*> g_table{nullptr};

// No static of the function: a forked child would wait for ever for a thread of its parent's that
// was just creating it.
PropertyTable& createTable() {
    static AnnotatedMutex s_creationMutex;
    inEachForkedChild([] { replaceUndestroyed(&s_creationMutex); });
    const MutexGuard lock(s_creationMutex);
    if (PropertyTable* const p_table = g_table.load(std::memory_order_relaxed)) return *p_table;
    auto* const p_table = new PropertyTable();
    g_table.store(p_table, std::memory_order_release);
    // Unregistered, the memory stays with the process.
    (void)std::atexit([] { g_table.load()->clear(); });
    (void)pthread_atfork([] { g_table.load()->lock(); }, [] { g_table.load()->unlock(); },
                         [] { g_table.load()->unlock(); });
    return *p_table;
}

PropertyTable& table() {
    PropertyTable* const p_table = g_table.load(std::memory_order_acquire);
    return p_table != nullptr ? *p_table : createTable();
}

}  // namespace

std::string get_process_property(const char* name) {
    if (name == nullptr) return std::string();
    return table().get(name);
}

std::string set_process_property(const char* name, const char* value) {
    PropertyTable& properties = table();
    // The strings refuse a null pointer, before anything is locked.
    const std::string key(name);
    return properties.set(key, std::string(value));
}

}  // namespace base
