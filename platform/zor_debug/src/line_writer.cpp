#include "line_writer.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#include "call_scope.h"
#include "deadline.h"
#include "destination.h"
#include "formatted_text.h"
#include "line_buffer.h"
#include "line_decoration.h"
#include "losses.h"
#include "thread_id.h"
#include "thread_state.h"
#include "writer_gate.h"

namespace zor_debug {
namespace {

constexpr std::size_t kKeptCapacity = 4096;  // A buffer that has grown beyond it is given back.

// How long an exiting process waits for threads that are writing, and then for a reader.
constexpr std::int64_t kExitPatienceMs = 500;

// Holding the gate shared, a thread reads what follows, changes its own LineBuffer and writes whole
// lines; holding it exclusively, it changes anything. Leaf lock: nothing called inside takes
// another.
WriterGate g_gate;
Destination g_destination;
LinePrefix g_prefix;
pid_t g_openLineOwner = 0;  // Whose incomplete line was written last; 0 for none.
bool g_isExiting = false;   // Nothing is kept back any more, nor waited for without limit.
// The process exits and its output is stuck: text is dropped. Read without the gate, which may be
// stuck too; relaxed, for a thread that sees it late only waits, as it would have before.
std::atomic<bool> g_isGivenUp{false};
bool g_hasKey = false;
pthread_key_t g_bufferKey;  // Frees an ending thread's buffer.

// Each text needs more than to be written: the process exits, lines have been lost, or the file is
// limited. One flag, so that a line with none of it looks at one thing alone.
bool g_needsCare = false;
bool g_isLimitReported = false;

void decideCare() {
    g_needsCare = g_isExiting || hasLosses() || g_destination.isLimited();
}

// Shared writing is possible while the destination keeps whole writes apart, and no unfinished line
// has been sent that the next one would be glued to.
bool mayShare() {
    return g_destination.isAtomic() && g_openLineOwner == 0 && !g_needsCare;
}

class ExclusiveGuard {
public:
    ExclusiveGuard() : m_isEntered(g_gate.enterExclusive()) {}
    ~ExclusiveGuard() { g_gate.leaveExclusive(m_isEntered, mayShare()); }

    ExclusiveGuard(const ExclusiveGuard&) = delete;
    ExclusiveGuard& operator=(const ExclusiveGuard&) = delete;

private:
    const CancellationScope m_scope;
    const bool m_isEntered;
};

// Gate held exclusively. False while nothing can be written still.
bool tellLosses() {
    const Losses losses = takeLosses();
    if (losses.lines == 0) return true;
    char reason[64];
    char line[160] = "\n";  // What is torn is ended first.
    std::snprintf(line + 1, sizeof(line) - 1,
                  "zor-debug: lines that could not be written: %u, for: %s\n", losses.lines,
                  strerror_r(losses.error, reason, sizeof(reason)));
    if (g_destination.tell(losses.isTorn ? line : line + 1)) return true;
    addLosses(losses);
    return false;
}

// Gate held exclusively.
void keepLimit(std::size_t length) {
    if (g_openLineOwner != 0) return;  // No line is torn in two.
    if (g_destination.makeRoomFor(length) == Destination::Limit::Kept || g_isLimitReported) return;
    g_isLimitReported = true;
    char reason[64];
    char line[512];
    std::snprintf(line, sizeof(line), "zor-debug: cannot begin '%.300s' anew: %s; it grows on\n",
                  g_destination.pathPattern(), strerror_r(errno, reason, sizeof(reason)));
    (void)g_destination.tell(line);
}

// Gate held exclusively.
__attribute__((noinline, cold)) void writeWithCare(std::string_view text) {
    if (g_isExiting) {
        if (!g_isGivenUp.load(std::memory_order_relaxed) &&
            !g_destination.writeUntil(Deadline::inMilliseconds(kExitPatienceMs), text)) {
            g_isGivenUp.store(true, std::memory_order_relaxed);
        }
        return;
    }
    if (!tellLosses()) {
        addLoss(text, errno, false);
    } else {
        keepLimit(text.size());
        (void)g_destination.write(text);
    }
    (void)takeOwnLoss();  // Noted here.
    decideCare();
}

// Gate held exclusively.
void writeOut(std::string_view text) {
    if (g_needsCare) {
        writeWithCare(text);
    } else if (!g_destination.write(text)) {
        (void)takeOwnLoss();
        decideCare();
    }
}

// Gate held exclusively: sends out text of @p owner. An incomplete line that was sent out for
// another thread is ended first: lines are never glued together.
void send(std::string_view text, pid_t owner) {
    if (text.empty()) return;
    if (g_openLineOwner != 0 && g_openLineOwner != owner) writeOut("\n");
    writeOut(text);
    g_openLineOwner = text.back() == '\n' ? 0 : owner;
}

void destroy(LineBuffer* p_buffer) {
    g_gate.remove(p_buffer);
    std::free(p_buffer->p_text);
    std::free(p_buffer);
}

// Gate held exclusively: the calling thread's buffer, or null when there is no memory for one or no
// way to free it.
LineBuffer* ownBuffer() {
    if (t_state.p_line != nullptr || !g_hasKey) return t_state.p_line;
    void* p_memory = std::malloc(sizeof(LineBuffer));
    if (p_memory == nullptr) return nullptr;
    LineBuffer* p_buffer = new (p_memory) LineBuffer();
    if (pthread_setspecific(g_bufferKey, p_buffer) != 0) {
        std::free(p_memory);
        return nullptr;
    }
    p_buffer->ownerId = threadId();
    g_gate.add(p_buffer);
    t_state.p_line = p_buffer;
    return p_buffer;
}

// Appends one line of @p piece, or its beginning, with what belongs around it.
void appendPiece(LineBuffer* p_buffer, std::string_view piece, bool isLineBegun) {
    const bool isColourful = g_destination.isColourful();
    if (!isLineBegun) {
        char decoration[kMaxDecoration];
        p_buffer->append(
            {decoration, beginLine(decoration, g_prefix, isColourful, t_state.lastOn)});
    }
    const bool isLineEnd = piece.back() == '\n';
    p_buffer->append(piece.substr(0, piece.size() - (isLineEnd ? 1 : 0)));
    if (!isLineEnd) return;
    if (isColourful) p_buffer->append(endOfColour());
    p_buffer->append("\n");
}

// Appends the text line by line. False when there is no memory; nothing is appended then.
bool appendText(LineBuffer* p_buffer, std::string_view text) {
    const auto lineCount = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
    if (!p_buffer->reserve(text.size() + lineCount * kMaxDecoration)) return false;
    bool isLineBegun = p_buffer->length > 0;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
        appendPiece(p_buffer, text.substr(0, end), isLineBegun);
        isLineBegun = text[end - 1] != '\n';
        text.remove_prefix(end);
    }
    return true;
}

void removeSent(LineBuffer* p_buffer, std::size_t count) {
    p_buffer->removeFront(count);
    if (p_buffer->length > 0 || p_buffer->capacity <= kKeptCapacity) return;
    std::free(p_buffer->p_text);
    p_buffer->p_text = nullptr;
    p_buffer->capacity = 0;
}

// Gate held shared: writes a text that is one line with its prefix directly, without the buffer.
// False, with nothing written, when the buffer is needed.
bool writeLine(FormattedText* p_text) {
    const std::string_view text = p_text->view();
    if (text.find('\n') != text.size() - 1) return false;
    char prefix[kMaxDecoration];
    const std::size_t length = beginLine(prefix, g_prefix, false, t_state.lastOn);
    if (!p_text->prepend(std::string_view(prefix, length))) return false;
    (void)g_destination.write(p_text->view());
    return true;
}

// How much of the text is whole lines.
std::size_t lengthOfLines(std::string_view text) {
    if (text.back() == '\n') return text.size();
    const void* p_last = memrchr(text.data(), '\n', text.size());
    return p_last != nullptr
               ? static_cast<std::size_t>(static_cast<const char*>(p_last) - text.data()) + 1
               : 0;
}

// Gate held shared, and there is nothing to be put around a line. As writeShared(); false also
// where lines were lost.
bool writeSharedAsItIs(std::string_view text, LineBuffer* p_buffer) {
    const std::size_t lines = lengthOfLines(text);
    if (p_buffer->length == 0 && lines == text.size()) return g_destination.write(text);
    if (!p_buffer->reserve(text.size())) return false;
    const std::size_t count = p_buffer->length + lines;
    p_buffer->append(text);
    if (lines == 0) return true;
    const bool isWritten = g_destination.write(p_buffer->view().substr(0, count));
    removeSent(p_buffer, count);
    return isWritten;
}

// Gate held shared. False when out of memory, with nothing done: the unfinished line must then be
// sent, which needs the gate exclusively. False also where lines were lost: see takeOwnLoss().
bool writeShared(FormattedText* p_text, LineBuffer* p_buffer) {
    if (g_prefix.isEmpty() && !g_destination.isColourful()) {
        return writeSharedAsItIs(p_text->view(), p_buffer);
    }
    if (p_buffer->length == 0 && writeLine(p_text)) return !t_state.hasLost;
    if (!appendText(p_buffer, p_text->view())) return false;
    const std::size_t count = p_buffer->view().rfind('\n') + 1;
    if (count == 0) return true;
    const bool isWritten = g_destination.write(p_buffer->view().substr(0, count));
    removeSent(p_buffer, count);
    return isWritten;
}

bool isLineBegun() {
    return t_state.p_line != nullptr && t_state.p_line->length > 0;
}

bool needsNoBuffer(std::string_view text) {
    const bool isDecorated = !g_prefix.isEmpty() || g_destination.isColourful();
    return !isLineBegun() && !isDecorated && (text.back() == '\n' || g_isExiting);
}

void writeExclusive(std::string_view text) {
    // Creates the buffer, with which this thread's next text can enter the gate shared.
    if (g_destination.isAtomic()) (void)ownBuffer();
    if (needsNoBuffer(text)) {
        send(text, threadId());
        return;
    }
    LineBuffer* p_buffer = ownBuffer();
    if (p_buffer == nullptr || !appendText(p_buffer, text)) {
        // Out of memory: a line in two pieces is better than none.
        if (p_buffer != nullptr) send(p_buffer->view(), p_buffer->ownerId);
        if (p_buffer != nullptr) p_buffer->length = 0;
        send(text, threadId());
        return;
    }
    const std::size_t count = g_isExiting ? p_buffer->length : p_buffer->view().rfind('\n') + 1;
    send(p_buffer->view().substr(0, count), p_buffer->ownerId);
    removeSent(p_buffer, count);
}

// What could not be written beside others. What was lost there closes the gate until it is told,
// which takes the gate exclusively.
__attribute__((noinline)) void writeAlone(std::string_view text) {
    if (g_isGivenUp.load(std::memory_order_relaxed)) return;
    const ExclusiveGuard exclusive;
    if (takeOwnLoss()) {
        decideCare();
    } else {
        writeExclusive(text);
    }
}

void onThreadEnd(void* p_buffer) {
    const ExclusiveGuard exclusive;
    auto* p_line = static_cast<LineBuffer*>(p_buffer);
    send(p_line->view(), p_line->ownerId);
    destroy(p_line);
    // Another thread-specific destructor may still write and then gets a new buffer.
    t_state.p_line = nullptr;
}

// Sends what is kept back; from here on the process's last words go out as they come. A thread that
// is stuck in a write, for nobody reads, holds the gate: the exit does not wait for it for ever.
__attribute__((destructor)) void onProcessExit() {
    const CancellationScope scope;
    if (!g_gate.enterExclusiveUntil(Deadline::inMilliseconds(kExitPatienceMs))) {
        g_isGivenUp.store(true, std::memory_order_relaxed);
        return;
    }
    if (hasLosses() && !g_destination.mayBlock()) (void)tellLosses();
    g_isExiting = true;
    decideCare();
    for (GateMember* p_member = g_gate.members(); p_member != nullptr;
         p_member = p_member->p_next) {
        auto* p_line = static_cast<LineBuffer*>(p_member);
        send(p_line->view(), p_line->ownerId);
        p_line->length = 0;
    }
    g_gate.leaveExclusive(true, mayShare());
}

}  // namespace

void writeText(FormattedText* p_text) {
    if (p_text->view().empty()) return;
    LineBuffer* p_buffer = t_state.p_line;
    if (p_buffer != nullptr && g_gate.tryEnter(p_buffer)) {
        const bool isWritten = writeShared(p_text, p_buffer);
        g_gate.leave(p_buffer);
        if (isWritten) return;
    }
    writeAlone(p_text->view());
}

void writeOwnLine(const char* p_line) {
    const ExclusiveGuard exclusive;
    send(p_line, threadId());
}

void setPrefix(LinePrefix prefix) {
    const ExclusiveGuard exclusive;
    g_prefix = prefix;
}

void turnToStandardError() {
    const ExclusiveGuard exclusive;
    g_destination.useStandardError();
    decideCare();
}

bool turnToFile(const char* p_path) {
    const ExclusiveGuard exclusive;
    if (!g_destination.useFile(p_path)) return false;
    decideCare();
    return true;
}

void limitFile(std::uint64_t bytes) {
    const ExclusiveGuard exclusive;
    g_destination.setLimit(bytes);
    decideCare();
}

void prepareLineWriter() {
    g_hasKey = pthread_key_create(&g_bufferKey, onThreadEnd) == 0;
}

void lockLineWriter() {
    (void)g_gate.enterExclusive();
}

void unlockLineWriter() {
    g_gate.leaveExclusive(true, mayShare());
}

void resetLineWriterAfterFork() {
    if (t_state.p_line != nullptr) (void)pthread_setspecific(g_bufferKey, nullptr);
    while (g_gate.members() != nullptr) destroy(static_cast<LineBuffer*>(g_gate.members()));
    t_state.p_line = nullptr;
    t_state.id = 0;
    t_state.label = {};
    g_openLineOwner = 0;
    g_destination.followFork();
    decideCare();
}

}  // namespace zor_debug
