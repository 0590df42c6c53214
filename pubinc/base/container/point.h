// point.h: a pair of coordinates.

#ifndef BASE_CONTAINER_POINT_H
#define BASE_CONTAINER_POINT_H

#include <cstdint>

namespace tevalon::base::container {

/// A pair of coordinates, in whatever unit its user means.
struct Point {
    std::int32_t x = 0;  ///< Horizontal.
    std::int32_t y = 0;  ///< Vertical.
};

}  // namespace tevalon::base::container

#endif  // BASE_CONTAINER_POINT_H
