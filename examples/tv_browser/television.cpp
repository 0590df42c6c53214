#include "television.h"

#include <algorithm>
#include <iterator>

namespace tv_browser {

Television::Television(Timeline& timeline)
    : m_engine(timeline), m_manager(timeline), m_opAppHost(timeline), m_controller(timeline) {}

bool Television::turnOn() {
    return std::all_of(std::begin(m_modules), std::end(m_modules),
                       [](Module* p_module) { return p_module->start(); });
}

void Television::turnOff() {
    std::for_each(std::rbegin(m_modules), std::rend(m_modules),
                  [](Module* p_module) { p_module->stop(); });
}

}  // namespace tv_browser
