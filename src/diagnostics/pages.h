// pages.h: an array in pages of its own.

#ifndef SRC_DIAGNOSTICS_PAGES_H
#define SRC_DIAGNOSTICS_PAGES_H

#include <cstddef>
#include <type_traits>

namespace tevalon::base::diagnostics {

/// Bytes that grow by mapping memory instead of using the heap: a thread that died may have that
/// locked.
///
/// Thread-safety: none.
class PageMemory {
public:
    PageMemory() = default;
    ~PageMemory();

    PageMemory(const PageMemory&) = delete;
    PageMemory& operator=(const PageMemory&) = delete;

    char* begin() const { return m_first; }
    std::size_t size() const { return m_size; }

    /// False where there is no memory.
    bool add(const void* p_bytes, std::size_t count);

private:
    bool grow();

    char* m_first = nullptr;
    std::size_t m_size = 0;
    std::size_t m_room = 0;
};

/// Thread-safety: none.
template <typename T>
class Pages {
public:
    static_assert(std::is_trivially_copyable_v<T>);

    std::size_t size() const { return m_memory.size() / kElementBytes; }
    bool empty() const { return m_memory.size() == 0; }
    T* begin() { return reinterpret_cast<T*>(m_memory.begin()); }
    T* end() { return begin() + size(); }
    const T* begin() const { return reinterpret_cast<const T*>(m_memory.begin()); }
    const T* end() const { return begin() + size(); }
    const T& operator[](std::size_t index) const { return begin()[index]; }

    /// False where there is no memory.
    bool add(const T& element) { return m_memory.add(&element, kElementBytes); }

private:
    // NOLINTNEXTLINE(bugprone-sizeof-expression): pointers are elements as well.
    static constexpr std::size_t kElementBytes = sizeof(T);

    PageMemory m_memory;
};

/// Where it is; null where no element is right. Small code instead of the fast one of
/// std::find_if(), which takes four steps in a turn.
template <typename T, typename Predicate>
T* findIn(T* p_first, T* p_end, Predicate isRight) {
    for (T* p_next = p_first; p_next != p_end; ++p_next) {
        if (isRight(*p_next)) return p_next;
    }
    return nullptr;
}
template <typename T, typename Predicate>
const T* findIn(const Pages<T>& pages, Predicate isRight) {
    return findIn(pages.begin(), pages.end(), isRight);
}
template <typename T, typename Predicate>
T* findIn(Pages<T>& pages, Predicate isRight) {
    return findIn(pages.begin(), pages.end(), isRight);
}

}  // namespace tevalon::base::diagnostics

#endif  // SRC_DIAGNOSTICS_PAGES_H
