// utils.h: everything of the utilities family; utils/ holds one header per class.

#ifndef BASE_UTILS_H
#define BASE_UTILS_H

#include "base/utils/command_line.h"

#endif  // BASE_UTILS_H
