// memory_sample.h: what memory the process takes.

#ifndef SRC_RECORD_MEMORY_SAMPLE_H
#define SRC_RECORD_MEMORY_SAMPLE_H

#include <cstdint>

namespace tevalon::base::record {

struct MemorySample {
    std::uint64_t residentBytes;
    std::uint64_t privateBytes;  ///< Resident, and of no file: heaps and stacks.
    std::uint64_t heapBytes;     ///< As last told by setHeapInUse(); 0 before.
    std::uint64_t realtimeNs;
};

/// False where the system does not tell. Allocates nothing and takes no lock, the allocator's
/// included: the caller may be inside of that, or in a signal handler. No cancellation point.
/// Keeps errno.
bool readMemorySample(MemorySample* p_sample);

}  // namespace tevalon::base::record

#endif  // SRC_RECORD_MEMORY_SAMPLE_H
