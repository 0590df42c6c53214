// pages.h: an array in pages of its own.

#ifndef SRC_DIAGNOSTICS_PAGES_H
#define SRC_DIAGNOSTICS_PAGES_H

#include <sys/mman.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace tevalon::base::diagnostics {

/// Grows by mapping memory instead of using the heap: a thread that died may have that locked.
///
/// Thread-safety: none.
template <typename T>
class Pages {
public:
    static_assert(std::is_trivially_copyable_v<T>);

    Pages() = default;
    ~Pages() {
        if (m_first != nullptr) (void)munmap(m_first, m_bytes);
    }

    Pages(const Pages&) = delete;
    Pages& operator=(const Pages&) = delete;

    std::size_t size() const { return m_size; }
    bool empty() const { return m_size == 0; }
    T* begin() { return m_first; }
    T* end() { return m_first + m_size; }
    const T* begin() const { return m_first; }
    const T* end() const { return m_first + m_size; }
    T& operator[](std::size_t index) { return m_first[index]; }
    const T& operator[](std::size_t index) const { return m_first[index]; }

    /// False where there is no memory.
    bool add(const T& element) { return add(&element, 1); }
    bool add(const T* p_elements, std::size_t count) {
        while ((m_size + count) * sizeof(T) > m_bytes) {
            if (!grow()) return false;
        }
        if (count > 0) std::memcpy(m_first + m_size, p_elements, count * sizeof(T));
        m_size += count;
        return true;
    }

private:
    static constexpr std::size_t kLeastBytes = std::size_t{16} * 1024;

    bool grow() {
        const std::size_t bytes = m_bytes == 0 ? kLeastBytes : 2 * m_bytes;
        void* const p_grown = m_first == nullptr ? mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                                                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)
                                                 : mremap(m_first, m_bytes, bytes, MREMAP_MAYMOVE);
        if (p_grown == MAP_FAILED) return false;
        m_first = static_cast<T*>(p_grown);
        m_bytes = bytes;
        return true;
    }

    T* m_first = nullptr;
    std::size_t m_size = 0;
    std::size_t m_bytes = 0;
};

}  // namespace tevalon::base::diagnostics

#endif  // SRC_DIAGNOSTICS_PAGES_H
