// logging.h: everything of the logging family; logging/ holds one header per topic.

#ifndef BASE_LOGGING_H
#define BASE_LOGGING_H

#include "base/logging/blog.h"
#include "base/logging/boot_id.h"
#include "base/logging/debug_memory.h"
#include "base/logging/entry_points.h"
#include "base/logging/function_tracer.h"
#include "base/logging/log_level.h"
#include "base/logging/trace.h"

#endif  // BASE_LOGGING_H
