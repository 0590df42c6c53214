#include "base/utils/process_property.h"

#include <cstdlib>
#include <map>

#include "base/synchronization/auto_lock.h"
#include "base/synchronization/mutex.h"

namespace base {
namespace {

using tevalon::base::AutoLock;
using tevalon::base::Mutex;

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

    void clear() TEVALON_EXCLUDES(m_propertyMutex) {
        const AutoLock lock(m_propertyMutex);
        m_properties.clear();
    }

private:
    Mutex m_propertyMutex;
    std::map<std::string, std::string> m_properties TEVALON_GUARDED_BY(m_propertyMutex);
};

PropertyTable* createTable();

// Emptied when the process exits, but never destroyed: a detached thread may still ask.
PropertyTable& table() {
    static PropertyTable* const s_table = createTable();
    return *s_table;
}

PropertyTable* createTable() {
    auto* p_table = new PropertyTable();
    (void)std::atexit([] { table().clear(); });  // Unregistered, the memory stays with the process.
    return p_table;
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
