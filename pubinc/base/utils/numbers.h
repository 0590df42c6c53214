// numbers.h: lenient decimal parsing, and hexadecimal text.

#ifndef BASE_UTILS_NUMBERS_H
#define BASE_UTILS_NUMBERS_H

#include <cstdint>
#include <string>

#include "base/export.h"

namespace tevalon::base {

/// @{
/// The dsto functions read a decimal number with an optional sign from the front of @p text.
/// They stop at the first character that is no digit and do not look behind it: "12ab" is 12,
/// "abc" and "+-5" are 0. Values wrap in the width of the result; in the unsigned ones "-5" is
/// 5 below zero, wrapped.
///
/// Returns 0; or -1, with the output untouched, when @p text is empty or a lone sign. Any
/// thread.
TEVALON_BASE_EXPORT std::int32_t dstoi(const std::string& text, int& value);
TEVALON_BASE_EXPORT std::int32_t dstol(const std::string& text, long& value);
TEVALON_BASE_EXPORT std::int32_t dstoll(const std::string& text, long long& value);
TEVALON_BASE_EXPORT std::int32_t dstoui(const std::string& text, unsigned int& value);
TEVALON_BASE_EXPORT std::int32_t dstoul(const std::string& text, unsigned long& value);
TEVALON_BASE_EXPORT std::int32_t dstoull(const std::string& text, unsigned long long& value);
/// @}

/// Writes @p value, taken as unsigned of its own width, as hexadecimal without prefix or
/// leading zeros. A value below 16 replaces what @p out held by its one digit; a larger one is
/// appended to it. Returns 0. For every integer type but bool and the character types that are
/// wider than a byte; any thread.
///
/// @param value  What is written.
/// @param out    Gets the digits.
/// @param upper  Whether the letters are capitals.
template <typename T>
std::int32_t convert2HexStr(T value, std::string& out, bool upper);

extern template TEVALON_BASE_EXPORT std::int32_t convert2HexStr(char, std::string&, bool);
extern template TEVALON_BASE_EXPORT std::int32_t convert2HexStr(unsigned char, std::string&, bool);
extern template TEVALON_BASE_EXPORT std::int32_t convert2HexStr(int, std::string&, bool);
extern template TEVALON_BASE_EXPORT std::int32_t convert2HexStr(unsigned int, std::string&, bool);
extern template TEVALON_BASE_EXPORT std::int32_t convert2HexStr(long, std::string&, bool);
extern template TEVALON_BASE_EXPORT std::int32_t convert2HexStr(unsigned long, std::string&, bool);
// std::int64_t and its unsigned kin: long on 64-bit systems, long long on 32-bit ones.
extern template TEVALON_BASE_EXPORT std::int32_t convert2HexStr(long long, std::string&, bool);
extern template TEVALON_BASE_EXPORT std::int32_t convert2HexStr(unsigned long long, std::string&,
                                                                bool);

// The digits of a shorter type are those of its unsigned value.
template <>
inline std::int32_t convert2HexStr(signed char value, std::string& out, bool upper) {
    return convert2HexStr(static_cast<unsigned char>(value), out, upper);
}
template <>
inline std::int32_t convert2HexStr(unsigned short value, std::string& out, bool upper) {
    return convert2HexStr<unsigned int>(value, out, upper);
}
template <>
inline std::int32_t convert2HexStr(short value, std::string& out, bool upper) {
    return convert2HexStr(static_cast<unsigned short>(value), out, upper);
}

}  // namespace tevalon::base

#endif  // BASE_UTILS_NUMBERS_H
