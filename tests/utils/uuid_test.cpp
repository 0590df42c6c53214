#include "base/utils/uuid.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "base/logging/log_level.h"
#include "base/utils.h"
#include "support/fault_injection.h"
#include "support/log_capture.h"
#include "support/threads.h"

namespace {

using test::Call;
using test::LogCapture;
using test::LogEntry;
using tevalon::base::generateUUID;
using tevalon::base::kLogError;

using Bytes = std::array<unsigned char, 16>;
using Generator = test::ReplaceCall<int(unsigned char*)>;
using Allocator = test::ReplaceCall<void*(std::size_t)>;

constexpr std::size_t kBufferBytes = 256;

template <typename T>
T nativeNumber(const Bytes& bytes, std::size_t first) {
    T number;
    std::memcpy(&number, &bytes[first], sizeof number);
    return number;
}

std::string expectedText(const Bytes& bytes) {
    char text[64];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-", nativeNumber<std::uint32_t>(bytes, 0),
                  nativeNumber<std::uint16_t>(bytes, 4), nativeNumber<std::uint16_t>(bytes, 6));
    std::string result = text;
    for (std::size_t i = 8; i < bytes.size(); ++i) {
        std::snprintf(text, sizeof text, "%02X", bytes[i]);
        result += text;
    }
    return result;
}

/// An identifier made of given bytes.
std::string generateFrom(const Bytes& bytes) {
    Generator generator(Call::UuidGenerate, [&](unsigned char* p_bytes) {
        std::memcpy(p_bytes, bytes.data(), bytes.size());
        return 0;
    });
    std::string text = generateUUID();
    EXPECT_EQ(generator.hits(), 1);
    return text;
}

TEST(GenerateUuidTest, ShowsTheFirstGroupsAsNativeNumbers) {
    const Bytes bytes = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF,
                         0x00, 0x0A, 0xB0, 0x10, 0xFE, 0x0F, 0xF0, 0xFF};

    const std::string text = generateFrom(bytes);

    EXPECT_EQ(text, expectedText(bytes));
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    EXPECT_EQ(text, "67452301-AB89-EFCD-000AB010FE0FF0FF");
#endif
}

TEST(GenerateUuidTest, KeepsLeadingZeros) {
    Bytes small{};
    small[3] = small[5] = small[7] = small[15] = 1;
    Bytes full;
    full.fill(0xFF);

    EXPECT_EQ(generateFrom(Bytes{}), "00000000-0000-0000-0000000000000000");
    EXPECT_EQ(generateFrom(full), "FFFFFFFF-FFFF-FFFF-FFFFFFFFFFFFFFFF");
    EXPECT_EQ(generateFrom(small), expectedText(small));
}

TEST(GenerateUuidTest, IsNewEveryTime) {
    const std::regex format("[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{16}");

    const std::string first = generateUUID();
    const std::string second = generateUUID();

    EXPECT_TRUE(std::regex_match(first, format)) << first;
    EXPECT_TRUE(std::regex_match(second, format)) << second;
    EXPECT_NE(first, second);
}

TEST(GenerateUuidTest, IsNewInEveryOfManyThreads) {
    constexpr int kThreads = 8;
    constexpr std::size_t kEach = 500;
    std::mutex mutex;
    std::set<std::string> all;

    test::runAtOnce(kThreads, [&](int) {
        std::vector<std::string> mine;
        for (std::size_t i = 0; i < kEach; ++i) mine.push_back(generateUUID());
        const std::lock_guard<std::mutex> lock(mutex);
        all.insert(mine.begin(), mine.end());
    });

    EXPECT_EQ(all.size(), kThreads * kEach);
    for (const std::string& text : all) EXPECT_EQ(text.size(), 35U);
}

TEST(GenerateUuidTest, IsEmptyWhenMemoryRunsOut) {
    if (!test::isSupported(Call::Malloc)) GTEST_SKIP() << "malloc is the sanitizer's";
    LogCapture log;
    std::string text = "before";
    long refusals = 0;
    {
        Allocator allocator(Call::Malloc, [&](std::size_t size) -> void* {
            if (size != kBufferBytes) return std::malloc(size);
            ++refusals;
            errno = ENOMEM;
            return nullptr;
        });
        text = generateUUID();
    }

    EXPECT_EQ(text, "");
    EXPECT_EQ(refusals, 1);
    const std::vector<LogEntry> expected = {
        {kLogError, "[B-LOG] utils.cpp:#:generateUUID(): Fail to allocate buffer.\n"}};
    EXPECT_EQ(log.entriesWithoutLineNumbers(), expected);
}

TEST(GenerateUuidTest, LogsNothingWhenAllGoesWell) {
    LogCapture log;

    (void)generateUUID();

    EXPECT_TRUE(log.entries().empty());
}

}  // namespace
