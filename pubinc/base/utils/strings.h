// strings.h: lower case, suffixes, and splitting.

#ifndef BASE_UTILS_STRINGS_H
#define BASE_UTILS_STRINGS_H

#include <cstdint>
#include <string>
#include <vector>

#include "base/export.h"

namespace tevalon::base {

/// Returns @p text with each byte passed through the C library's tolower(). Any thread.
TEVALON_BASE_EXPORT std::string toLowerCase(const std::string& text);

/// Whether @p path, from its last '.' to its end, equals @p suffix, dot included: "x.tar.gz"
/// has ".gz" and not ".tar.gz". False when both are of one length. Any thread.
TEVALON_BASE_EXPORT bool hasSuffix(const std::string& path, const std::string& suffix);

/// Splits @p text at every character that is one of @p delimiters and appends the pieces, the
/// empty ones too, to @p out. Returns 0; or -1, with @p out untouched, when @p text holds no
/// delimiter. Any thread.
TEVALON_BASE_EXPORT std::int32_t separateStr(const std::string& text, const std::string& delimiters,
                                             std::vector<std::string>& out);

}  // namespace tevalon::base

#endif  // BASE_UTILS_STRINGS_H
