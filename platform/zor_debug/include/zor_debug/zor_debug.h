/* zor_debug.h: the platform's debug output, as every module of a set calls it.
 *
 * These three functions are all that a module may rely on: a set brings its own
 * libzor-debug.so, and a developer's desk uses the substitute beside this header.
 * What only the substitute can do is in zor_debug_control.h.
 *
 * Thread safety: any function, from any thread, at any time: before main, while the
 * process exits, in a forked child. None of them reports failure to its caller. */

#ifndef ZOR_DEBUG_ZOR_DEBUG_H
#define ZOR_DEBUG_ZOR_DEBUG_H

#include <stdarg.h>
#include <stdint.h>

#if defined(__GNUC__)
#define ZOR_DEBUG_EXPORT __attribute__((visibility("default")))
#define ZOR_DEBUG_PRINTF(formatIndex, firstArgument) \
    __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define ZOR_DEBUG_EXPORT
#define ZOR_DEBUG_PRINTF(formatIndex, firstArgument)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** What is asked of the level check. 12 bytes; the first two fields read together as one
 *  little-endian word are (module << 16) | level. */
typedef struct DebugLevelRecord {
    uint16_t level;  /**< 1 to 65535; smaller is more important. */
    uint16_t module; /**< The asking module's number. */
    uint32_t frame;  /**< 0 from the caller; the platform may write it. */
    uint32_t chunk;  /**< 0 from the caller; the platform may write it. */
} DebugLevelRecord;

/** Returns non-zero when output at @p p_record's level is on for its module, else 0. */
ZOR_DEBUG_EXPORT int32_t zorDebugCheckLevelGetFrameAndChunk(DebugLevelRecord* p_record);

/** Writes the formatted text as it stands: no line end is added. The result means nothing. */
ZOR_DEBUG_EXPORT int zorDebugOutput0(const char* p_format, ...) ZOR_DEBUG_PRINTF(1, 2);

/** As zorDebugOutput0, for a caller that is variadic itself. */
ZOR_DEBUG_EXPORT int zorDebugOutputV(const char* p_format, va_list args) ZOR_DEBUG_PRINTF(1, 0);

#ifdef __cplusplus
}
#endif

#endif /* ZOR_DEBUG_ZOR_DEBUG_H */
