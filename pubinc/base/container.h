// container.h: everything of the container family; container/ holds one header per class.

#ifndef BASE_CONTAINER_H
#define BASE_CONTAINER_H

#include "base/container/common_value.h"
#include "base/container/point.h"

#endif  // BASE_CONTAINER_H
