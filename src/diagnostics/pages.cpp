#include "diagnostics/pages.h"

#include <sys/mman.h>

#include <cstring>

namespace tevalon::base::diagnostics {

PageMemory::~PageMemory() {
    if (m_first != nullptr) (void)munmap(m_first, m_room);
}

bool PageMemory::add(const void* p_bytes, std::size_t count) {
    while (count > m_room - m_size) {
        if (!grow()) return false;
    }
    if (count > 0) std::memcpy(m_first + m_size, p_bytes, count);
    m_size += count;
    return true;
}

bool PageMemory::grow() {
    constexpr std::size_t kLeastBytes = std::size_t{16} * 1024;
    const std::size_t room = m_room == 0 ? kLeastBytes : 2 * m_room;
    void* const p_grown =
        mmap(nullptr, room, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p_grown == MAP_FAILED) return false;
    if (m_first != nullptr) {
        std::memcpy(p_grown, m_first, m_size);
        (void)munmap(m_first, m_room);
    }
    m_first = static_cast<char*>(p_grown);
    m_room = room;
    return true;
}

}  // namespace tevalon::base::diagnostics
