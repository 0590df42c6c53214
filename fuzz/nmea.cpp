// The checksum of NMEA 0183 sentences, beside one that cuts the sentence out first.

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "base/utils/check_sum.h"
#include "support/expect.h"
#include "support/input.h"

namespace {

std::string model(std::string sentence) {
    if (!sentence.empty() && sentence.front() == '$') sentence.erase(0, 1);
    const std::size_t end = sentence.find_first_of(std::string("\0\r\n*", 4));
    unsigned sum = 0;
    for (const char c : sentence.substr(0, end)) sum ^= static_cast<unsigned char>(c);
    char digits[8];
    (void)std::snprintf(digits, sizeof(digits), "%02X", sum);
    return digits;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    const std::string typed = input.rest();
    // On the heap and of the very size: reading behind the zero is noticed.
    std::vector<unsigned char> sentence(typed.begin(), typed.end());
    sentence.push_back(0);
    sentence.resize(typed.find('\0') < typed.size() ? typed.find('\0') + 1 : sentence.size());
    sentence.shrink_to_fit();
    std::vector<unsigned char> result(3, 0xEE);
    tevalon::base::utils::CheckSum sum;
    fuzz::expect(sum.checksum_NMEA(sentence.data(), result.data()) == result.data(), "the result");
    fuzz::expectEqual(std::string(reinterpret_cast<const char*>(result.data())), model(typed),
                      "the digits");
    fuzz::expect(sum.checksum_NMEA(nullptr, result.data()) == nullptr, "without a sentence");
    fuzz::expect(sum.checksum_NMEA(sentence.data(), nullptr) == nullptr, "without a result");
    return 0;
}
