// allocation_count.h: how often the process asks for memory.

#ifndef BENCHMARKS_SUPPORT_ALLOCATION_COUNT_H
#define BENCHMARKS_SUPPORT_ALLOCATION_COUNT_H

#include <cstdint>

namespace bench {

/// Counts the calls of malloc() and its kin by all threads, and the bytes in use, while it lives.
/// One at a time. Only in programs that link allocation_count.cpp; there an allocation costs one
/// load more.
class AllocationCount {
public:
    AllocationCount();
    ~AllocationCount();

    AllocationCount(const AllocationCount&) = delete;
    AllocationCount& operator=(const AllocationCount&) = delete;

    std::int64_t calls() const;
    /// What was asked for since the beginning, as the allocator rounds it, less what was freed.
    std::int64_t bytes() const;
};

}  // namespace bench

#endif  // BENCHMARKS_SUPPORT_ALLOCATION_COUNT_H
