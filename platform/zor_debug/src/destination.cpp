#include "destination.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "losses.h"

namespace zor_debug {
namespace {

// Keeps the SIGPIPE that a write may raise from reaching the process, and leaves one that was
// pending already, or blocked, as it was.
class PipeSignalGuard {
public:
    PipeSignalGuard() {
        sigset_t pending;
        m_wasPending = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        (void)pthread_sigmask(SIG_BLOCK, &m_pipe, &m_before);
    }
    ~PipeSignalGuard() {
        const int error = errno;  // Of the write.
        const timespec noWait = {};
        while (!m_wasPending && sigtimedwait(&m_pipe, nullptr, &noWait) == -1 && errno == EINTR) {
        }
        (void)pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        errno = error;
    }

    PipeSignalGuard(const PipeSignalGuard&) = delete;
    PipeSignalGuard& operator=(const PipeSignalGuard&) = delete;

private:
    sigset_t m_pipe;
    sigset_t m_before;
    bool m_wasPending;
};

void waitUntilWritable(int descriptor) {
    pollfd wanted = {descriptor, POLLOUT, 0};
    (void)poll(&wanted, 1, -1);  // Interrupted or not, the write that follows finds out.
}

bool becomesWritable(int descriptor, const Deadline& deadline) {
    pollfd wanted = {descriptor, POLLOUT, 0};
    int ready = 0;
    do {
        ready = poll(&wanted, 1, deadline.remainingMs());
    } while (ready < 0 && errno == EINTR);
    return ready > 0;
}

// As write(), which may cancel the thread and, in a process with threads, pays for it each time.
ssize_t writeOnce(int descriptor, std::string_view text) {
    return static_cast<ssize_t>(syscall(SYS_write, descriptor, text.data(), text.size()));
}

// Goes on where a call has written so much, or -1. Returns how much is written in the end: all of
// it, or errno says why not.
std::size_t finishWriting(int descriptor, std::string_view text, ssize_t written) {
    std::size_t done = 0;
    while (true) {
        if (written >= 0) {
            done += static_cast<std::size_t>(written);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            waitUntilWritable(descriptor);
        } else if (errno != EINTR) {
            return done;  // A full disk, a closed descriptor, a reader that has gone.
        }
        if (done == text.size()) return done;
        written = writeOnce(descriptor, text.substr(done));
    }
}

// The file is gone on with.
void renameBack(const char* p_from, const char* p_to) {
    const int error = errno;
    (void)rename(p_from, p_to);
    errno = error;
}

bool isTornAt(std::string_view text, std::size_t done) {
    return done != 0 && text[done - 1] != '\n';
}

// Replaces each %p by the process id. False when the result is too long.
bool expandPath(const char* p_pattern, char* p_path, std::size_t capacity) {
    std::size_t length = 0;
    for (const char* p_next = p_pattern; *p_next != '\0'; ++p_next) {
        char piece[16] = {*p_next, '\0'};
        if (p_next[0] == '%' && p_next[1] == 'p') {
            std::snprintf(piece, sizeof(piece), "%ld", static_cast<long>(getpid()));
            ++p_next;
        }
        const std::size_t pieceLength = std::strlen(piece);
        if (length + pieceLength >= capacity) return false;
        std::memcpy(p_path + length, piece, pieceLength + 1);
        length += pieceLength;
    }
    return true;
}

// A descriptor above the standard three: with standard error closed, other people's error
// messages must not end up in our file.
int moveAboveStandard(int descriptor) {
    if (descriptor > STDERR_FILENO) return descriptor;
    const int moved = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    (void)close(descriptor);
    errno = error;
    return moved;
}

// Opened without waiting: a pipe that nobody reads is an error, not a hang.
int openToAppend(const char* p_path) {
    const int opened =
        open(p_path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0644);
    if (opened < 0) return -1;
    const int descriptor = moveAboveStandard(opened);
    if (descriptor < 0) return -1;
    const int flags = fcntl(descriptor, F_GETFL);
    if (flags >= 0) (void)fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK);
    return descriptor;
}

bool isSet(const char* p_variable) {
    const char* p_value = std::getenv(p_variable);
    return p_value != nullptr && *p_value != '\0';
}

bool wantsColours(int descriptor) {
    if (isatty(descriptor) != 1 || isSet("NO_COLOR")) return false;
    const char* p_terminal = std::getenv("TERM");
    return p_terminal == nullptr || std::strcmp(p_terminal, "dumb") != 0;
}

mode_t typeOf(int descriptor) {
    struct stat status = {};
    return fstat(descriptor, &status) == 0 ? status.st_mode & S_IFMT : 0;
}

std::uint64_t sizeOf(int descriptor) {
    struct stat status = {};
    return fstat(descriptor, &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

// Whether the file system locks a file before it looks for the end that is appended to. Those that
// ask a server, or a process, may not.
bool isLocal(int descriptor) {
    struct statfs status = {};
    if (fstatfs(descriptor, &status) != 0) return false;
    switch (static_cast<std::uint32_t>(status.f_type)) {
        case NFS_SUPER_MAGIC:
        case V9FS_MAGIC:
        case SMB_SUPER_MAGIC:
        case 0xFF534D42:  // CIFS, which older headers do not name,
        case 0xFE534D42:  // nor SMB 2,
        case 0x65735546:  // nor FUSE.
            return false;
        default:
            return true;
    }
}

bool appendsAtomically(int descriptor, mode_t type) {
    if (descriptor == STDERR_FILENO || isatty(descriptor) == 1) return false;
    return type == S_IFCHR || (type == S_IFREG && isLocal(descriptor));
}

}  // namespace

void Destination::useStandardError() {
    m_pathPattern[0] = '\0';
    turnTo(STDERR_FILENO);
}

bool Destination::useFile(const char* p_path) {
    char path[kMaxPath];
    const std::size_t length = std::strlen(p_path);
    if (length >= kMaxPath || !expandPath(p_path, path, sizeof(path))) {
        errno = ENAMETOOLONG;
        return false;
    }
    const int descriptor = openToAppend(path);
    if (descriptor < 0) return false;
    if (p_path != m_pathPattern) std::memcpy(m_pathPattern, p_path, length + 1);
    turnTo(descriptor);
    return true;
}

void Destination::followFork() {
    // Two processes that limit one file would each rename what the other one has just begun.
    m_isShared = true;
    if (std::strstr(m_pathPattern, "%p") == nullptr) return;
    // Failing that, the child goes on in its parent's file, which is better than nowhere.
    (void)useFile(m_pathPattern);
}

void Destination::turnTo(int descriptor) {
    if (m_descriptor > STDERR_FILENO) (void)close(m_descriptor);
    m_descriptor = descriptor;
    m_isColourful = wantsColours(descriptor);
    const mode_t type = typeOf(descriptor);
    m_mayBreak = type == S_IFIFO || type == S_IFSOCK;
    m_mayBlock = m_mayBreak || isatty(descriptor) == 1;
    m_isFile = type == S_IFREG && descriptor > STDERR_FILENO;
    m_isShared = false;
    m_size = m_isFile ? sizeOf(descriptor) : 0;
    m_isAtomic = appendsAtomically(descriptor, type);
}

void Destination::setLimit(std::uint64_t bytes) {
    m_limit = bytes;
    if (m_isFile) m_size = sizeOf(m_descriptor);
}

bool Destination::write(std::string_view text) const {
    if (m_mayBreak) return writeToPipe(text);
    const ssize_t written = writeOnce(m_descriptor, text);
    if (written == static_cast<ssize_t>(text.size())) return true;
    return finish(text, written);
}

__attribute__((noinline)) bool Destination::writeToPipe(std::string_view text) const {
    const PipeSignalGuard guard;
    const ssize_t written = writeOnce(m_descriptor, text);
    return written == static_cast<ssize_t>(text.size()) || finish(text, written);
}

__attribute__((noinline, cold)) bool Destination::finish(std::string_view text,
                                                         ssize_t written) const {
    const std::size_t done = finishWriting(m_descriptor, text, written);
    if (done == text.size()) return true;
    addLoss(text.substr(done), errno, isTornAt(text, done));
    return false;
}

bool Destination::tell(const char* p_line) const {
    const PipeSignalGuard guard;
    const std::string_view line(p_line);
    return finishWriting(m_descriptor, line, 0) == line.size();
}

Destination::Limit Destination::makeRoomFor(std::size_t length) {
    if (!isLimited() || m_size + length <= m_limit || m_size == 0) {
        m_size += length;
        return Limit::Kept;
    }
    m_size = length;  // Whatever comes of it: where it fails it is tried again after as much more.
    char path[kMaxPath];
    char predecessor[kMaxPath + 2];
    if (!expandPath(m_pathPattern, path, sizeof(path))) return Limit::Kept;
    std::snprintf(predecessor, sizeof(predecessor), "%s.1", path);
    if (rename(path, predecessor) != 0) return Limit::Failed;
    const int descriptor = openToAppend(path);
    if (descriptor < 0) {
        renameBack(predecessor, path);
        return Limit::Failed;
    }
    turnTo(descriptor);
    m_size += length;
    return Limit::Kept;
}

bool Destination::writeUntil(const Deadline& deadline, std::string_view text) const {
    if (!m_mayBlock) {
        (void)write(text);
        return true;
    }
    // A pipe that is writable takes so much without blocking; a terminal may have less room.
    const std::size_t maxPiece = m_mayBreak ? PIPE_BUF : 256;
    while (!text.empty()) {
        const std::string_view piece = text.substr(0, maxPiece);
        if (!becomesWritable(m_descriptor, deadline)) return false;
        (void)write(piece);
        text.remove_prefix(piece.size());
    }
    return true;
}

}  // namespace zor_debug
