#include <cerrno>
#include <cstring>
#include <string>

#include "base/logging/blog.h"
#include "base/synchronization/internal/system_error.h"

namespace tevalon::base::internal {

void throwSystemError(const char* prefix) {
    const int error = errno;
    char buffer[128];
    // The GNU variant: strerror's text without its shared buffer.
    const char* description = strerror_r(error, buffer, sizeof(buffer));
    std::string text;
    if (prefix != nullptr) text += prefix;
    if (description != nullptr) text += description;
    throw std::runtime_error(text);
}

void logGuardFailure(const GuardPlace& place, const std::runtime_error& error) {
    BLOG_EXCEPTION_AT("B-LOG", place.file, place.line, place.function, error);
}

}  // namespace tevalon::base::internal
