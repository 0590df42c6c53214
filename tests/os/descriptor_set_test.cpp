#include "os/descriptor_set.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/select.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <vector>

#include "support/fault_injection.h"

namespace {

using tevalon::base::DescriptorSet;
using Select = test::ReplaceCall<int(int, fd_set*, fd_set*, fd_set*, timeval*)>;

constexpr int kWordBits = sizeof(unsigned long) * CHAR_BIT;

TEST(DescriptorSetTest, TellsWhetherItsDescriptorIsReadable) {
    std::array<int, 2> ends = {};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    DescriptorSet set(ends[0]);
    timeval noTime = {};

    EXPECT_EQ(set.waitReadable(&noTime), 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_EQ(set.waitReadable(&noTime), 1);
    EXPECT_EQ(set.waitReadable(nullptr), 1);

    for (const int end : ends) (void)close(end);
}

// The kernel reads and writes whole words, as many as the number of descriptors needs: of the last
// one in a word no further.
TEST(DescriptorSetTest, NamesItsDescriptorAndNoneBehindIt) {
    for (const int descriptor : {0, kWordBits - 1, kWordBits, 2 * kWordBits - 1, 20000}) {
        DescriptorSet set(descriptor);
        int count = 0;
        std::vector<int> members;
        const Select select(test::Call::Select, [&](int n, fd_set* p_read, fd_set* p_write,
                                                    fd_set* p_error, timeval*) {
            count = n;
            const auto* const words = reinterpret_cast<const unsigned long*>(p_read);
            for (int i = 0; i <= descriptor; ++i) {
                if ((words[i / kWordBits] >> (i % kWordBits) & 1) != 0) members.push_back(i);
            }
            EXPECT_EQ(p_write, nullptr);
            EXPECT_EQ(p_error, nullptr);
            return 0;
        });

        EXPECT_EQ(set.waitReadable(nullptr), 0);

        EXPECT_EQ(count, descriptor + 1);
        EXPECT_EQ(members, std::vector<int>{descriptor});
    }
}

}  // namespace
