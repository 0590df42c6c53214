// plugin.h: what a module that links the library offers to the program that loads it.

#ifndef TESTS_LOADING_PLUGIN_H
#define TESTS_LOADING_PLUGIN_H

/// The process's services, as one module sees them.
struct Services {
    const void* p_pool;
    const void* p_dispatcher;
    const void* p_watchDog;
};

using ServicesFunction = void (*)(Services*);
using WorkFunction = int (*)(int);
using StartFunction = void (*)();

extern "C" {

void pluginServices(Services* p_services);

/// Has every service of the library run something of the module's, and waits for all of it: the
/// module may be unloaded then. Returns the kernel thread id of the main timer thread.
///
/// @param moduleId  Of the hub that is made; of this module alone.
int pluginWork(int moduleId);

/// Sets every service to work for the module, for good, and returns once each is at it: the module
/// may no longer be unloaded.
void pluginStartEndlessWork();

}  // extern "C"

#endif  // TESTS_LOADING_PLUGIN_H
