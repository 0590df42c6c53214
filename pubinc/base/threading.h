// threading.h: everything of the threading family; threading/ holds one header per class.

#ifndef BASE_THREADING_H
#define BASE_THREADING_H

#include "base/threading/basic_thread.h"
#include "base/threading/current_thread.h"
#include "base/threading/runnable.h"

#endif  // BASE_THREADING_H
