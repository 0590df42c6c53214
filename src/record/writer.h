// writer.h: puts records into the memory of a recording, whoever owns that.

#ifndef SRC_RECORD_WRITER_H
#define SRC_RECORD_WRITER_H

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "record/format.h"

namespace tevalon::base::record {

#ifdef TEVALON_BASE_NO_DIAGNOSTICS

inline void append(Kind, const std::uint64_t*, unsigned) {}

#else

/// The unit in which a recording is written: one store on each architecture.
using Word = std::uintptr_t;

/// Most blocks of a recording.
inline constexpr std::uint32_t kMaxBlocks = 512;

/// Appends a record with the calling thread's next time.
///
/// Each thread writes into a block of its own; what is recorded in a signal handler that interrupts
/// this very function is lost, and counted. Neither locks nor allocates, and is no cancellation
/// point. Async-signal-safe.
///
/// @param count  Words of the content; at most 7.
void append(Kind kind, const std::uint64_t* p_content, unsigned count);

/// Copies into memory that readers may look at: by relaxed atomic stores. @p p_to is aligned, and
/// @p bytes is a multiple of a word.
void storeWords(std::byte* p_to, const void* p_from, std::size_t bytes);

/// Where blocks are taken from.
struct BlockMemory {
    std::byte* p_first = nullptr;  ///< Blocks that have never been used are all zeros.
    std::uint32_t blockBytes = 0;
    std::uint32_t blockCount = 0;                         ///< At most kMaxBlocks.
    std::atomic<std::uint32_t>* p_recordsLost = nullptr;  ///< Kept up to date by the writers.
};

/// Opens @p memory to all threads and turns recording on. False where a thread has not left an
/// earlier recording yet; see closeBlocks(). What an earlier one wrote is forgotten.
///
/// openBlocks(), closeBlocks() and abandonBlocks() belong to one thread at a time.
bool openBlocks(const BlockMemory& memory);

/// Turns recording off and waits for the threads that are in append(). When it returns true, the
/// memory is not written any more. False when one has not left within a second, as one does not
/// that left by longjmp() from a signal handler: the memory must then stay for good.
bool closeBlocks();

/// In a forked child, where no other thread is: the parent's memory is not written any more.
void abandonBlocks();

/// What the next records of memory have as heap in use, in bytes.
void setHeapInUse(std::uint64_t bytes);

#endif

}  // namespace tevalon::base::record

#endif  // SRC_RECORD_WRITER_H
