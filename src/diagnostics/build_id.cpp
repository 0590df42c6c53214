#include "diagnostics/build_id.h"

#include <elf.h>
#include <link.h>
#include <sys/auxv.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

// The linker's name for the beginning of the file that this source is linked into.
extern "C" __attribute__((visibility("hidden"))) const ElfW(Ehdr) tevalonElfHeader
    __asm__("__ehdr_start");

namespace tevalon::base::diagnostics {
namespace {

constexpr std::size_t padded(std::size_t bytes) {
    return (bytes + 3) & ~std::size_t{3};
}

bool findInNotes(const char* p_note, const char* p_end, BuildId* p_id) {
    while (static_cast<std::size_t>(p_end - p_note) >= sizeof(ElfW(Nhdr))) {
        ElfW(Nhdr) head;
        std::memcpy(&head, p_note, sizeof(head));
        const char* const p_name = p_note + sizeof(head);
        const char* const p_content = p_name + padded(head.n_namesz);
        if (head.n_type == NT_GNU_BUILD_ID && head.n_namesz == sizeof("GNU") &&
            std::memcmp(p_name, "GNU", sizeof("GNU")) == 0) {
            std::memcpy(p_id->bytes, p_content,
                        std::min(sizeof(p_id->bytes), std::size_t{head.n_descsz}));
            return true;
        }
        p_note = p_content + padded(head.n_descsz);
    }
    return false;
}

/// @param base  What the addresses in the segments are relative to.
BuildId findBuildId(const ElfW(Phdr) * p_segments, std::size_t count, const char* p_base) {
    BuildId id = {};
    for (std::size_t i = 0; i < count; ++i) {
        const ElfW(Phdr)& segment = p_segments[i];
        if (segment.p_type != PT_NOTE) continue;
        const char* const p_notes = p_base + segment.p_vaddr;
        if (findInNotes(p_notes, p_notes + segment.p_memsz, &id)) break;
    }
    return id;
}

}  // namespace

BuildId programBuildId() {
    const auto* const p_segments =
        reinterpret_cast<const ElfW(Phdr)*>(getauxval(AT_PHDR));  // Null where there are none.
    const std::size_t count = p_segments != nullptr ? getauxval(AT_PHNUM) : 0;
    const char* p_base = nullptr;
    for (std::size_t i = 0; i < count; ++i) {
        if (p_segments[i].p_type == PT_PHDR) {
            p_base = reinterpret_cast<const char*>(p_segments) - p_segments[i].p_vaddr;
        }
    }
    return findBuildId(p_segments, count, p_base);
}

BuildId libraryBuildId() {
    const char* const p_base = reinterpret_cast<const char*>(&tevalonElfHeader);
    const auto* const p_segments =
        reinterpret_cast<const ElfW(Phdr)*>(p_base + tevalonElfHeader.e_phoff);
    return findBuildId(p_segments, tevalonElfHeader.e_phnum, p_base);
}

}  // namespace tevalon::base::diagnostics
