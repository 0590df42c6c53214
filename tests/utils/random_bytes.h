// random_bytes.h: test data that is the same in every run.

#ifndef TESTS_UTILS_RANDOM_BYTES_H
#define TESTS_UTILS_RANDOM_BYTES_H

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace tevalon::base::test {

inline std::vector<unsigned char> randomBytes(std::size_t length, std::uint32_t seed) {
    std::mt19937 generator(seed);
    std::vector<unsigned char> bytes(length);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(generator());
    return bytes;
}

}  // namespace tevalon::base::test

#endif  // TESTS_UTILS_RANDOM_BYTES_H
