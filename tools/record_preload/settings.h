// settings.h: what the environment asks of the preloaded recorder.

#ifndef TOOLS_RECORD_PRELOAD_SETTINGS_H
#define TOOLS_RECORD_PRELOAD_SETTINGS_H

#include <climits>
#include <cstddef>

namespace tevalon::record_preload {

// TEVALON_RECORD_BYTES   size of the recording; K or M behind the number multiplies. 256K
// TEVALON_RECORD_FILE    where it lies; %p is the process id. /tmp/tevalon-recording.%p
// TEVALON_RECORD_SIGNAL  number of a signal, or HUP, QUIT, USR1, USR2, on which a copy and a state
//                        report are written. None
//
// A wrong setting is reported on standard error, and ignored. In a process that runs with another
// user's rights than those of who started it, all count as unset, and nothing is recorded.

struct Settings {
    std::size_t bytes;
    char file[PATH_MAX];
    int signal;  ///< 0 for none.
};

/// False where nothing is to be recorded.
bool readSettings(Settings* p_settings);

/// A line on standard error, behind "tevalon-record: ".
void complain(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace tevalon::record_preload

#endif  // TOOLS_RECORD_PRELOAD_SETTINGS_H
