// figures.h: what modules compiled earlier have been told of the layouts, by processor.

#ifndef TESTS_LAYOUT_FIGURES_H
#define TESTS_LAYOUT_FIGURES_H

#include <cstddef>

namespace layout {

struct Field {
    std::size_t offset;
    std::size_t size;
};

template <std::size_t kCount>
struct Figures {
    std::size_t size;
    std::size_t alignment;
    Field fields[kCount];
};

}  // namespace layout

#if defined(__arm__) && defined(__ARM_PCS_VFP)
#include "layout/figures_armhf.h"
#elif defined(__x86_64__) && defined(__LP64__)
#include "layout/figures_x86_64.h"
#else
#error "No figures for this processor."
#endif

#endif  // TESTS_LAYOUT_FIGURES_H
