/* platform_zor_debug.c: a set's own debug-output library, as small as one can be. It says that it
 * is not the substitute. */

#include <stdio.h>

#include "zor_debug/zor_debug.h"

int32_t zorDebugCheckLevelGetFrameAndChunk(DebugLevelRecord* p_record) {
    return p_record->level <= 1000;
}

int zorDebugOutputV(const char* p_format, va_list args) {
    fputs("platform: ", stderr);
    return vfprintf(stderr, p_format, args);
}

int zorDebugOutput0(const char* p_format, ...) {
    va_list args;
    va_start(args, p_format);
    const int written = zorDebugOutputV(p_format, args);
    va_end(args);
    return written;
}
