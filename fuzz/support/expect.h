// expect.h: what ends a target, so that the fuzzer keeps the input.

#ifndef FUZZ_SUPPORT_EXPECT_H
#define FUZZ_SUPPORT_EXPECT_H

#include <cstdlib>
#include <iostream>
#include <vector>

namespace fuzz {

template <typename T>
void show(const T& value) {
    std::cerr << value;
}

template <typename T>
void show(const std::vector<T>& values) {
    std::cerr << '{';
    for (const T& value : values) {
        std::cerr << '[';
        show(value);
        std::cerr << ']';
    }
    std::cerr << '}';
}

/// Aborts unless @p isSo, and says what is not.
inline void expect(bool isSo, const char* what) {
    if (isSo) return;
    std::cerr << "not as expected: " << what << std::endl;
    std::abort();
}

/// The same, and shows both.
template <typename Actual, typename Expected>
void expectEqual(const Actual& actual, const Expected& expected, const char* what) {
    if (actual == expected) return;
    show(actual);
    std::cerr << "\n    instead of\n";
    show(expected);
    std::cerr << '\n';
    expect(false, what);
}

}  // namespace fuzz

#endif  // FUZZ_SUPPORT_EXPECT_H
