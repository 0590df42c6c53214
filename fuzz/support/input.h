// input.h: the fuzzer's bytes as the numbers, choices and texts that a target asks for.

#ifndef FUZZ_SUPPORT_INPUT_H
#define FUZZ_SUPPORT_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace fuzz {

/// Reads from the front, so that an input which grows at its end keeps its meaning. Behind the end
/// all numbers are 0 and all texts empty.
class Input {
public:
    Input(const std::uint8_t* p_data, std::size_t size) : m_data(p_data), m_left(size) {}

    bool isAtEnd() const { return m_left == 0; }

    /// A value of a scalar type, of any bits; not for bool.
    template <typename T>
    T number() {
        T value = {};
        const std::size_t count = std::min(sizeof(value), m_left);
        if (count > 0) std::memcpy(&value, m_data, count);
        skip(count);
        return value;
    }

    std::uint8_t byte() { return number<std::uint8_t>(); }

    bool flag() { return (byte() & 1U) != 0; }

    /// From 0 to @p limit - 1; of one byte, where that is enough.
    std::size_t below(std::size_t limit) {
        const std::size_t any = limit <= 256 ? byte() : number<std::uint16_t>();
        return limit == 0 ? 0 : any % limit;
    }

    /// Of at most @p most bytes, any of which may be zero.
    std::string text(std::size_t most) {
        const std::size_t count = std::min(below(most + 1), m_left);
        const std::string text(reinterpret_cast<const char*>(m_data), count);
        skip(count);
        return text;
    }

    /// The same, up to the first zero byte.
    std::string textWithoutZero(std::size_t most) {
        const std::string whole = text(most);
        return whole.substr(0, whole.find('\0'));
    }

    std::string rest() {
        const std::string text(reinterpret_cast<const char*>(m_data), m_left);
        skip(m_left);
        return text;
    }

private:
    void skip(std::size_t count) {
        m_data += count;
        m_left -= count;
    }

    const std::uint8_t* m_data;
    std::size_t m_left;
};

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_INPUT_H
