// plain_format.h: the part of printf that log statements are made of, without the rest of it.

#ifndef ZOR_DEBUG_SRC_PLAIN_FORMAT_H
#define ZOR_DEBUG_SRC_PLAIN_FORMAT_H

#include <cstdarg>

#include "appender.h"

namespace zor_debug {

/// Appends what printf would, where the format has no directive but %s, %c, %d, %i, %u, %x and
/// %X, these two perhaps behind a zero and a width of one digit, %d, %i and %u perhaps with l,
/// ll or z, and %%. False for any other and where there is no room; what has been appended by
/// then is of no use, and @p args is used up. Does not change errno.
bool formatPlainly(Appender* p_out, const char* p_format, va_list args)
    __attribute__((format(printf, 2, 0)));

}  // namespace zor_debug

#endif  // ZOR_DEBUG_SRC_PLAIN_FORMAT_H
