// loaded_plugin.h: a plugin in the process of a program that checks what it finds there.

#ifndef TESTS_LOADING_LOADED_PLUGIN_H
#define TESTS_LOADING_LOADED_PLUGIN_H

#include <dlfcn.h>

#include <cstdio>
#include <cstdlib>

#include "loading/plugin.h"

/// Ends the process with status 1, saying why, unless @p holds.
inline void check(bool holds, const char* p_what) {
    if (holds) return;
    std::fprintf(stderr, "not true: %s\n", p_what);
    std::_Exit(1);
}

/// Whether the shared object @p p_path is in the process.
inline bool isLoaded(const char* p_path) {
    void* const p_handle = dlopen(p_path, RTLD_NOW | RTLD_NOLOAD);
    if (p_handle != nullptr) (void)dlclose(p_handle);
    return p_handle != nullptr;
}

inline void* loadedSymbol(void* p_handle, const char* p_name) {
    void* const p_symbol = p_handle != nullptr ? dlsym(p_handle, p_name) : nullptr;
    if (p_symbol == nullptr) check(false, dlerror());
    return p_symbol;
}

/// Loaded while it lives.
class LoadedPlugin {
public:
    explicit LoadedPlugin(const char* p_path, int mode = RTLD_LOCAL)
        : m_handle(dlopen(p_path, RTLD_NOW | mode)) {}
    ~LoadedPlugin() { check(dlclose(m_handle) == 0, "a plugin can be unloaded"); }

    LoadedPlugin(const LoadedPlugin&) = delete;
    LoadedPlugin& operator=(const LoadedPlugin&) = delete;

    Services services() const {
        Services services = {};
        reinterpret_cast<ServicesFunction>(loadedSymbol(m_handle, "pluginServices"))(&services);
        return services;
    }
    int work(int moduleId) const {
        return reinterpret_cast<WorkFunction>(loadedSymbol(m_handle, "pluginWork"))(moduleId);
    }
    void startEndlessWork() const {
        reinterpret_cast<StartFunction>(loadedSymbol(m_handle, "pluginStartEndlessWork"))();
    }

private:
    void* const m_handle;
};

inline void checkSame(const Services& one, const Services& other) {
    check(one.p_pool != nullptr && one.p_pool == other.p_pool, "there is one pool");
    check(one.p_dispatcher != nullptr && one.p_dispatcher == other.p_dispatcher,
          "there is one dispatcher");
    check(one.p_watchDog != nullptr && one.p_watchDog == other.p_watchDog, "there is one watchdog");
}

#endif  // TESTS_LOADING_LOADED_PLUGIN_H
