#include <cerrno>
#include <cstring>
#include <string>

#include "base/logging/blog.h"
#include "base/synchronization/internal/system_error.h"

namespace tevalon::base::internal {

namespace {

std::string described(const char* prefix, int error) {
    char buffer[128];
    // The GNU variant: strerror's text without its shared buffer.
    const char* description = strerror_r(error, buffer, sizeof(buffer));
    std::string text;
    if (prefix != nullptr) text += prefix;
    if (description != nullptr) text += description;
    return text;
}

}  // namespace

void throwSystemError(const char* prefix) {
    throw std::runtime_error(described(prefix, errno));
}

void throwRuntimeError(const char* text) {
    throw std::runtime_error(text);
}

void logGuardFailure(const GuardPlace& place, const std::runtime_error& error) {
    BLOG_EXCEPTION_AT("B-LOG", place.file, place.line, place.function, error);
}

void logGuardFailure(const GuardPlace& place, const char* prefix, int error) {
    logGuardFailure(place, std::runtime_error(described(prefix, error)));
}

}  // namespace tevalon::base::internal
