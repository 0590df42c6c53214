#include "loading/plugin.h"

#include "loading/work.h"

void pluginServices(Services* p_services) {
    *p_services = work::services();
}

int pluginWork(int moduleId) {
    return work::useEveryService(moduleId);
}

void pluginStartEndlessWork() {
    static auto* const s_work = new work::EndlessWork;  // Never destroyed.
    s_work->waitForMore();
}
