// common_value.h: a value of one of many kinds, which converts to any of them.

#ifndef BASE_CONTAINER_COMMON_VALUE_H
#define BASE_CONTAINER_COMMON_VALUE_H

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/container/point.h"
#include "base/export.h"

namespace tevalon::base::container {

class CommonValue;

namespace internal {

template <typename T>
inline constexpr bool kIsText =
    std::is_same_v<std::decay_t<T>, const char*> || std::is_same_v<std::decay_t<T>, char*>;

/// What a value is compared with as with a value made of it. No enumerations and no other pointers:
/// the operators are found for Type and for pointers to values too, and would make what those
/// compare with ambiguous.
template <typename T>
using ComparedByValue =
    std::enable_if_t<std::is_arithmetic_v<T> || kIsText<T> || std::is_same_v<T, std::string> ||
                     std::is_same_v<T, Point> || std::is_same_v<T, std::vector<CommonValue>>>;

}  // namespace internal

/// A tagged value: a number, a bool, a text, a Point, an array of values, null, or nothing yet.
///
/// Conversions never fail. What is no number or bool converts to 0 and false: texts are not
/// parsed. Integers are cut to the width asked for; floating values are cut off towards zero
/// and end at the limits of the integer asked for (16-bit integers are the low half of the
/// 32-bit one), and what is no number is 0.
///
/// A value holds its kinds side by side: an assignment sets the kind and its own slot, and
/// leaves the others as they are, out of sight.
///
/// Arrays nest to any depth; copying, printing and destroying them need no stack for it.
///
/// Thread-safety: distinct objects from any thread; one object, if any thread changes it, from
/// one thread at a time. Allocation failures are std::bad_alloc.
class TEVALON_BASE_EXPORT CommonValue {
public:
    /// The kinds, by the C++ type that each holds.
    enum Type : std::int32_t {
        kNull = 0,         ///< No value, on purpose.
        kInt = 1,          ///< int
        kUInt = 2,         ///< unsigned int
        kShort = 3,        ///< short
        kUShort = 4,       ///< unsigned short
        kLongLong = 5,     ///< long long
        kULongLong = 6,    ///< unsigned long long
        kBool = 7,         ///< bool
        kFloat = 8,        ///< float
        kDouble = 9,       ///< double
        kString = 10,      ///< std::string
        kPoint = 11,       ///< Point
        kArray = 12,       ///< Array
        kUndefined = 255,  ///< Nothing assigned yet.
    };

    /// What a value of kind kArray holds.
    using Array = std::vector<CommonValue>;

    // What is done with numbers all the time is inline; what may allocate is not.

    /// Undefined.
    CommonValue() = default;
    /// A null.
    static CommonValue null();

    /// @{
    /// Of the kind of its argument, which is copied.
    CommonValue(bool value) { setScalar(kBool, &Scalar::asBool, value); }
    CommonValue(short value) { setScalar(kShort, &Scalar::asShort, value); }
    CommonValue(unsigned short value) { setScalar(kUShort, &Scalar::asUShort, value); }
    CommonValue(int value) { setScalar(kInt, &Scalar::asInt, value); }
    CommonValue(unsigned int value) { setScalar(kUInt, &Scalar::asUInt, value); }
    CommonValue(long long value) { setScalar(kLongLong, &Scalar::asLongLong, value); }
    CommonValue(unsigned long long value) { setScalar(kULongLong, &Scalar::asULongLong, value); }
    CommonValue(float value) { setScalar(kFloat, &Scalar::asFloat, value); }
    CommonValue(double value) { setScalar(kDouble, &Scalar::asDouble, value); }
    CommonValue(const std::string& value);
    CommonValue(const Point& value);
    CommonValue(Array value);
    /// @}
    /// Of the kind of the same width: kInt or kLongLong.
    CommonValue(long value);
    /// Likewise.
    CommonValue(unsigned long value);
    /// A text; null is the empty one.
    CommonValue(const char* text);
    /// An array of what is listed: `CommonValue::list({1, "two", CommonValue::list({3.0})})`.
    static CommonValue list(std::initializer_list<CommonValue> values) {
        return CommonValue(Array(values));
    }

    /// Copies what the tag names, and nothing that is out of sight.
    CommonValue(const CommonValue& other) : m_type(other.m_type) {
        if (isScalar()) {
            m_scalar = other.m_scalar;
        } else {
            copyNamedSlot(other);
        }
    }
    /// Leaves @p other its kind, with an empty text or array.
    CommonValue(CommonValue&& other) noexcept;
    ~CommonValue() {
        if (!m_array.empty()) destroyArray(&m_array);
    }

    /// Copies everything.
    CommonValue& operator=(const CommonValue& other);
    /// Leaves @p other its kind, with an empty text and array.
    CommonValue& operator=(CommonValue&& other) noexcept;

    /// @{
    /// Sets kind and value, as the constructor with the same argument does.
    CommonValue& operator=(bool value) { return setScalar(kBool, &Scalar::asBool, value); }
    CommonValue& operator=(short value) { return setScalar(kShort, &Scalar::asShort, value); }
    CommonValue& operator=(unsigned short value) {
        return setScalar(kUShort, &Scalar::asUShort, value);
    }
    CommonValue& operator=(int value) { return setScalar(kInt, &Scalar::asInt, value); }
    CommonValue& operator=(unsigned int value) { return setScalar(kUInt, &Scalar::asUInt, value); }
    CommonValue& operator=(long long value) {
        return setScalar(kLongLong, &Scalar::asLongLong, value);
    }
    CommonValue& operator=(unsigned long long value) {
        return setScalar(kULongLong, &Scalar::asULongLong, value);
    }
    CommonValue& operator=(float value) { return setScalar(kFloat, &Scalar::asFloat, value); }
    CommonValue& operator=(double value) { return setScalar(kDouble, &Scalar::asDouble, value); }
    CommonValue& operator=(const std::string& value);
    CommonValue& operator=(const Point& value);
    CommonValue& operator=(long value);
    CommonValue& operator=(unsigned long value);
    CommonValue& operator=(const char* text);
    CommonValue& operator=(Array value);
    /// @}

    /// The kind.
    Type type() const { return m_type; }

    /// The elements; none unless this is an array. Valid until the value changes.
    const Array& array() const;

    /// The element at @p index; an undefined value where there is none, or where this is no array.
    /// Valid until the value changes.
    const CommonValue& operator[](std::size_t index) const;

    /// @{
    /// The elements of an array in order, none of what is no array:
    /// `for (const CommonValue& element : value)`. As array(), in all.
    Array::const_iterator begin() const { return array().begin(); }
    Array::const_iterator end() const { return array().end(); }
    std::size_t size() const { return array().size(); }
    /// @}

    /// @{
    /// Equal are numbers of the same value, whichever of the number kinds they are; and otherwise
    /// values of one kind with the same content, arrays element by element. A bool is no number,
    /// NaN equals nothing, and what is out of sight does not count. Needs no stack for nested
    /// arrays, but memory: std::bad_alloc.
    friend bool operator==(const CommonValue& left, const CommonValue& right) {
        return left.isEqual(right);
    }
    friend bool operator!=(const CommonValue& left, const CommonValue& right) {
        return !left.isEqual(right);
    }
    // Beside what converts to a value; the conversions of CommonValue itself would be as good.
    template <typename T, typename = internal::ComparedByValue<T>>
    friend bool operator==(const CommonValue& left, const T& right) {
        return left.isEqual(CommonValue(right));
    }
    template <typename T, typename = internal::ComparedByValue<T>>
    friend bool operator!=(const CommonValue& left, const T& right) {
        return !left.isEqual(CommonValue(right));
    }
    template <typename T, typename = internal::ComparedByValue<T>>
    friend bool operator==(const T& left, const CommonValue& right) {
        return right.isEqual(CommonValue(left));
    }
    template <typename T, typename = internal::ComparedByValue<T>>
    friend bool operator!=(const T& left, const CommonValue& right) {
        return !right.isEqual(CommonValue(left));
    }
    /// @}

    /// @{
    /// The value as another type, by the rules above.
    operator bool() const;
    operator short() const;
    operator unsigned short() const;
    operator int() const { return m_type == kInt ? m_scalar.asInt : convertToInt(); }
    operator unsigned int() const;
    operator long long() const;
    operator unsigned long long() const;
    operator float() const;
    operator double() const;
    /// @}
    /// {0, 0} unless this is a Point.
    operator Point() const;
    /// convertToStringType().
    operator std::string() const;
    /// convertToVectorT<unsigned int>().
    operator std::vector<unsigned int>() const;
    /// convertToVectorT<std::string>().
    operator std::vector<std::string>() const;

    /// "null", a number, "TRUE", "1.5", the text itself, "(3,-4)", "[1,[2,3]]", "Undefined".
    /// Floating values have six significant digits. The locale changes nothing.
    std::string convertToStringType() const;

    /// Each element converted to T, or, of what is no array, this value alone. For unsigned
    /// int and std::string.
    template <typename T>
    std::vector<T> convertToVectorT() const;

private:
    union Scalar {
        std::uint64_t bits;
        bool asBool;
        short asShort;
        unsigned short asUShort;
        int asInt;
        unsigned int asUInt;
        long long asLongLong;
        unsigned long long asULongLong;
        float asFloat;
        double asDouble;
    };

    bool isScalar() const { return m_type >= kInt && m_type <= kDouble; }

    template <typename Number>
    CommonValue& setScalar(Type type, Number Scalar::*slot, Number value) {
        m_type = type;
        m_scalar.*slot = value;
        return *this;
    }

    bool isInteger() const { return m_type >= kInt && m_type <= kULongLong; }
    bool isFloating() const { return m_type == kFloat || m_type == kDouble; }
    bool isNegativeInteger() const {
        return m_type != kUInt && m_type != kUShort && m_type != kULongLong &&
               static_cast<long long>(*this) < 0;
    }
    bool isEqual(const CommonValue& other) const;
    bool isEqualInteger(const CommonValue& integer) const;
    bool isEqualLeaf(const CommonValue& other) const;

    TEVALON_BASE_LOCAL static const CommonValue& undefined();
    int convertToInt() const;
    template <typename T>
    TEVALON_BASE_LOCAL T toInteger() const;
    template <typename T>
    TEVALON_BASE_LOCAL T toFloating() const;
    TEVALON_BASE_LOCAL void appendScalarText(std::string* p_text) const;
    void copyNamedSlot(const CommonValue& other);
    TEVALON_BASE_LOCAL static void copyArray(const Array& from, Array* p_to);
    static void destroyArray(Array* p_array) noexcept;

    Type m_type = kUndefined;
    alignas(8) Scalar m_scalar = {0};
    // Carried along for those who look at the object from outside; nothing here reads them.
    std::int64_t m_reservedZero = 0;
    std::int64_t m_reservedOnes = -1;
    Point m_point;
    std::string m_string;
    Array m_array;
};

// Equality is in the header, for the library itself has no use for it.

/// Whether this number is that integer, exactly.
inline bool CommonValue::isEqualInteger(const CommonValue& integer) const {
    const bool isNegative = integer.isNegativeInteger();
    const auto bits = static_cast<unsigned long long>(integer);
    if (isInteger()) {
        return isNegative == isNegativeInteger() && bits == static_cast<unsigned long long>(*this);
    }
    constexpr double kTwoTo63 = 9223372036854775808.0;
    const auto value = static_cast<double>(*this);
    if (isNegative) {
        const auto signedBits = static_cast<long long>(integer);
        return value >= -kTwoTo63 && value < 0 && static_cast<long long>(value) == signedBits &&
               static_cast<double>(signedBits) == value;
    }
    return value >= 0 && value < 2 * kTwoTo63 && static_cast<unsigned long long>(value) == bits &&
           static_cast<double>(bits) == value;
}

/// Equality of what is not an array on both sides.
inline bool CommonValue::isEqualLeaf(const CommonValue& other) const {
    if (other.isInteger() && (isInteger() || isFloating())) return isEqualInteger(other);
    if (isInteger() && other.isFloating()) return other.isEqualInteger(*this);
    if (isFloating() && other.isFloating()) {
        return static_cast<double>(*this) == static_cast<double>(other);
    }
    if (m_type != other.m_type) return false;
    switch (m_type) {
        case kBool:
            return m_scalar.asBool == other.m_scalar.asBool;
        case kString:
            return m_string == other.m_string;
        case kPoint:
            return m_point.x == other.m_point.x && m_point.y == other.m_point.y;
        default:
            return true;
    }
}

// With a list of the arrays that are still to be compared: they may be nested deeper than a stack
// is.
inline bool CommonValue::isEqual(const CommonValue& other) const {
    const auto areArrays = [](const CommonValue& left, const CommonValue& right) {
        return left.m_type == kArray && right.m_type == kArray;
    };
    if (!areArrays(*this, other)) return isEqualLeaf(other);
    std::vector<std::pair<const Array*, const Array*>> rest = {{&m_array, &other.m_array}};
    while (!rest.empty()) {
        const auto [p_left, p_right] = rest.back();
        rest.pop_back();
        if (p_left->size() != p_right->size()) return false;
        for (std::size_t i = 0; i < p_left->size(); ++i) {
            const CommonValue& left = (*p_left)[i];
            const CommonValue& right = (*p_right)[i];
            if (areArrays(left, right)) {
                rest.push_back({&left.m_array, &right.m_array});
            } else if (!left.isEqualLeaf(right)) {
                return false;
            }
        }
    }
    return true;
}

template <>
TEVALON_BASE_EXPORT std::vector<unsigned int> CommonValue::convertToVectorT<unsigned int>() const;
template <>
TEVALON_BASE_EXPORT std::vector<std::string> CommonValue::convertToVectorT<std::string>() const;

}  // namespace tevalon::base::container

#endif  // BASE_CONTAINER_COMMON_VALUE_H
