// descriptor_set.h: a descriptor for select(), however large its number.

#ifndef SRC_OS_DESCRIPTOR_SET_H
#define SRC_OS_DESCRIPTOR_SET_H

#include <sys/select.h>

#include <climits>
#include <cstddef>
#include <vector>

namespace tevalon::base {

/// Waits for one descriptor to become readable. fd_set ends at FD_SETSIZE, and a browser holds
/// more descriptors than that; the kernel takes a set of any size.
class DescriptorSet {
public:
    explicit DescriptorSet(int descriptor)
        : m_descriptor(descriptor), m_words(wordOf(descriptor) + 1) {}

    /// As select(): above 0 when readable, 0 when the time is over, -1 with errno. A null
    /// @p p_wait waits without limit.
    int waitReadable(timeval* p_wait) {
        m_words[wordOf(m_descriptor)] = 1UL << (static_cast<std::size_t>(m_descriptor) % kWordBits);
        return select(m_descriptor + 1, reinterpret_cast<fd_set*>(m_words.data()), nullptr, nullptr,
                      p_wait);
    }

private:
    static constexpr std::size_t kWordBits = sizeof(unsigned long) * CHAR_BIT;

    static std::size_t wordOf(int descriptor) {
        return static_cast<std::size_t>(descriptor) / kWordBits;
    }

    const int m_descriptor;
    std::vector<unsigned long> m_words;
};

}  // namespace tevalon::base

#endif  // SRC_OS_DESCRIPTOR_SET_H
