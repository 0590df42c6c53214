// open_descriptors.h: how many descriptors this process holds.

#ifndef TESTS_SUPPORT_OPEN_DESCRIPTORS_H
#define TESTS_SUPPORT_OPEN_DESCRIPTORS_H

#include <filesystem>
#include <iterator>

#include "support/fault_injection.h"

namespace test {

/// The one it takes to count them included. Not subject to the interventions of
/// fault_injection.h.
inline long openDescriptors() {
    const PassCalls pass;
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                         std::filesystem::directory_iterator());
}

}  // namespace test

#endif  // TESTS_SUPPORT_OPEN_DESCRIPTORS_H
