// without_exceptions.h: parts of a client that is built with -fno-exceptions and -fno-rtti.

#ifndef TESTS_HEADERS_WITHOUT_EXCEPTIONS_H
#define TESTS_HEADERS_WITHOUT_EXCEPTIONS_H

#include <pthread.h>

#include <mutex>
#include <string>

namespace without_exceptions {

/// Each holds the mutex for a moment, by each of the three guards.
void lockByEachGuard(pthread_mutex_t* p_mutex);
void lockByEachGuard(std::mutex* p_mutex);

/// Uses each family: a hub and an event, a timer, a task, a thread, a singleton, values, an option.
/// @return What it did, in words.
std::string useEachFamily();

}  // namespace without_exceptions

#endif  // TESTS_HEADERS_WITHOUT_EXCEPTIONS_H
