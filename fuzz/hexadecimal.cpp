// Hexadecimal text of every width, beside the C library's.

#include <cstdint>
#include <cstdio>
#include <string>
#include <type_traits>

#include "base/utils/numbers.h"
#include "support/expect.h"
#include "support/input.h"

namespace {

std::string digitsOf(unsigned long long value, bool isUpper) {
    char text[24];
    (void)std::snprintf(text, sizeof(text), isUpper ? "%llX" : "%llx", value);
    return text;
}

template <typename T>
void compare(fuzz::Input* p_input, std::string* p_actual, std::string* p_expected) {
    const bool isUpper = p_input->flag();
    const T value = p_input->number<T>();
    fuzz::expectEqual(tevalon::base::convert2HexStr(value, *p_actual, isUpper), 0, "the status");
    const std::string digits = digitsOf(static_cast<std::make_unsigned_t<T>>(value), isUpper);
    if (digits.size() == 1) p_expected->clear();
    *p_expected += digits;
    fuzz::expectEqual(*p_actual, *p_expected, "the text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    std::string actual = input.text(40);
    std::string expected = actual;
    while (!input.isAtEnd()) {
        using Compare = void (*)(fuzz::Input*, std::string*, std::string*);
        constexpr Compare kWidths[] = {compare<char>,
                                       compare<signed char>,
                                       compare<unsigned char>,
                                       compare<short>,
                                       compare<unsigned short>,
                                       compare<int>,
                                       compare<unsigned int>,
                                       compare<long>,
                                       compare<unsigned long>,
                                       compare<long long>,
                                       compare<unsigned long long>};
        kWidths[input.below(std::size(kWidths))](&input, &actual, &expected);
    }
    return 0;
}
