#include "base/diagnostics/recorder.h"

#include <malloc.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "base/logging/boot_id.h"
#include "diagnostics/build_id.h"
#include "diagnostics/recorder_state.h"
#include "diagnostics/recording_memory.h"
#include "diagnostics/write_all.h"
#include "os/monotonic_time.h"
#include "record/names.h"
#include "record/record.h"
#include "record/writer.h"

namespace tevalon::base::diagnostics {
namespace internal {

// Storage of its own beside record::g_isOn: a program that reads it may have it moved into itself.
std::atomic<bool> g_isRecording{false};

}  // namespace internal

namespace {

using record::Head;
using record::Name;
using record::storeWords;

enum class Phase : std::uint32_t { Idle, Changing, Recording };

// No lock, which a forked child, or a signal handler, could find taken. Whoever changes the phase
// to Changing owns g_memory until it changes it back. Whoever reads what is behind g_memory counts
// itself first and looks at the phase then; whoever changes g_memory does it the other way round,
// and gives up where there are readers. Sequentially consistent, so that one of the two sees the
// other.
std::atomic<Phase> g_phase{Phase::Idle};
std::atomic<std::uint32_t> g_readers{0};
std::atomic<pid_t> g_process{0};  // Of the phase: a fork may not have been seen.
RecordingMemory g_memory;         // Of the recording, or the last one.

Head& head() {
    return *reinterpret_cast<Head*>(g_memory.p_begin);
}

/// While it lives and is valid, g_memory stays as it is.
class Reading {
public:
    Reading() : m_isValid(enter()) {}
    ~Reading() { g_readers.fetch_sub(1); }

    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    [[nodiscard]] bool isValid() const { return m_isValid; }

private:
    static bool enter() {
        g_readers.fetch_add(1);
        return g_phase.load() != Phase::Changing;
    }

    const bool m_isValid;
};

// ---- what lies where ----

std::uint32_t floorToPowerOfTwo(std::size_t number) {
    std::uint32_t power = 1;
    while (number / 2 >= power) power *= 2;
    return power;
}

constexpr std::size_t kLeastBlockBytes = 256;

/// A sixteenth for names, up to an eighth in the smallest; some 50 blocks in the smallest recording
/// and up to 511 in others.
Head layOut(std::size_t bytes) {
    Head head = {};
    head.headBytes = sizeof(Head);
    head.nameOffset = sizeof(Head);
    head.nameCapacity =
        static_cast<std::uint32_t>(std::min<std::size_t>(bytes / 256, record::kMaxNames));
    head.blockOffset = head.nameOffset + head.nameCapacity * std::uint32_t{sizeof(Name)};
    head.blockBytes = floorToPowerOfTwo(std::max(bytes / 256, kLeastBlockBytes));
    head.blockCount = static_cast<std::uint32_t>((bytes - head.blockOffset) / head.blockBytes);
    return head;
}

const char* architecture() {
#if defined(__x86_64__)
    return "x86_64";
#elif defined(__aarch64__)
    return "aarch64";
#elif defined(__arm__)
    return "arm";
#else
    return "unknown";
#endif
}

template <std::size_t kSize>
void copyText(char (&to)[kSize], const char* text) {
    std::memcpy(to, text, strnlen(text, kSize - 1));  // The rest is zeros.
}

void describeProcess(Head* p_head) {
    std::memcpy(p_head->magic, record::kMagic, sizeof(p_head->magic));
    p_head->byteOrder = record::kByteOrderMark;
    p_head->version = record::kFormatVersion;
    p_head->pointerBytes = sizeof(void*);
    p_head->processId = static_cast<std::uint32_t>(getpid());
    p_head->bootId = bootID();
    timespec realtime = {};
    (void)clock_gettime(CLOCK_REALTIME, &realtime);
    p_head->startMonotonicNs = monotonicNanoseconds();
    p_head->startRealtimeNs = nanosecondsOf(realtime);
    copyText(p_head->processName, program_invocation_short_name);
    copyText(p_head->architecture, architecture());
    const BuildId program = programBuildId();
    const BuildId library = libraryBuildId();
    std::memcpy(p_head->programBuildId, program.bytes, sizeof(program.bytes));
    std::memcpy(p_head->libraryBuildId, library.bytes, sizeof(library.bytes));
}

// The magic last: a file without it is one whose process was killed here.
void writeHead(const Head& head, std::byte* p_to) {
    constexpr std::size_t kMagicBytes = sizeof(head.magic);
    storeWords(p_to + kMagicBytes, &head.byteOrder, sizeof(head) - kMagicBytes);
    for (std::size_t i = 0; i < kMagicBytes; i += sizeof(record::Word)) {
        record::Word word;
        std::memcpy(&word, head.magic + i, sizeof(word));
        reinterpret_cast<std::atomic<record::Word>*>(p_to + i)->store(word,
                                                                      std::memory_order_release);
    }
}

template <typename Field>
void store(Field& field, Field value) {
    static_assert(sizeof(field) % sizeof(record::Word) == 0);
    storeWords(reinterpret_cast<std::byte*>(&field), &value, sizeof(field));
}

// ---- names ----

void publishName(std::uint32_t index) {
    const Name* const p_name = record::nameAt(index);
    if (p_name == nullptr || index >= head().nameCapacity) return;
    auto* const p_to = reinterpret_cast<std::byte*>(&head() + 1) + index * sizeof(Name);
    storeWords(p_to, p_name, sizeof(*p_name));  // In rising order: the kind last.
}

void publishNames() {
    const Reading reading;
    if (!reading.isValid() || g_memory.p_begin == nullptr) return;
    const std::uint32_t given = record::namesGiven();
    reinterpret_cast<std::atomic<std::uint32_t>&>(head().namesGiven)
        .store(given, std::memory_order_relaxed);
    for (std::uint32_t i = 0; i < std::min(given, record::kMaxNames); ++i) publishName(i);
}

// ---- start and stop ----

void forgetInForkedChild() {
    internal::g_isRecording.store(false, std::memory_order_relaxed);
    record::abandonBlocks();
    // Half changed it is no use, and stays.
    if (g_phase.load() != Phase::Changing) detachRecordingMemory(g_memory);
    g_memory = RecordingMemory();
    g_readers.store(0);
    g_phase.store(Phase::Idle);
}

/// In the child of a fork that did not call the handler below: it came before that was registered.
void noticeFork() {
    const pid_t self = getpid();
    const pid_t process = g_process.load(std::memory_order_relaxed);
    if (process == self) return;
    if (process != 0 && g_phase.load() != Phase::Idle) forgetInForkedChild();
    g_process.store(self, std::memory_order_relaxed);
}

/// False where there is no memory for it: a child would record into its parent's file.
bool ensureForkHandler() {
    static bool s_isRegistered;  // Written in Phase::Changing alone.
    if (!s_isRegistered)
        s_isRegistered = pthread_atfork(nullptr, nullptr, forgetInForkedChild) == 0;
    return s_isRegistered;
}

/// Ok where the phase was @p from and is Changing now.
Status beginChange(Phase from) {
    noticeFork();
    Phase seen = from;
    if (g_phase.compare_exchange_strong(seen, Phase::Changing)) return Status::Ok;
    if (seen == Phase::Changing) return Status::Busy;
    return seen == Phase::Recording ? Status::AlreadyRecording : Status::NotRecording;
}

/// In Phase::Changing: replaces the last recording by an empty one, to which threads record.
Status replaceRecording(const RecordingOptions& options) {
    if (g_readers.load() != 0) return Status::Busy;
    if (!ensureForkHandler()) return Status::NoMemory;
    Head head = layOut(options.bytes);
    RecordingMemory memory;
    const std::size_t bytes = head.blockOffset + std::size_t{head.blockBytes} * head.blockCount;
    const Status status = makeRecordingMemory(bytes, options.file, &memory);
    if (status != Status::Ok) return status;
    describeProcess(&head);
    writeHead(head, memory.p_begin);
    auto* const p_head = reinterpret_cast<Head*>(memory.p_begin);
    const bool isOpen =
        record::openBlocks({memory.p_begin + head.blockOffset, head.blockBytes, head.blockCount,
                            reinterpret_cast<std::atomic<std::uint32_t>*>(&p_head->recordsLost)});
    // No thread is in the old memory any more, or the new one is not used.
    if (isOpen) std::swap(g_memory, memory);
    freeRecordingMemory(memory);
    if (!isOpen && options.file != nullptr) (void)unlink(options.file);
    return isOpen ? Status::Ok : Status::Busy;
}

}  // namespace

Status startRecording(const RecordingOptions& options) {
    if (options.bytes < kLeastRecordingBytes || options.bytes > kMostRecordingBytes) {
        return Status::BadArgument;
    }
    Status status = beginChange(Phase::Idle);
    if (status != Status::Ok) return status;
    status = replaceRecording(options);
    const bool isRecording = status == Status::Ok;
    internal::g_isRecording.store(isRecording, std::memory_order_relaxed);
    g_phase.store(isRecording ? Phase::Recording : Phase::Idle);
    if (isRecording) publishNames();
    return status;
}

Status stopRecording() {
    const Status status = beginChange(Phase::Recording);
    if (status != Status::Ok) return status;
    internal::g_isRecording.store(false, std::memory_order_relaxed);
    // A thread that is late writes into memory that stays: a start finds out whether it has left.
    (void)record::closeBlocks();
    store(head().stopMonotonicNs, monotonicNanoseconds());
    g_phase.store(Phase::Idle);
    return Status::Ok;
}

namespace {

// In pieces of a size for a signal handler's stack, by acquire loads in rising order: that is what
// lets the reader see which blocks were reused meanwhile; see BlockHead.
bool copyTo(int fd, const std::byte* p_next, std::size_t bytes) {
    constexpr std::size_t kPieceWords = 1024 / sizeof(record::Word);
    record::Word piece[kPieceWords];
    const auto* p_word = reinterpret_cast<const std::atomic<record::Word>*>(p_next);
    for (std::size_t left = bytes / sizeof(record::Word); left > 0;) {
        const std::size_t words = std::min(left, kPieceWords);
        for (std::size_t i = 0; i < words; ++i) {
            piece[i] = p_word++->load(std::memory_order_acquire);
        }
        if (!writeAll(fd, piece, words * sizeof(record::Word))) return false;
        left -= words;
    }
    return true;
}

}  // namespace

Status writeRecording(int fd) {
    const Reading reading;
    if (!reading.isValid()) return Status::Busy;
    if (g_memory.p_begin == nullptr) return Status::NotRecording;
    return copyTo(fd, g_memory.p_begin, g_memory.bytes) ? Status::Ok : Status::WriteFailed;
}

RecorderState recorderState() {
    const Reading reading;
    RecorderState state = {};
    state.isRecording = isRecording();
    if (!reading.isValid() || g_memory.p_begin == nullptr) return state;
    state.bytes = g_memory.bytes;
    state.startMonotonicNs = head().startMonotonicNs;
    state.recordsLost = reinterpret_cast<std::atomic<std::uint32_t>&>(head().recordsLost)
                            .load(std::memory_order_relaxed);
    return state;
}

void sampleHeap() {
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 33)
    const struct mallinfo2 heap = mallinfo2();
    record::setHeapInUse(std::uint64_t{heap.uordblks} + heap.hblkhd);
#endif
}

namespace internal {

void record(Entry entry, const char* text, std::int64_t value) {
    static_assert(static_cast<int>(Entry::Mark) == static_cast<int>(base::record::Kind::Mark));
    static_assert(static_cast<int>(Entry::Counter) ==
                  static_cast<int>(base::record::Kind::Counter));
    base::record::clientEntry(static_cast<base::record::Kind>(entry), text, value);
}

Status giveName(Named what, std::int32_t id, const char* name) {
    if (name == nullptr || *name == '\0') return Status::BadArgument;
    switch (base::record::giveName(static_cast<base::record::NameKind>(what), id, name)) {
        case base::record::Naming::Known:
            return Status::AlreadyNamed;
        case base::record::Naming::Full:
            return Status::NoRoom;
        default:
            break;
    }
    // Where a start is under way, that publishes all names when it is through.
    publishNames();
    return Status::Ok;
}

}  // namespace internal
}  // namespace tevalon::base::diagnostics
