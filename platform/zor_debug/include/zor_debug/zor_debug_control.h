/* zor_debug_control.h: what only the substitute debug library can do: be told at run time
 * what to show and where, and hand the output to a test.
 *
 * The same settings come from the environment, read once at the first use of the library:
 *
 *   ZOR_DEBUG              levels, see zorDebugSetLevels()
 *   ZOR_DEBUG_LEVELS_FILE  levels of a running process, see zorDebugSetLevelsFile()
 *   ZOR_DEBUG_FILE         destination, see zorDebugSetFile()
 *   ZOR_DEBUG_FILE_BYTES   the most that the file may hold, see zorDebugSetFileLimit()
 *   ZOR_DEBUG_PREFIX       what stands before each line, see zorDebugSetPrefix()
 *
 * A variable that makes no sense is reported once and taken as unset.
 *
 * Lines that cannot be written, for the disk is full or the reader has gone, are counted; a line
 * says how many and why as soon as writing goes again.
 *
 * A write waits for its reader: of a pipe, a socket or a terminal. An exiting process does not for
 * ever: half a second for threads that are still writing, and half a second for a reader of what
 * was kept back of their lines. What has not been taken by then is dropped, and all that follows.
 *
 * Thread safety: any function, from any thread, at any time. None changes errno. */

#ifndef ZOR_DEBUG_ZOR_DEBUG_CONTROL_H
#define ZOR_DEBUG_ZOR_DEBUG_CONTROL_H

#include <stddef.h>
#include <stdint.h>

#include "zor_debug/zor_debug.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Sets which levels are on, for every module.
 *
 *  @param p_text  Items separated by commas: LEVEL for all modules or MODULE=LEVEL for one. A
 *                 level is off, error, warn (or warning), info, debug or a number from 0 (off) to
 *                 65535, each with all that is more important; or errors-only, which is level 1000
 *                 alone. A module is a number. Numbers are decimal, or hexadecimal behind 0x. Names
 *                 may be in capitals, and blanks may stand around items. Up to 64 modules; of
 *                 several items for the same, the last holds. Null or "": error. Not kept.
 *  @return 0, or -1 when the text makes no sense; then nothing is changed or reported. */
ZOR_DEBUG_EXPORT int zorDebugSetLevels(const char* p_text);

/** The highest level that is on for @p module; 0 when none is. */
ZOR_DEBUG_EXPORT uint16_t zorDebugGetLevel(uint16_t module);

/** Names a file whose text is taken as by zorDebugSetLevels() whenever it changes. It is looked at
 *  now, and then while levels are asked for, once a second at most: that makes each such question
 *  dearer, by a reading of the clock. What was read last holds until the file changes, or another
 *  call sets the levels. A file that does not exist changes nothing.
 *
 *  The file has to be a regular file of the process's effective user that nobody else may write,
 *  with less than 4096 bytes. One that is not, or whose text makes no sense, is reported once for
 *  each of its changes, and ignored.
 *
 *  @param p_path  Null or "": none. Not kept.
 *  @return 0, or -1 when the name is too long; then nothing is changed or reported. */
ZOR_DEBUG_EXPORT int zorDebugSetLevelsFile(const char* p_path);

/** Sets where the output goes.
 *
 *  @param p_path  A file to append to, made if need be; each %p in it becomes the process id,
 *                 in a forked child the child's. Null or "": standard error. Not kept.
 *  @return 0, or -1 when the file cannot be opened; then nothing is changed or reported. */
ZOR_DEBUG_EXPORT int zorDebugSetFile(const char* p_path);

/** Limits the file that the output goes to, the present one and those that are set later. Before a
 *  line that would make it longer than that, it is renamed to its name with ".1" behind it, in
 * place of an earlier one of that name, and a new file is begun. A single line may be longer. One
 * process alone may limit a file: with %p in its name each has its own. A forked child that writes
 * to its parent's file does not limit it. Where the file cannot be renamed, that is said once in
 * it, and it grows on. Standard error, and what is no regular file, is not limited.
 *
 *  @param p_text  A number of bytes from 1, K, M or G behind it multiply. Null or "": no limit. Not
 *                 kept.
 *  @return 0, or -1 when the text makes no sense; then nothing is changed or reported. */
ZOR_DEBUG_EXPORT int zorDebugSetFileLimit(const char* p_text);

/** Sets what stands at the beginning of each output line.
 *
 *  @param p_text  Any of these, separated by commas; shown in this order:
 *                 "wall", the date, the time and its distance from UTC, as the time zone has it
 *                 that the process began with: [2026-11-22T20:15:00.123456+01:00];
 *                 "time", monotonic seconds;
 *                 "level", a letter: Always, Error, Warning, Information or Debug, "-" where the
 *                 thread has not asked for a level yet;
 *                 "module", its number;
 *                 "thread", its id and name. The name is looked up for each of a thread's first
 *                 lines; later, in a burst of lines, it may be up to 50 microseconds old.
 *                 Null or "": nothing. Not kept.
 *  @return 0, or -1 when the text makes no sense; then nothing is changed or reported. */
ZOR_DEBUG_EXPORT int zorDebugSetPrefix(const char* p_text);

/** Receives one call's text in place of the output.
 *
 *  @param p_context As given with the capture.
 *  @param p_record  The record that the calling thread last had checked and found on; all
 *                   zero when there is none. Valid during the call.
 *  @param p_text    The formatted text as it stands, with a zero behind it. Valid during the
 *                   call.
 *  @param length    Of the text, in bytes.
 *
 *  Runs on the thread that wrote, several at once if several write. What it writes itself goes
 *  to the output. It must not throw. */
typedef void (*ZorDebugCapture)(void* p_context, const DebugLevelRecord* p_record,
                                const char* p_text, size_t length);

/** Hands all text of the process to @p capture from now on, in place of an earlier one; returns
 *  when no other thread is in an earlier one. Null removes it. @p p_context is passed through, not
 *  owned. Without memory for it there is no capture.
 *
 *  Callable from a capture. It returns at once then, and other threads may still be in the one that
 *  was replaced: only a call from outside says when its context can go. */
ZOR_DEBUG_EXPORT void zorDebugInstallCapture(ZorDebugCapture capture, void* p_context);

/** Sends the text to the output again. Returns when no other thread is in the capture, or in one
 *  that it replaced, nor will enter it. Callable from a capture, as zorDebugInstallCapture() is. */
ZOR_DEBUG_EXPORT void zorDebugRemoveCapture(void);

#ifdef __cplusplus
}
#endif

#endif /* ZOR_DEBUG_ZOR_DEBUG_CONTROL_H */
