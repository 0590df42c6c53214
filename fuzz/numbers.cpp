// Lenient decimal parsing, beside one that counts in the width of the result.

#include "base/utils/numbers.h"

#include <cstdint>
#include <string>
#include <type_traits>

#include "support/expect.h"
#include "support/input.h"

namespace {

using namespace tevalon::base;

constexpr std::int32_t kRefused = -1;

template <typename T>
std::int32_t parseModel(const std::string& text, T* p_value) {
    if (text.empty() || text == "+" || text == "-") return kRefused;
    std::size_t at = 0;
    bool isNegative = false;
    if (text[0] == '+' || text[0] == '-') {
        isNegative = text[0] == '-';
        at = 1;
    }
    std::make_unsigned_t<T> value = 0;
    while (at < text.size() && text[at] >= '0' && text[at] <= '9') {
        value = value * 10U + static_cast<unsigned>(text[at] - '0');
        ++at;
    }
    if (isNegative) value = static_cast<std::make_unsigned_t<T>>(0) - value;
    *p_value = static_cast<T>(value);
    return 0;
}

template <typename T>
void compare(std::int32_t (*parse)(const std::string&, T&), const std::string& text, T before) {
    T actual = before;
    T expected = before;
    fuzz::expectEqual(parse(text, actual), parseModel(text, &expected), "the status");
    fuzz::expectEqual(actual, expected, "the value");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    const auto before = static_cast<signed char>(input.byte());
    const std::string text = input.rest();
    compare<int>(dstoi, text, before);
    compare<long>(dstol, text, before);
    compare<long long>(dstoll, text, before);
    compare<unsigned int>(dstoui, text, static_cast<unsigned int>(before));
    compare<unsigned long>(dstoul, text, static_cast<unsigned long>(before));
    compare<unsigned long long>(dstoull, text, static_cast<unsigned long long>(before));
    return 0;
}
