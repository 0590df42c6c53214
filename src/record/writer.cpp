#include "record/writer.h"

#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "os/monotonic_time.h"
#include "record/memory_sample.h"
#include "record/record.h"

// How the memory is shared.
//
// Each block has a lock word of its own outside the recording's memory, in storage that is never
// given back: a thread that is late finds there that its block is gone, without touching memory
// that may be gone too. A word is a generation, counted up whenever the block changes hands, and a
// state:
//
//   closed   no recording, or one with fewer blocks
//   free     nobody's: never used, full, or of a thread that has ended
//   held     a thread's, which is not writing at the moment
//   writing  its holder, or the thread that is about to hold it, is writing
//
// A thread writes only while its word says writing, and gets there by a compare-and-swap from held
// with its own generation. So anybody may take a block that is held (the owner finds out at its
// next record) and nobody may take one that is being written. One uncontended compare-and-swap for
// each record is what it costs to let a small memory serve any number of threads.

namespace tevalon::base::record {
namespace {

enum : std::uint32_t { kClosed, kFree, kHeld, kWriting, kStateMask = 3, kGeneration = 4 };

constexpr std::uint32_t kLongestCloseMs = 1000;
constexpr std::uint64_t kLongestBlockNs = std::uint64_t{1} << kTimeBits;
constexpr std::uint64_t kSecondNs = 1000000000;

using SharedWord = std::atomic<Word>;
using Shared32 = std::atomic<std::uint32_t>;
static_assert(sizeof(SharedWord) == sizeof(Word) && SharedWord::is_always_lock_free);
static_assert(sizeof(Shared32) == 4 && Shared32::is_always_lock_free);

alignas(64) std::array<Shared32, kMaxBlocks> g_locks;

// Written while every word is closed, and published by the words; read by a thread that has made a
// word say writing.
BlockMemory g_memory;

// What is read at each record, and what is written at each block: on separate cache lines, against
// false sharing.
alignas(64) Shared32 g_sampledSecond{0};
Shared32 g_blockCount{0};             // For choosing a word to try; the word itself decides.
Shared32 g_recording{0};              // Numbers the recordings.
alignas(64) Shared32 g_nextBlock{0};  // Numbers the attempts to take a block.
Shared32 g_threads{0};                // Of this recording, so far.
Shared32 g_recordsLost{0};            // Of this recording, so far.

pthread_key_t g_exitKey;
bool g_hasExitKey = false;  // Written before the first recording.

/// What a thread knows of the block it writes. All zeros at first.
struct ThreadState {
    bool isInside;            // In append(), perhaps interrupted there.
    std::uint32_t recording;  // That the next three are of.
    std::uint32_t number;
    std::uint32_t blocks;  // Taken so far.
    std::uint32_t kernelId;
    std::uint32_t held;  // What the block's word says while it is held; 0 for no block.
    Shared32* p_lock;    // The word.
    std::uint32_t used;  // Bytes of records in it.
    std::uint32_t room;
    std::byte* p_block;  // Not to be touched unless the word says writing.
    std::uint64_t baseNs;
    std::uint64_t namedNs;  // When the name was asked for.
    char name[kThreadNameBytes];
};

// In the block that every thread has from its start: the first use on a thread must not allocate.
__attribute__((tls_model("initial-exec"))) thread_local ThreadState t_state;

// Neighbours in age are far apart here, lest two threads write to one cache line all the time.
Shared32& lockOf(std::uint32_t block) {
    constexpr std::uint32_t kPerLine = 16;
    constexpr std::uint32_t kLines = kMaxBlocks / kPerLine;
    return g_locks[block % kLines * kPerLine + block / kLines];
}

void loseRecord() {
    g_recordsLost.fetch_add(1, std::memory_order_relaxed);  // A count and nothing else.
}

Shared32& field(std::byte* p_block, std::size_t offset) {
    return *reinterpret_cast<Shared32*>(p_block + offset);
}

void readName(ThreadState& thread, std::uint64_t nowNs) {
    (void)prctl(PR_GET_NAME, thread.name, 0, 0, 0);
    thread.namedNs = nowNs;
}

void joinRecording(ThreadState& thread, std::uint32_t recording, std::uint64_t nowNs) {
    thread.recording = recording;
    thread.number = g_threads.fetch_add(1, std::memory_order_relaxed) + 1;
    thread.blocks = 0;
    thread.kernelId = static_cast<std::uint32_t>(syscall(SYS_gettid));
    readName(thread, nowNs);
    if (g_hasExitKey) (void)pthread_setspecific(g_exitKey, &thread);
}

/// Makes the block's word say writing. The number of the attempt that succeeded, 0 where none did.
///
/// First those that nobody holds, in order of age. The last records of each thread are worth more
/// than the many of a busy one: its block is taken from a thread only where more than half of all
/// are held.
std::uint32_t claimBlock(ThreadState& thread) {
    const std::uint32_t count = g_blockCount.load(std::memory_order_relaxed);
    std::uint32_t skipped = 0;
    for (std::uint32_t tries = 0; tries < 2 * count; ++tries) {
        std::uint32_t number = g_nextBlock.fetch_add(1, std::memory_order_relaxed);
        const std::uint32_t block = number % count;
        Shared32& lock = lockOf(block);
        std::uint32_t seen = lock.load(std::memory_order_relaxed);
        const std::uint32_t state = seen & kStateMask;
        if (state == kHeld && ++skipped <= count / 2) continue;
        if (state != kHeld && state != kFree) continue;
        const std::uint32_t generation = (seen & ~kStateMask) + kGeneration;
        if (lock.compare_exchange_strong(seen, generation | kWriting, std::memory_order_acquire,
                                         std::memory_order_relaxed)) {
            thread.p_lock = &lock;
            thread.held = generation | kHeld;
            thread.p_block = g_memory.p_first + std::size_t{g_memory.blockBytes} * block;
            if (++number == 0) ++number;
            return number;
        }
    }
    return 0;
}

// The order is what lets a reader tell a block that is being reused: see BlockHead. No other store
// may become visible before the tail's, none of a record before that of the head's sequence: hence
// exchange(), a full barrier, where a store with release order would let later ones pass.
void beginBlock(ThreadState& thread, std::uint32_t sequence) {
    std::byte* const p_block = thread.p_block;
    const std::size_t tail = sizeof(BlockHead) + thread.room;
    field(p_block, tail + offsetof(BlockTail, sequence)).exchange(sequence);
    BlockHead head = {};
    head.thread = thread.number;
    head.kernelId = thread.kernelId;
    head.threadBlock = thread.blocks++;
    head.baseNs = thread.baseNs;
    std::memcpy(head.threadName, thread.name, sizeof(head.threadName));
    field(p_block, offsetof(BlockHead, committed)).store(0, std::memory_order_relaxed);
    constexpr std::size_t kRest = offsetof(BlockHead, thread);
    storeWords(p_block + kRest, &head.thread, sizeof(head) - kRest);
    field(p_block, offsetof(BlockHead, sequence)).exchange(sequence);
}

/// Leaves the thread with a block whose word says writing; false where there is none to be had.
bool takeBlock(ThreadState& thread, std::uint64_t nowNs) {
    const std::uint32_t sequence = claimBlock(thread);
    if (sequence == 0) {
        thread.held = 0;
        return false;
    }
    const std::uint32_t recording = g_recording.load(std::memory_order_relaxed);
    if (thread.recording != recording) {
        joinRecording(thread, recording, nowNs);
    } else if (nowNs - thread.namedNs >= kSecondNs) {
        readName(thread, nowNs);
    }
    thread.room =
        g_memory.blockBytes - static_cast<std::uint32_t>(sizeof(BlockHead) + sizeof(BlockTail));
    thread.used = 0;
    thread.baseNs = nowNs;
    beginBlock(thread, sequence);
    g_memory.p_recordsLost->store(g_recordsLost.load(std::memory_order_relaxed),
                                  std::memory_order_relaxed);
    return true;
}

bool resumeBlock(ThreadState& thread) {
    std::uint32_t expected = thread.held;
    return expected != 0 && thread.p_lock->compare_exchange_strong(
                                expected, expected + (kWriting - kHeld), std::memory_order_acquire,
                                std::memory_order_relaxed);
}

bool isWriting(const ThreadState& thread) {
    return thread.held != 0 &&
           thread.p_lock->load(std::memory_order_relaxed) == thread.held + (kWriting - kHeld);
}

void setLock(const ThreadState& thread, std::uint32_t state) {
    thread.p_lock->store((thread.held & ~kStateMask) | state, std::memory_order_release);
}

/// Leaves the thread with a block that has room for so many bytes, and whose word says writing.
bool enterBlock(ThreadState& thread, std::uint32_t bytes, std::uint64_t nowNs) {
    if (!resumeBlock(thread)) return takeBlock(thread, nowNs);
    if (thread.used + bytes <= thread.room && nowNs - thread.baseNs < kLongestBlockNs) return true;
    setLock(thread, kFree);
    return takeBlock(thread, nowNs);
}

void appendAt(ThreadState& thread, std::uint64_t nowNs, Kind kind, const std::uint64_t* p_content,
              unsigned count) {
    const std::uint32_t bytes = (count + 1) * static_cast<std::uint32_t>(sizeof(*p_content));
    if (!enterBlock(thread, bytes, nowNs)) {
        loseRecord();
        return;
    }
    std::byte* const p_record = thread.p_block + sizeof(BlockHead) + thread.used;
    const std::uint64_t head = makeRecordHead(kind, count + 1, nowNs - thread.baseNs);
    storeWords(p_record, &head, sizeof(head));
    storeWords(p_record + sizeof(head), p_content, bytes - sizeof(head));
    thread.used += bytes;
    // Complete from here on, for whoever reads, and whatever becomes of this thread.
    field(thread.p_block, offsetof(BlockHead, committed))
        .store(thread.used, std::memory_order_release);
    setLock(thread, kHeld);
}

// The block is handed back, with the name that the thread has had at its end.
void onThreadExit(void* p_state) {
    ThreadState& thread = *static_cast<ThreadState*>(p_state);
    if (resumeBlock(thread)) {
        readName(thread, 0);
        storeWords(thread.p_block + offsetof(BlockHead, threadName), thread.name,
                   sizeof(thread.name));
        setLock(thread, kFree);
    } else if (isWriting(thread)) {  // Cancelled asynchronously in the middle of a record.
        setLock(thread, kFree);
    }
    // Destructors of other keys may record: as a new thread.
    thread.held = 0;
    thread.recording = 0;
    thread.isInside = false;
}

// A key and no thread-local destructor, for which the C library allocates on each thread. The
// values of the first 32 keys it keeps in the thread itself; for a later one it would allocate as
// well. Without a key the blocks of ended threads stay held, and are taken like those of silent
// threads.
void ensureExitKey() {
    constexpr pthread_key_t kKeysInThread = 32;
    if (g_hasExitKey || pthread_key_create(&g_exitKey, onThreadExit) != 0) return;
    g_hasExitKey = g_exitKey < kKeysInThread;
    if (!g_hasExitKey) (void)pthread_key_delete(g_exitKey);
}

bool closeLock(Shared32& lock) {
    std::uint32_t seen = lock.load(std::memory_order_acquire);
    while ((seen & kStateMask) != kWriting) {
        if (lock.compare_exchange_weak(seen, (seen & ~kStateMask) | kClosed,
                                       std::memory_order_acquire)) {
            return true;
        }
    }
    return false;
}

bool closeAllLocks(std::uint64_t deadlineNs) {
    for (Shared32& lock : g_locks) {
        while (!closeLock(lock)) {
            if (monotonicNanoseconds() >= deadlineNs) return false;
            (void)sched_yield();
        }
    }
    return true;
}

/// Once a second one of the threads that record adds what the process takes.
void sampleMemory(ThreadState& thread, std::uint64_t nowNs, std::uint32_t second,
                  std::uint32_t sampled) {
    if (!g_sampledSecond.compare_exchange_strong(sampled, second, std::memory_order_relaxed)) {
        return;
    }
    MemorySample sample;
    if (!readMemorySample(&sample)) return;
    const std::uint64_t content[] = {sample.residentBytes, sample.privateBytes, sample.heapBytes,
                                     sample.realtimeNs};
    appendAt(thread, nowNs, Kind::Memory, content, 4);
}

}  // namespace

void storeWords(std::byte* p_to, const void* p_from, std::size_t bytes) {
    for (std::size_t i = 0; i < bytes; i += sizeof(Word)) {
        Word word;
        std::memcpy(&word, static_cast<const char*>(p_from) + i, sizeof(word));
        reinterpret_cast<SharedWord*>(p_to + i)->store(word, std::memory_order_relaxed);
    }
}

void append(Kind kind, const std::uint64_t* p_content, unsigned count) {
    ThreadState& thread = t_state;
    if (thread.isInside) {
        loseRecord();
        return;
    }
    thread.isInside = true;
    // For a signal handler on this thread: before anything below, and after it.
    std::atomic_signal_fence(std::memory_order_seq_cst);
    timespec now = {};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);  // Without a clock all is at 0.
    const std::uint64_t nowNs = nanosecondsOf(now);
    appendAt(thread, nowNs, kind, p_content, count);
    const auto second = static_cast<std::uint32_t>(now.tv_sec);
    const std::uint32_t sampled = g_sampledSecond.load(std::memory_order_relaxed);
    if (second != sampled) sampleMemory(thread, nowNs, second, sampled);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    thread.isInside = false;
}

bool openBlocks(const BlockMemory& memory) {
    if (!closeAllLocks(0)) return false;
    ensureExitKey();
    g_memory = memory;
    g_blockCount.store(memory.blockCount, std::memory_order_relaxed);
    g_nextBlock.store(0, std::memory_order_relaxed);
    g_threads.store(0, std::memory_order_relaxed);
    g_recordsLost.store(0, std::memory_order_relaxed);
    g_sampledSecond.store(0, std::memory_order_relaxed);
    g_recording.fetch_add(1, std::memory_order_relaxed);
    for (std::uint32_t i = 0; i < memory.blockCount; ++i) {
        Shared32& lock = lockOf(i);
        const std::uint32_t closed = lock.load(std::memory_order_relaxed);
        lock.store(((closed & ~kStateMask) + kGeneration) | kFree, std::memory_order_release);
    }
    g_isOn.store(true, std::memory_order_relaxed);
    return true;
}

bool closeBlocks() {
    g_isOn.store(false, std::memory_order_relaxed);
    g_blockCount.store(0, std::memory_order_relaxed);
    const bool areClosed =
        closeAllLocks(monotonicNanoseconds() + std::uint64_t{kLongestCloseMs} * 1000000);
    if (areClosed) {
        g_memory.p_recordsLost->store(g_recordsLost.load(std::memory_order_relaxed),
                                      std::memory_order_relaxed);
    }
    return areClosed;
}

void abandonBlocks() {
    g_isOn.store(false, std::memory_order_relaxed);
    g_blockCount.store(0, std::memory_order_relaxed);
    for (Shared32& lock : g_locks) {
        const std::uint32_t seen = lock.load(std::memory_order_relaxed);
        lock.store(((seen & ~kStateMask) + kGeneration) | kClosed, std::memory_order_relaxed);
    }
}

}  // namespace tevalon::base::record
