#include <charconv>
#include <cmath>
#include <limits>

#include "base/container.h"

namespace tevalon::base::container {
namespace {

template <typename T>
using SameWidthInt =
    std::conditional_t<sizeof(T) == sizeof(int),
                       std::conditional_t<std::is_signed_v<T>, int, unsigned int>,
                       std::conditional_t<std::is_signed_v<T>, long long, unsigned long long>>;

// Cut off towards zero, ending at the limits; what is no number is 0.
template <typename Integer>
Integer saturated(double value) {
    // Powers of two, so exact also where the greatest integer itself is not.
    const double end = std::ldexp(1.0, std::numeric_limits<Integer>::digits);
    const double begin = std::is_signed_v<Integer> ? -end : 0.0;
    if (std::isnan(value)) return 0;
    if (value >= end) return std::numeric_limits<Integer>::max();
    if (value <= begin) return std::numeric_limits<Integer>::min();
    return static_cast<Integer>(value);
}

// The 16-bit integers are the low half of the 32-bit conversion.
template <typename Integer>
Integer fromFloating(double value) {
    if constexpr (sizeof(Integer) == sizeof(short)) {
        using Wide = std::conditional_t<std::is_signed_v<Integer>, int, unsigned int>;
        return static_cast<Integer>(saturated<Wide>(value));
    } else {
        return saturated<Integer>(value);
    }
}

template <typename Number>
void appendInteger(std::string* p_text, Number value) {
    char digits[24];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), value);
    p_text->append(digits, end.ptr);
}

void appendFloating(std::string* p_text, double value) {
    constexpr int kSignificantDigits = 6;
    char digits[32];
    const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), value,
                                                   std::chars_format::general, kSignificantDigits);
    p_text->append(digits, end.ptr);
}

void appendPoint(std::string* p_text, const Point& point) {
    *p_text += '(';
    appendInteger(p_text, point.x);
    *p_text += ',';
    appendInteger(p_text, point.y);
    *p_text += ')';
}

}  // namespace

CommonValue CommonValue::null() {
    CommonValue value;
    value.m_type = kNull;
    return value;
}

CommonValue::CommonValue(const std::string& value) : m_type(kString), m_string(value) {}
CommonValue::CommonValue(const Point& value) : m_type(kPoint), m_point(value) {}
CommonValue::CommonValue(long value) {
    *this = value;
}
CommonValue::CommonValue(unsigned long value) {
    *this = value;
}
CommonValue::CommonValue(const char* text)
    : m_type(kString), m_string(text != nullptr ? text : "") {}
CommonValue::CommonValue(Array value) : m_type(kArray), m_array(std::move(value)) {}

CommonValue::CommonValue(CommonValue&& other) noexcept : m_type(other.m_type) {
    if (m_type == kString) {
        m_string = std::move(other.m_string);
    } else if (m_type == kArray) {
        m_array = std::move(other.m_array);
    } else if (m_type == kPoint) {
        m_point = other.m_point;
    } else if (isScalar()) {
        m_scalar = other.m_scalar;
    }
    other.m_string.clear();
    destroyArray(&other.m_array);
}

CommonValue& CommonValue::operator=(const CommonValue& other) {
    if (this == &other) return *this;
    // Aside first: the other may be an element of this array.
    Array array;
    copyArray(other.m_array, &array);
    m_string = other.m_string;
    m_type = other.m_type;
    m_scalar = other.m_scalar;
    m_reservedZero = other.m_reservedZero;
    m_reservedOnes = other.m_reservedOnes;
    m_point = other.m_point;
    m_array.swap(array);
    destroyArray(&array);
    return *this;
}

CommonValue& CommonValue::operator=(CommonValue&& other) noexcept {
    if (this == &other) return *this;
    // Aside first, as above.
    Array array = std::move(other.m_array);
    other.m_array.clear();
    m_type = other.m_type;
    m_scalar = other.m_scalar;
    m_reservedZero = other.m_reservedZero;
    m_reservedOnes = other.m_reservedOnes;
    m_point = other.m_point;
    m_string = std::move(other.m_string);
    other.m_string.clear();
    m_array.swap(array);
    destroyArray(&array);
    return *this;
}

CommonValue& CommonValue::operator=(const std::string& value) {
    m_string = value;
    m_type = kString;
    return *this;
}

CommonValue& CommonValue::operator=(const Point& value) {
    m_type = kPoint;
    m_point = value;
    return *this;
}

CommonValue& CommonValue::operator=(long value) {
    return *this = static_cast<SameWidthInt<long>>(value);
}

CommonValue& CommonValue::operator=(unsigned long value) {
    return *this = static_cast<SameWidthInt<unsigned long>>(value);
}

CommonValue& CommonValue::operator=(const char* text) {
    m_string = text != nullptr ? text : "";
    m_type = kString;
    return *this;
}

CommonValue& CommonValue::operator=(Array value) {
    m_type = kArray;
    m_array.swap(value);
    destroyArray(&value);
    return *this;
}

void CommonValue::copyNamedSlot(const CommonValue& other) {
    if (isScalar()) {
        m_scalar = other.m_scalar;
    } else if (m_type == kString) {
        m_string = other.m_string;
    } else if (m_type == kPoint) {
        m_point = other.m_point;
    } else if (m_type == kArray) {
        copyArray(other.m_array, &m_array);
    }
}

// Level by level with a list of what is left to do, for arrays may be nested deeper than a
// stack is.
void CommonValue::copyArray(const Array& from, Array* p_to) {
    struct Copy {
        const Array* p_from;
        Array* p_to;
    };
    if (from.empty()) return;
    std::vector<Copy> left = {{&from, p_to}};
    while (!left.empty()) {
        const Copy copy = left.back();
        left.pop_back();
        copy.p_to->resize(copy.p_from->size());
        for (std::size_t i = 0; i < copy.p_from->size(); ++i) {
            const CommonValue& source = (*copy.p_from)[i];
            CommonValue& target = (*copy.p_to)[i];
            target.m_type = source.m_type;
            if (source.m_type != kArray) {
                target.copyNamedSlot(source);
            } else if (!source.m_array.empty()) {
                left.push_back({&source.m_array, &target.m_array});
            }
        }
    }
}

// Element by element from the back, going down into each array that is nested, so that no
// destructor runs inside another one's. The way back up is kept where the first element of the
// lower array had its own array, which takes the place of the lower one: that needs no memory.
void CommonValue::destroyArray(Array* p_array) noexcept {
    Array current;
    current.swap(*p_array);
    std::size_t depth = 0;
    const auto goDown = [&current, &depth](Array& nested) {
        Array lower;
        lower.swap(nested);
        nested.swap(lower.front().m_array);
        lower.front().m_array.swap(current);
        current.swap(lower);
        ++depth;
    };
    while (!current.empty()) {
        const bool isWayUp = depth > 0 && current.size() == 1;
        Array& nested = current.back().m_array;
        if (isWayUp) {
            Array upper;
            upper.swap(nested);
            current.swap(upper);
            --depth;
        } else if (nested.empty()) {
            current.pop_back();
        } else {
            goDown(nested);
        }
    }
}

const CommonValue& CommonValue::undefined() {
    static const CommonValue s_undefined;
    return s_undefined;
}

const CommonValue::Array& CommonValue::array() const {
    return m_type == kArray ? m_array : undefined().m_array;
}

const CommonValue& CommonValue::operator[](std::size_t index) const {
    const Array& elements = array();
    return index < elements.size() ? elements[index] : undefined();
}

template <typename T>
T CommonValue::toInteger() const {
    switch (m_type) {
        case kInt:
            return static_cast<T>(m_scalar.asInt);
        case kUInt:
            return static_cast<T>(m_scalar.asUInt);
        case kShort:
            return static_cast<T>(m_scalar.asShort);
        case kUShort:
            return static_cast<T>(m_scalar.asUShort);
        case kLongLong:
            return static_cast<T>(m_scalar.asLongLong);
        case kULongLong:
            return static_cast<T>(m_scalar.asULongLong);
        case kBool:
            return m_scalar.asBool ? 1 : 0;
        case kFloat:
            return fromFloating<T>(static_cast<double>(m_scalar.asFloat));
        case kDouble:
            return fromFloating<T>(m_scalar.asDouble);
        default:
            return 0;
    }
}

template <typename T>
T CommonValue::toFloating() const {
    switch (m_type) {
        case kUInt:
            return static_cast<T>(m_scalar.asUInt);
        case kLongLong:
            return static_cast<T>(m_scalar.asLongLong);
        case kULongLong:
            return static_cast<T>(m_scalar.asULongLong);
        case kFloat:
            return static_cast<T>(m_scalar.asFloat);
        case kDouble:
            return static_cast<T>(m_scalar.asDouble);
        default:
            return static_cast<T>(toInteger<int>());
    }
}

int CommonValue::convertToInt() const {
    return toInteger<int>();
}

CommonValue::operator bool() const {
    switch (m_type) {
        case kFloat:
            return m_scalar.asFloat != 0.0F;
        case kDouble:
            return m_scalar.asDouble != 0.0;
        default:
            return toInteger<unsigned long long>() != 0;
    }
}

CommonValue::operator short() const {
    return toInteger<short>();
}
CommonValue::operator unsigned short() const {
    return toInteger<unsigned short>();
}
CommonValue::operator unsigned int() const {
    return toInteger<unsigned int>();
}
CommonValue::operator long long() const {
    return toInteger<long long>();
}
CommonValue::operator unsigned long long() const {
    return toInteger<unsigned long long>();
}
CommonValue::operator float() const {
    return toFloating<float>();
}
CommonValue::operator double() const {
    return toFloating<double>();
}
CommonValue::operator Point() const {
    return m_type == kPoint ? m_point : Point{};
}
CommonValue::operator std::string() const {
    return convertToStringType();
}
CommonValue::operator std::vector<unsigned int>() const {
    return convertToVectorT<unsigned int>();
}
CommonValue::operator std::vector<std::string>() const {
    return convertToVectorT<std::string>();
}

void CommonValue::appendScalarText(std::string* p_text) const {
    switch (m_type) {
        case kNull:
            p_text->append("null");
            break;
        case kInt:
        case kShort:
            appendInteger(p_text, toInteger<int>());
            break;
        case kUInt:
        case kUShort:
            appendInteger(p_text, toInteger<unsigned int>());
            break;
        case kLongLong:
            appendInteger(p_text, m_scalar.asLongLong);
            break;
        case kULongLong:
            appendInteger(p_text, m_scalar.asULongLong);
            break;
        case kBool:
            p_text->append(m_scalar.asBool ? "TRUE" : "FALSE");
            break;
        case kFloat:
        case kDouble:
            appendFloating(p_text, toFloating<double>());
            break;
        case kString:
            p_text->append(m_string);
            break;
        case kPoint:
            appendPoint(p_text, m_point);
            break;
        case kUndefined:
            p_text->append("Undefined");
            break;
        case kArray:
            break;
    }
}

std::string CommonValue::convertToStringType() const {
    std::string text;
    if (m_type != kArray) {
        appendScalarText(&text);
        return text;
    }
    struct Level {
        const Array* p_array;
        std::size_t next;
    };
    std::vector<Level> levels = {{&m_array, 0}};
    text += '[';
    while (!levels.empty()) {
        Level& level = levels.back();
        if (level.next == level.p_array->size()) {
            text += ']';
            levels.pop_back();
            continue;
        }
        if (level.next > 0) text += ',';
        const CommonValue& element = (*level.p_array)[level.next++];
        if (element.m_type == kArray) {
            text += '[';
            levels.push_back({&element.m_array, 0});
        } else {
            element.appendScalarText(&text);
        }
    }
    return text;
}

template <>
std::vector<unsigned int> CommonValue::convertToVectorT<unsigned int>() const {
    if (m_type != kArray) return {toInteger<unsigned int>()};
    std::vector<unsigned int> numbers;
    numbers.reserve(m_array.size());
    for (const CommonValue& element : m_array) numbers.push_back(element.toInteger<unsigned int>());
    return numbers;
}

template <>
std::vector<std::string> CommonValue::convertToVectorT<std::string>() const {
    if (m_type != kArray) return {convertToStringType()};
    std::vector<std::string> texts;
    texts.reserve(m_array.size());
    for (const CommonValue& element : m_array) texts.push_back(element.convertToStringType());
    return texts;
}

}  // namespace tevalon::base::container
