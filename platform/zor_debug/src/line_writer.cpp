#include "line_writer.h"

#include <pthread.h>

#include <algorithm>
#include <new>
#include <string_view>

#include "destination.h"
#include "line_buffer.h"
#include "line_decoration.h"
#include "lock.h"
#include "thread_id.h"
#include "thread_state.h"

namespace zor_debug {
namespace {

constexpr std::size_t kKeptCapacity = 4096;  // A buffer that has grown beyond it is given back.

// Guards all that follows and every LineBuffer. A leaf: nothing is called with it held that
// takes another lock or comes back here.
Lock g_outputLock;
Destination g_destination;
LinePrefix g_prefix;
LineBuffer* g_buffers = nullptr;  // Of all threads that have one.
pid_t g_openLineOwner = 0;        // Whose incomplete line was written last; 0 for none.
bool g_isExiting = false;         // Nothing is kept back any more.
bool g_hasKey = false;
pthread_key_t g_bufferKey;  // Frees an ending thread's buffer.

// Sends out text of @p owner. An incomplete line that was sent out for another thread is
// ended first: lines are never glued together.
void send(const char* p_text, std::size_t length, pid_t owner) {
    if (length == 0) return;
    if (g_openLineOwner != 0 && g_openLineOwner != owner) g_destination.write("\n", 1);
    g_destination.write(p_text, length);
    g_openLineOwner = p_text[length - 1] == '\n' ? 0 : owner;
}

void link(LineBuffer* p_buffer) {
    p_buffer->p_next = g_buffers;
    if (g_buffers != nullptr) g_buffers->p_previous = p_buffer;
    g_buffers = p_buffer;
}

void unlink(LineBuffer* p_buffer) {
    if (p_buffer->p_previous != nullptr) p_buffer->p_previous->p_next = p_buffer->p_next;
    if (p_buffer->p_next != nullptr) p_buffer->p_next->p_previous = p_buffer->p_previous;
    if (g_buffers == p_buffer) g_buffers = p_buffer->p_next;
}

void destroy(LineBuffer* p_buffer) {
    unlink(p_buffer);
    std::free(p_buffer->p_text);
    std::free(p_buffer);
}

// The calling thread's buffer, or null when there is no memory for one or no way to free it.
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
    link(p_buffer);
    t_state.p_line = p_buffer;
    return p_buffer;
}

// Appends one line of @p piece, or its beginning, with what belongs around it.
void appendPiece(LineBuffer* p_buffer, std::string_view piece, bool isLineBegun) {
    const bool isColourful = g_destination.isColourful();
    if (!isLineBegun) {
        p_buffer->level = t_state.lastOn.level;
        char decoration[kMaxDecoration];
        p_buffer->append(decoration, beginLine(decoration, g_prefix, isColourful, p_buffer->level));
    }
    const bool isLineEnd = piece.back() == '\n';
    p_buffer->append(piece.data(), piece.size() - (isLineEnd ? 1 : 0));
    if (!isLineEnd) return;
    if (isColourful) p_buffer->append(endOfColour().data(), endOfColour().size());
    p_buffer->append("\n", 1);
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

void sendCompleteLines(LineBuffer* p_buffer) {
    const std::string_view text(p_buffer->p_text, p_buffer->length);
    const std::size_t lastEnd = text.rfind('\n');
    if (lastEnd == std::string_view::npos && !g_isExiting) return;
    const std::size_t count = g_isExiting ? text.size() : lastEnd + 1;
    send(p_buffer->p_text, count, p_buffer->ownerId);
    p_buffer->removeFront(count);
    if (p_buffer->length == 0 && p_buffer->capacity > kKeptCapacity) {
        std::free(p_buffer->p_text);
        p_buffer->p_text = nullptr;
        p_buffer->capacity = 0;
    }
}

bool needsNoBuffer(std::string_view text) {
    const bool isLineBegun = t_state.p_line != nullptr && t_state.p_line->length > 0;
    const bool isDecorated = g_prefix.time || g_prefix.thread || g_destination.isColourful();
    return !isLineBegun && !isDecorated && (text.back() == '\n' || g_isExiting);
}

void onThreadEnd(void* p_buffer) {
    const Locked locked(g_outputLock);
    auto* p_line = static_cast<LineBuffer*>(p_buffer);
    send(p_line->p_text, p_line->length, p_line->ownerId);
    destroy(p_line);
    // Another thread-specific destructor may still write and then gets a new buffer.
    t_state.p_line = nullptr;
}

// Sends what is kept back; from here on the process's last words go out as they come.
__attribute__((destructor)) void onProcessExit() {
    const Locked locked(g_outputLock);
    for (LineBuffer* p_line = g_buffers; p_line != nullptr; p_line = p_line->p_next) {
        send(p_line->p_text, p_line->length, p_line->ownerId);
        p_line->length = 0;
    }
    g_isExiting = true;
}

}  // namespace

void writeText(const char* p_text, std::size_t length) {
    if (length == 0) return;
    const std::string_view text(p_text, length);
    const Locked locked(g_outputLock);
    if (needsNoBuffer(text)) {
        send(p_text, length, threadId());
        return;
    }
    LineBuffer* p_buffer = ownBuffer();
    if (p_buffer == nullptr || !appendText(p_buffer, text)) {
        // Out of memory: a line in two pieces is better than none.
        if (p_buffer != nullptr) send(p_buffer->p_text, p_buffer->length, p_buffer->ownerId);
        if (p_buffer != nullptr) p_buffer->length = 0;
        send(p_text, length, threadId());
        return;
    }
    sendCompleteLines(p_buffer);
}

void writeOwnLine(const char* p_line) {
    const Locked locked(g_outputLock);
    send(p_line, std::strlen(p_line), threadId());
}

void setPrefix(LinePrefix prefix) {
    const Locked locked(g_outputLock);
    g_prefix = prefix;
}

void turnToStandardError() {
    const Locked locked(g_outputLock);
    g_destination.useStandardError();
}

bool turnToFile(const char* p_path) {
    const Locked locked(g_outputLock);
    return g_destination.useFile(p_path);
}

void prepareLineWriter() {
    g_hasKey = pthread_key_create(&g_bufferKey, onThreadEnd) == 0;
}

void lockLineWriter() {
    (void)pthread_mutex_lock(&g_outputLock.mutex);
}

void unlockLineWriter() {
    (void)pthread_mutex_unlock(&g_outputLock.mutex);
}

void resetLineWriterAfterFork() {
    if (t_state.p_line != nullptr) (void)pthread_setspecific(g_bufferKey, nullptr);
    while (g_buffers != nullptr) destroy(g_buffers);
    t_state.p_line = nullptr;
    t_state.id = 0;
    g_openLineOwner = 0;
    g_destination.followFork();
}

}  // namespace zor_debug
