// utils.h: everything of the utilities family; utils/ holds one header per class.

#ifndef BASE_UTILS_H
#define BASE_UTILS_H

#include "base/utils/check_sum.h"
#include "base/utils/command_line.h"
#include "base/utils/files.h"
#include "base/utils/md5.h"
#include "base/utils/monotonic_time.h"
#include "base/utils/numbers.h"
#include "base/utils/process_property.h"
#include "base/utils/strings.h"
#include "base/utils/uuid.h"

#endif  // BASE_UTILS_H
