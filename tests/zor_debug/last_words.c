/* last_words.c: a library that the process unloads after the debug library, of which it does not
 * say that it needs it, and that writes while it is unloaded. */

#include <stdlib.h>

#include "zor_debug/zor_debug.h"

__attribute__((destructor)) static void writeLastWords(void) {
    if (getenv("PROBE_LAST_WORDS") != NULL) zorDebugOutput0("last words");
}
