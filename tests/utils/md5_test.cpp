#include "base/utils/md5.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "guarded_bytes.h"
#include "md5_reference.h"
#include "random_bytes.h"

namespace tevalon::base::utils {
namespace {

using test::md5Digest;
using test::randomBytes;

/// An MD5 object laid open: the fields in their order, each as wide as clients rely on.
struct Fields {
    bool finalized;
    unsigned char buffer[64];
    std::uint32_t count[2];
    std::uint32_t state[4];
    unsigned char digest[16];
};

static_assert(std::is_trivially_copyable_v<MD5>);
static_assert(std::is_standard_layout_v<MD5>);
static_assert(sizeof(MD5) == sizeof(Fields) && alignof(MD5) == alignof(Fields));
static_assert(offsetof(Fields, buffer) == 1 && offsetof(Fields, count) == 68 &&
              offsetof(Fields, state) == 76 && offsetof(Fields, digest) == 92 &&
              sizeof(Fields) == 108);

Fields fieldsOf(const MD5& md5) {
    Fields fields;
    std::memcpy(&fields, &md5, sizeof fields);
    return fields;
}

void setFields(MD5& md5, const Fields& fields) {
    std::memcpy(static_cast<void*>(&md5), &fields, sizeof fields);
}

std::string asText(const unsigned char* bytes, std::size_t length) {
    return std::string(bytes, bytes + length);
}

std::string hexOf(const std::string& bytes) {
    std::string hex;
    for (const char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(byte));
        hex += digits;
    }
    return hex;
}

std::string binDigestOf(const unsigned char* data, unsigned int length) {
    MD5 md5;
    md5.update(data, length);
    return md5.finalize().binDigest();
}

/// Catches what is printed to standard output through std::cout.
class CoutCapture {
public:
    CoutCapture() : m_previous(std::cout.rdbuf(m_text.rdbuf())) {}
    ~CoutCapture() { std::cout.rdbuf(m_previous); }
    CoutCapture(const CoutCapture&) = delete;
    CoutCapture& operator=(const CoutCapture&) = delete;

    std::string text() const { return m_text.str(); }

private:
    std::ostringstream m_text;
    std::streambuf* m_previous;
};

TEST(Md5Test, GivesTheDigestsOfTheRfc) {
    // RFC 1321, A.5.
    EXPECT_EQ(MD5(std::string()).hexDigest(), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(MD5(std::string("a")).hexDigest(), "0cc175b9c0f1b6a831c399e269772661");
    EXPECT_EQ(MD5(std::string("abc")).hexDigest(), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(MD5(std::string("message digest")).hexDigest(), "f96b697d7cb7938d525a2f31aaf161d0");
    EXPECT_EQ(MD5(std::string("abcdefghijklmnopqrstuvwxyz")).hexDigest(),
              "c3fcd3d76192e4007dfb496cca67e13b");
    EXPECT_EQ(MD5(std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"))
                  .hexDigest(),
              "d174ab98d277d9f5a5611c2c9f419d9f");
    EXPECT_EQ(MD5(std::string("12345678901234567890123456789012345678901234567890123456789012345678"
                              "901234567890"))
                  .hexDigest(),
              "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5Test, AnOpenObjectHasNoDigest) {
    MD5 md5;
    std::ostringstream out;

    md5.update("abc", 3);
    out << md5 << MD5();

    EXPECT_EQ(md5.hexDigest(), "");
    EXPECT_EQ(md5.binDigest(), "");
    EXPECT_EQ(md5.md5(), "");
    EXPECT_EQ(out.str(), "");
}

TEST(Md5Test, GivesTheDigestInThreeForms) {
    const MD5 md5(std::string("abc"));

    EXPECT_EQ(md5.hexDigest(), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5.md5(), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5.binDigest(), "\x90\x01\x50\x98\x3c\xd2\x4f\xb0\xd6\x96\x3f\x7d\x28\xe1\x7f\x72");
}

TEST(Md5Test, TheRawDigestKeepsZeroBytes) {
    const MD5 md5(std::string("page-146541"));

    EXPECT_EQ(md5.binDigest().size(), 16U);
    EXPECT_EQ(md5.binDigest().substr(0, 2), std::string(2, '\0'));
    EXPECT_EQ(md5.hexDigest(), "00003813788697f2e413f49e064a4671");
}

TEST(Md5Test, TheStringMayHoldAnyBytes) {
    const auto data = randomBytes(1000, 1);
    EXPECT_EQ(MD5(asText(data.data(), data.size())).binDigest(),
              md5Digest(data.data(), data.size()));
    EXPECT_EQ(MD5(std::string(3, '\0')).binDigest(),
              md5Digest(reinterpret_cast<const unsigned char*>("\0\0\0"), 3));
}

TEST(Md5Test, BothPointerTypesHashTheSame) {
    MD5 ofChars;
    MD5 ofBytes;
    ofChars.update("\xFF\x80 text", 7);
    ofBytes.update(reinterpret_cast<const unsigned char*>("\xFF\x80 text"), 7);

    EXPECT_EQ(ofChars.finalize().hexDigest(), ofBytes.finalize().hexDigest());
}

TEST(Md5Test, AgreesWithTheReferenceAtEveryLengthAndAlignment) {
    const auto data = randomBytes(300 + 64, 2);
    for (unsigned int length = 0; length <= 300; ++length) {
        for (std::size_t offset = 0; offset < 8; ++offset) {
            const unsigned char* p = data.data() + offset;
            ASSERT_EQ(binDigestOf(p, length), md5Digest(p, length)) << length << " at " << offset;
        }
    }
}

TEST(Md5Test, EverySplitInTwoGivesTheSame) {
    const auto data = randomBytes(200, 5);
    const std::string expected = md5Digest(data.data(), 200);
    for (unsigned int split = 0; split <= 200; ++split) {
        MD5 md5;
        md5.update(data.data(), split);
        md5.update(data.data() + split, 200 - split);
        ASSERT_EQ(md5.finalize().binDigest(), expected) << split;
    }
}

TEST(Md5Test, PiecesAroundTheBlockSizeGiveTheSame) {
    const auto data = randomBytes(1000, 6);
    const std::string expected = md5Digest(data.data(), 1000);
    for (const unsigned int piece : {1U, 63U, 64U, 65U}) {
        MD5 md5;
        for (unsigned int done = 0; done < 1000; done += piece) {
            md5.update(data.data() + done, std::min(piece, 1000 - done));
        }
        EXPECT_EQ(md5.finalize().binDigest(), expected) << piece;
    }
}

TEST(Md5Test, FiftyFiveBytesPadToOneBlockAndFiftySixToTwo) {
    test::Md5Block block = {};
    block.fill('x');
    const std::string text(56, 'x');

    test::Md5Block oneBlock = block;
    oneBlock[55] = 0x80;
    for (std::size_t i = 56; i < 64; ++i) oneBlock[i] = 0;
    oneBlock[56] = static_cast<unsigned char>(55 * 8 & 0xFF);
    oneBlock[57] = 55 * 8 >> 8;
    const test::Md5State ofOne = test::md5Compressed(test::kMd5Start, oneBlock);

    test::Md5Block first = block;
    first[56] = 0x80;
    for (std::size_t i = 57; i < 64; ++i) first[i] = 0;
    test::Md5Block second = {};
    second[56] = static_cast<unsigned char>(56 * 8 & 0xFF);
    second[57] = 56 * 8 >> 8;
    const test::Md5State ofTwo =
        test::md5Compressed(test::md5Compressed(test::kMd5Start, first), second);

    const Fields fiftyFive = fieldsOf(MD5(text.substr(1)));
    const Fields fiftySix = fieldsOf(MD5(text));
    EXPECT_EQ(std::memcmp(fiftyFive.state, ofOne.data(), sizeof ofOne), 0);
    EXPECT_EQ(std::memcmp(fiftySix.state, ofTwo.data(), sizeof ofTwo), 0);
}

TEST(Md5Test, NothingIsNeededOfANullInputWithoutLength) {
    MD5 md5;
    md5.update(static_cast<unsigned char const*>(nullptr), 0);
    md5.update(static_cast<char const*>(nullptr), 0);
    md5.update("abc", 3);
    md5.update("", 0);

    EXPECT_EQ(md5.finalize().hexDigest(), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5Test, ReadsNothingBesideTheInput) {
    const test::GuardedBytes guarded(4096);
    const auto data = randomBytes(guarded.size(), 7);
    std::memcpy(guarded.begin(), data.data(), data.size());
    for (unsigned int length = 1; length <= 300; ++length) {
        ASSERT_EQ(binDigestOf(guarded.begin(), length), md5Digest(data.data(), length));
        ASSERT_EQ(binDigestOf(guarded.end() - length, length),
                  md5Digest(data.data() + data.size() - length, length));
    }
}

TEST(Md5Test, FinalizeReturnsTheObjectAndComputesOnce) {
    MD5 md5;
    md5.update("abc", 3);

    MD5& first = md5.finalize();
    MD5& second = md5.finalize();

    EXPECT_EQ(&first, &md5);
    EXPECT_EQ(&second, &md5);
    EXPECT_EQ(md5.hexDigest(), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5Test, UpdatesAfterFinalizeChangeTheBufferButNotTheDigest) {
    MD5 md5(std::string("abc"));

    md5.update("more", 4);
    md5.finalize();

    const Fields fields = fieldsOf(md5);
    EXPECT_EQ(md5.hexDigest(), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(fields.count[0], 32U);
    EXPECT_EQ(std::memcmp(fields.buffer, "more", 4), 0);
}

TEST(Md5Test, InitStartsAnotherMessage) {
    MD5 md5;
    md5.update("something else", 14);
    md5.init();
    EXPECT_EQ(md5.finalize().hexDigest(), "d41d8cd98f00b204e9800998ecf8427e");

    md5.init();
    EXPECT_EQ(md5.hexDigest(), "");
    md5.update("abc", 3);
    EXPECT_EQ(md5.finalize().hexDigest(), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(Md5Test, InitLeavesBufferAndDigestAsTheyAre) {
    MD5 md5(std::string("abc"));
    md5.update("left over", 9);
    const Fields before = fieldsOf(md5);

    md5.init();

    const Fields after = fieldsOf(md5);
    EXPECT_FALSE(after.finalized);
    EXPECT_EQ(after.count[0], 0U);
    EXPECT_EQ(after.count[1], 0U);
    EXPECT_EQ(std::memcmp(after.state, test::kMd5Start.data(), sizeof after.state), 0);
    EXPECT_EQ(std::memcmp(after.buffer, before.buffer, sizeof after.buffer), 0);
    EXPECT_EQ(std::memcmp(after.digest, before.digest, sizeof after.digest), 0);
}

TEST(Md5Test, FinalizeClearsBufferAndCountAndKeepsTheState) {
    MD5 md5;
    md5.update("abc", 3);
    const Fields open = fieldsOf(md5);
    md5.finalize();
    const Fields closed = fieldsOf(md5);

    EXPECT_FALSE(open.finalized);
    EXPECT_EQ(std::memcmp(open.buffer, "abc", 3), 0);
    EXPECT_EQ(open.count[0], 24U);
    EXPECT_EQ(open.count[1], 0U);
    EXPECT_TRUE(closed.finalized);
    EXPECT_EQ(asText(closed.buffer, 64), std::string(64, '\0'));
    EXPECT_EQ(closed.count[0], 0U);
    EXPECT_EQ(closed.count[1], 0U);
    std::string state;
    for (const std::uint32_t word : closed.state) {
        for (int shift = 0; shift < 32; shift += 8) state += static_cast<char>(word >> shift);
    }
    EXPECT_EQ(asText(closed.digest, 16), state);
    EXPECT_EQ(md5.binDigest(), state);
}

TEST(Md5Test, WholeBlocksDoNotPassThroughTheBuffer) {
    const auto data = randomBytes(130, 9);
    MD5 md5;

    md5.update(data.data(), 130);

    const std::string expected = asText(data.data() + 128, 2) + std::string(62, '\0');
    EXPECT_EQ(asText(fieldsOf(md5).buffer, 64), expected);
}

TEST(Md5Test, TheBitCountCarriesIntoItsHighWord) {
    MD5 md5;
    Fields fields = fieldsOf(md5);
    fields.count[0] = 0xFFFFFFF8;  // One byte short of 2^32 bits: 63 bytes are in the buffer.
    fields.count[1] = 7;
    std::memset(fields.buffer, 'x', 63);
    setFields(md5, fields);

    md5.update("xy", 2);

    EXPECT_EQ(fieldsOf(md5).count[0], 8U);
    EXPECT_EQ(fieldsOf(md5).count[1], 8U);
    EXPECT_EQ(fieldsOf(md5).buffer[0], 'y');
}

TEST(Md5Test, ACopyGoesOnByItself) {
    MD5 md5;
    md5.update("ab", 2);
    MD5 copy = md5;
    copy.update("c", 1);
    md5.update("X", 1);

    EXPECT_EQ(copy.finalize().hexDigest(), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5.finalize().hexDigest(), MD5(std::string("abX")).hexDigest());
}

TEST(Md5Test, IsWrittenToAStreamInHexadecimal) {
    std::ostringstream out;

    std::ostream& returned = out << MD5(std::string("abc"));
    out << '|' << MD5(std::string());

    EXPECT_EQ(&returned, &out);
    EXPECT_EQ(out.str(), "900150983cd24fb0d6963f7d28e17f72|d41d8cd98f00b204e9800998ecf8427e");
}

TEST(Md5Test, OutputPrintsALine) {
    const CoutCapture printed;

    output(MD5(std::string("abc")));
    output(MD5());

    EXPECT_EQ(printed.text(), "900150983cd24fb0d6963f7d28e17f72\n\n");
}

TEST(Md5Test, ChangeFinalizedPrintsTheCopyTakenAtTheCall) {
    MD5 md5(std::string("abc"));
    {
        const CoutCapture printed;
        md5.changeFinalized(false, md5);
        EXPECT_EQ(printed.text(), "900150983cd24fb0d6963f7d28e17f72\n");
        EXPECT_EQ(md5.hexDigest(), "");
    }
    {
        const CoutCapture printed;
        md5.changeFinalized(true, md5);
        EXPECT_EQ(printed.text(), "\n");
        EXPECT_EQ(md5.hexDigest(), "900150983cd24fb0d6963f7d28e17f72");
    }
}

TEST(Md5Test, ChangeFinalizedPrintsTheOtherObject) {
    const CoutCapture printed;
    MD5 md5;

    md5.changeFinalized(true, MD5(std::string()));

    EXPECT_EQ(printed.text(), "d41d8cd98f00b204e9800998ecf8427e\n");
    EXPECT_TRUE(fieldsOf(md5).finalized);
}

TEST(Md5Test, AReopenedObjectContinuesFromItsOldState) {
    MD5 md5(std::string("abc"));
    const Fields before = fieldsOf(md5);
    {
        const CoutCapture printed;
        md5.changeFinalized(false, MD5());
    }

    md5.finalize();

    // The padding of no bytes at all, after the state that "abc" left behind.
    test::Md5Block padding = {};
    padding[0] = 0x80;
    test::Md5State state;
    std::memcpy(state.data(), before.state, sizeof before.state);
    const test::Md5State expected = test::md5Compressed(state, padding);
    EXPECT_EQ(std::memcmp(fieldsOf(md5).state, expected.data(), sizeof expected), 0);
    EXPECT_NE(md5.hexDigest(), "900150983cd24fb0d6963f7d28e17f72");
    EXPECT_EQ(md5.binDigest(), asText(fieldsOf(md5).digest, 16));
}

TEST(Md5Test, HexDigitsAreThoseOfTheRawDigest) {
    const auto data = randomBytes(64, 8);
    for (std::size_t length = 0; length < 64; ++length) {
        const MD5 md5(asText(data.data(), length));
        ASSERT_EQ(md5.hexDigest(), hexOf(md5.binDigest()));
    }
}

}  // namespace
}  // namespace tevalon::base::utils
