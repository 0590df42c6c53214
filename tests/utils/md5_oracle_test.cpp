#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>

#include "base/utils/md5.h"
#include "md5_reference.h"
#include "random_bytes.h"

// MD5 against OpenSSL's.

namespace tevalon::base::utils {
namespace {

using test::randomBytes;

/// OpenSSL's digest, 16 raw bytes.
std::string oracle(const unsigned char* p_data, std::size_t length) {
    unsigned char digest[16];
    EXPECT_EQ(EVP_Digest(p_data, length, digest, nullptr, EVP_md5(), nullptr), 1);
    return std::string(digest, digest + sizeof digest);
}

TEST(Md5OracleTest, TheReferenceOfTheOtherTestsAgrees) {
    const auto data = randomBytes(300, 1);
    for (std::size_t length = 0; length <= data.size(); ++length) {
        ASSERT_EQ(test::md5Digest(data.data(), length), oracle(data.data(), length)) << length;
    }
}

TEST(Md5OracleTest, AgreesOnRandomInputsAndSplits) {
    const auto data = randomBytes(8192, 3);
    std::mt19937 generator(4);
    const auto below = [&](unsigned int limit) {
        return static_cast<unsigned int>(generator() % limit);
    };
    for (int i = 0; i < 4000; ++i) {
        const unsigned int length = below(i % 10 == 0 ? 8000 : 400);
        const unsigned int longestPiece = 1 + below(200);
        const unsigned char* p = data.data() + below(192);
        MD5 md5;
        for (unsigned int done = 0; done < length;) {
            const unsigned int piece = std::min(below(longestPiece + 1), length - done);
            md5.update(p + done, piece);
            done += piece;
        }
        ASSERT_EQ(md5.finalize().binDigest(), oracle(p, length))
            << length << " bytes, pieces up to " << longestPiece;
    }
}

TEST(Md5OracleTest, LengthsBeyondTheLowWordOfTheCountAreRight) {
#if !defined(__OPTIMIZE__) || !defined(__LP64__)
    GTEST_SKIP() << "takes too long where the library is not optimised, or emulated";
#else
    // Half a gigabyte of zeros, all of them the kernel's one page of them.
    constexpr std::size_t kLength = (std::size_t{1} << 29) + 5;
    void* p_map = mmap(nullptr, kLength, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(p_map, MAP_FAILED);
    const auto* p_zeros = static_cast<const unsigned char*>(p_map);

    MD5 md5;
    md5.update(p_zeros, kLength);
    EXPECT_EQ(md5.finalize().binDigest(), oracle(p_zeros, kLength));
    munmap(p_map, kLength);
#endif
}

}  // namespace
}  // namespace tevalon::base::utils
