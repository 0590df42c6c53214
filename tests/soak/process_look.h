// process_look.h: what the process has of the system's at one moment.

#ifndef TESTS_SOAK_PROCESS_LOOK_H
#define TESTS_SOAK_PROCESS_LOOK_H

namespace soak {

struct Look {
    long memoryKib = 0;    ///< Resident.
    long descriptors = 0;  ///< Open.
    long threads = 0;
    double latencyUs = 0;  ///< Median of a synchronous event and its reply.
};

/// Looks now.
Look look();

/// Prints one line of JSON.
void print(const char* when, const Look& look);

/// Waits until the process has as many threads and descriptors as then, up to a minute. Ends of
/// threads are seen by others later than they happen.
bool hasSettled(const Look& then);

}  // namespace soak

#endif  // TESTS_SOAK_PROCESS_LOOK_H
