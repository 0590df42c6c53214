// guarded_bytes.h: memory that ends where a page that cannot be touched begins.

#ifndef TESTS_UTILS_GUARDED_BYTES_H
#define TESTS_UTILS_GUARDED_BYTES_H

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <stdexcept>

namespace tevalon::base::test {

/// Some whole pages between two forbidden ones: whoever reads a byte too many, on either side,
/// crashes.
class GuardedBytes {
public:
    explicit GuardedBytes(std::size_t atLeast)
        : m_page(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))),
          m_size((atLeast + m_page - 1) / m_page * m_page) {
        void* p_map =
            mmap(nullptr, m_size + 2 * m_page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p_map == MAP_FAILED) throw std::runtime_error("mmap");
        m_map = static_cast<unsigned char*>(p_map);
        if (mprotect(begin(), m_size, PROT_READ | PROT_WRITE) != 0) {
            throw std::runtime_error("mprotect");
        }
    }
    ~GuardedBytes() { munmap(m_map, m_size + 2 * m_page); }

    GuardedBytes(const GuardedBytes&) = delete;
    GuardedBytes& operator=(const GuardedBytes&) = delete;

    unsigned char* begin() const { return m_map + m_page; }
    unsigned char* end() const { return begin() + m_size; }
    std::size_t size() const { return m_size; }

private:
    std::size_t m_page;
    std::size_t m_size;
    unsigned char* m_map = nullptr;
};

}  // namespace tevalon::base::test

#endif  // TESTS_UTILS_GUARDED_BYTES_H
