// format.h: how a recording lies in memory and in a file; docs/recording-format.md describes it.

#ifndef SRC_RECORD_FORMAT_H
#define SRC_RECORD_FORMAT_H

#include <cstddef>
#include <cstdint>

namespace tevalon::base::record {

// All numbers have the byte order of the machine that records, all structures the same layout on
// 32-bit and 64-bit machines: every field is aligned to its own size.

inline constexpr char kMagic[8] = {'T', 'V', 'R', 'E', 'C', 'O', 'R', 'D'};
inline constexpr std::uint32_t kByteOrderMark = 0x01020304;
inline constexpr std::uint16_t kFormatVersion = 1;

inline constexpr std::size_t kBuildIdBytes = 20;  // Of SHA-1, as linkers make it by default.
inline constexpr std::size_t kThreadNameBytes = 16;
inline constexpr std::size_t kNameBytes = 24;  // Of a module, event or task; the last one is zero.
inline constexpr std::size_t kTextBytes = 40;  // Of a mark, a scope, a counter, a timer.

/// The beginning of a recording. The magic is written last: without it the rest may be missing.
struct Head {
    char magic[8];
    std::uint32_t byteOrder;
    std::uint16_t version;
    std::uint16_t pointerBytes;
    std::uint32_t headBytes;     ///< Of this structure; later versions may append to it.
    std::uint32_t nameOffset;    ///< Of the names, in bytes from the beginning.
    std::uint32_t nameCapacity;  ///< Names that there is room for.
    std::uint32_t namesGiven;    ///< So far; those beyond the capacity are missing.
    std::uint32_t blockOffset;   ///< Of the first block.
    std::uint32_t blockCount;
    std::uint32_t blockBytes;
    std::uint32_t recordsLost;  ///< Records for which there was no block.
    std::uint32_t processId;
    std::uint32_t bootId;
    std::uint64_t startMonotonicNs;  ///< Two readings of the same moment.
    std::uint64_t startRealtimeNs;   ///< Since 1970, UTC.
    std::uint64_t stopMonotonicNs;   ///< 0 while recording, and where the process was killed.
    char processName[kThreadNameBytes];
    char architecture[16];
    std::uint8_t programBuildId[kBuildIdBytes];
    std::uint8_t libraryBuildId[kBuildIdBytes];
    std::uint8_t reserved[104];
};
static_assert(sizeof(Head) == 256);

enum class NameKind : std::uint32_t { None, Module, Event, Task };

struct Name {
    std::int32_t id;
    char text[kNameBytes];
    NameKind kind;  ///< Written last; None where there is no name yet.
};
static_assert(sizeof(Name) == 32);

/// A block holds records of one thread. Its last eight bytes are a BlockTail. Whoever reuses a
/// block writes the tail's sequence first and the head's after the other fields: where the two
/// differ, the block was being reused, or copied meanwhile, and holds nothing.
struct BlockHead {
    std::uint32_t sequence;   ///< Of all blocks, in order of their beginning; 0 for an unused one.
    std::uint32_t committed;  ///< Bytes of complete records behind this head.
    std::uint32_t thread;     ///< Numbers the recording's threads from 1: never used twice.
    std::uint32_t kernelId;   ///< Of the thread; another thread may get it later.
    std::uint32_t threadBlock;  ///< Numbers the thread's blocks from 0.
    std::uint32_t reserved;
    std::uint64_t baseNs;  ///< What the times in this block are added to; monotonic clock.
    char threadName[kThreadNameBytes];
};
static_assert(sizeof(BlockHead) == 48);

struct BlockTail {
    std::uint32_t sequence;
    std::uint32_t reserved;
};
static_assert(sizeof(BlockTail) == 8);

/// What a record tells of. Its content is a number of 64-bit words; behind each kind stands what
/// they are, in square brackets: a whole word, or two signed 32-bit halves, the low one first. An
/// event, task, timer, hub or object is an address, which tells those apart that live at once. A
/// text fills what is left of the record, up to kTextBytes, padded with zeros.
enum class Kind : std::uint8_t {
    EventCreated = 1,    ///< [event] [type, source]
    EventSent,           ///< [event] [type, source] [target, 0]
    EventQueued,         ///< [event] [type, source] [target, events queued with it]
    EventRefused,        ///< [event] [type, source] [target, Refusal]
    HandlerBegun,        ///< [event] [type, source] [module, 0]
    HandlerEnded,        ///< [event] [type, source] [module, 0]
    EventReplied,        ///< [event] [type, result]
    EventAwaited,        ///< [event] [type, time-out in ms or -1]
    EventAwaitedInVain,  ///< [event] [type, time-out in ms]
    EventUnanswered,     ///< [event] [type, source]
    TaskPosted,          ///< [task] [task id, session id] [ns until it is due]
    TaskCancelled,       ///< [task] [task id, session id]
    TaskBegun,           ///< [task] [task id, session id]
    TaskEnded,           ///< [task] [task id, session id]
    TimerStarted,        ///< [timer] [ns until it is due] text: its name
    TimerStopped,        ///< [timer]
    TimerDue,            ///< [timer]
    TimerRunBegun,       ///< [timer] text: its name
    TimerRunEnded,       ///< [timer]
    WatchBegun,          ///< [watch id, 0] [ns allowed]
    WatchOverdue,        ///< [watch id, 0] [ns since it began]
    WatchEnded,          ///< [watch id, 0]
    HubRegistered,       ///< [hub] [module, 0]
    HubUnregistered,     ///< [hub] [module, 0]
    HubThreadStarted,    ///< [hub] [module, 0]
    HubThreadEnded,      ///< [hub] [module, 0]
    Waited,              ///< [object] [Wait, kernel id of the thread waited for or 0] [ns]
    Memory,              ///< [resident] [of it private] [heap in use or 0], bytes, [realtime in ns]
    Mark,                ///< [value] text
    ScopeBegun,          ///< text
    ScopeEnded,          ///< text
    Counter,             ///< [value] text
};

enum class Refusal : std::int32_t {
    NoHub,      ///< No hub of the target's module is registered.
    NoHandler,  ///< No handler of the hub takes such events.
    NoEvent,    ///< The event is null, or could not be armed.
    QueueFull,  ///< The hub has as many events waiting as it may.
};

/// Where a thread waited.
enum class Wait : std::int32_t { Lock, Stop, Destructor, Unregister };

/// The first word of a record: the kind in the low 8 bits, the record's length in 64-bit words,
/// this one included, in the next 8, and the time in ns since the block's base in the high 48.
inline constexpr unsigned kTimeBits = 48;

constexpr std::uint64_t makeRecordHead(Kind kind, std::uint64_t words, std::uint64_t timeNs) {
    return timeNs << 16 | words << 8 | static_cast<std::uint64_t>(kind);
}

}  // namespace tevalon::base::record

#endif  // SRC_RECORD_FORMAT_H
