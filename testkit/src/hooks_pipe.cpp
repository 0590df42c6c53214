// Pipes that a scenario makes, and waits for them. Bytes go through the kernel's pipe, without ever
// blocking there; who waits, and for how many bytes there is room, is decided here. Other
// descriptors are the kernel's alone.
#include <fcntl.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "hooks.h"

namespace tevalon::testkit {
namespace {

struct Pipe {
    int readEnd = -1;
    int writeEnd = -1;
    std::size_t bytes = 0;
    bool isBlocking = true;
};

constexpr std::size_t kMostPipes = 16;
std::array<Pipe, kMostPipes> g_pipes;
std::size_t g_pipeCount = 0;

Pipe* pipeOf(int descriptor) {
    for (std::size_t i = 0; i < g_pipeCount; ++i) {
        Pipe& pipe = g_pipes[i];
        if (pipe.readEnd == descriptor || pipe.writeEnd == descriptor) return &pipe;
    }
    return nullptr;
}

int makePipe(int* p_ends, int flags) {
    if (g_pipeCount == kMostPipes) {
        g_schedule.finish(Outcome::Unsupported, "more than %zu pipes", kMostPipes);
    }
    if (TESTKIT_REAL(pipe2)(p_ends, flags | O_NONBLOCK) != 0) return -1;
    g_pipes[g_pipeCount++] = {p_ends[0], p_ends[1], 0, (flags & O_NONBLOCK) == 0};
    return 0;
}

std::size_t room(const Pipe& pipe) {
    const std::size_t all = g_schedule.options().pipeBytes;
    return all > pipe.bytes ? all - pipe.bytes : 0;
}

// A full pipe that does not block takes nothing, as the kernel's does for so few bytes.
ssize_t writePipe(Pipe* p_pipe, const void* p_bytes, std::size_t count) {
    Location& location = g_schedule.at(p_pipe);
    g_schedule.point(location, Touch::Write, "writes to the pipe");
    if (std::exchange(Schedule::self()->isNextWriteRefused, false)) {
        errno = EIO;
        return -1;
    }
    if (room(*p_pipe) < count) {
        if (!p_pipe->isBlocking) {
            g_schedule.happened(location, Touch::Read);
            errno = EAGAIN;
            return -1;
        }
        (void)g_schedule.waitUntil("room in the pipe", &location, kNever,
                                   [=](bool) { return room(*p_pipe) >= count; });
    }
    const ssize_t written = syscall(SYS_write, p_pipe->writeEnd, p_bytes, count);
    if (written > 0) p_pipe->bytes += static_cast<std::size_t>(written);
    g_schedule.release(location);
    g_schedule.happened(location, Touch::Write);
    return written;
}

ssize_t readPipe(Pipe* p_pipe, void* p_bytes, std::size_t count) {
    Location& location = g_schedule.at(p_pipe);
    g_schedule.point(location, Touch::Write, "reads from the pipe");
    if (p_pipe->bytes == 0 && p_pipe->isBlocking) {
        (void)g_schedule.waitUntil("bytes in the pipe", &location, kNever,
                                   [=](bool) { return p_pipe->bytes > 0; });
    }
    const ssize_t result = syscall(SYS_read, p_pipe->readEnd, p_bytes, count);
    if (result > 0) p_pipe->bytes -= static_cast<std::size_t>(result);
    g_schedule.acquire(location);
    g_schedule.happened(location, Touch::Write);
    return result;
}

bool isReadable(int descriptor) {
    const Pipe* const p_pipe = pipeOf(descriptor);
    return p_pipe != nullptr && p_pipe->readEnd == descriptor && p_pipe->bytes > 0;
}
bool isWritable(int descriptor) {
    const Pipe* const p_pipe = pipeOf(descriptor);
    return p_pipe != nullptr && p_pipe->writeEnd == descriptor && room(*p_pipe) > 0;
}

// One whose set is larger than an fd_set can be is read by words, as the kernel reads it.
bool isIn(const fd_set* p_set, int descriptor) {
    constexpr int kBits = 8 * sizeof(unsigned long);
    if (p_set == nullptr) return false;
    const auto* const p_words = reinterpret_cast<const unsigned long*>(p_set);
    return (p_words[descriptor / kBits] >> (descriptor % kBits) & 1U) != 0;
}
void remove(fd_set* p_set, int descriptor) {
    constexpr int kBits = 8 * sizeof(unsigned long);
    auto* const p_words = reinterpret_cast<unsigned long*>(p_set);
    p_words[descriptor / kBits] &= ~(1UL << (descriptor % kBits));
}

/// The first pipe among them; scenarios with more than one in a wait are told apart by it too.
Location& locationOf(int descriptor) {
    Pipe* const p_pipe = descriptor >= 0 ? pipeOf(descriptor) : nullptr;
    return g_schedule.at(p_pipe != nullptr ? p_pipe : g_pipes.data());
}

int wait(const char* waitsFor, int firstDescriptor, std::int64_t deadline,
         int (*p_countReady)(void*), void* p_context) {
    Location& location = locationOf(firstDescriptor);
    g_schedule.point(location, Touch::Read, "looks for input");
    (void)g_schedule.waitUntil(waitsFor, &location, deadline,
                               [=](bool isOver) { return isOver || p_countReady(p_context) > 0; });
    g_schedule.acquire(location);
    g_schedule.happened(location, Touch::Read);
    return p_countReady(p_context);
}

struct Selection {
    int count;
    fd_set* p_read;
    fd_set* p_write;
};

int countSelected(void* p_context) {
    const Selection& selection = *static_cast<Selection*>(p_context);
    int ready = 0;
    for (int i = 0; i < selection.count; ++i) {
        if (isIn(selection.p_read, i) && isReadable(i)) ++ready;
        if (isIn(selection.p_write, i) && isWritable(i)) ++ready;
    }
    return ready;
}

int select(Selection selection, std::int64_t deadline) {
    int first = -1;
    for (int i = 0; i < selection.count && first < 0; ++i) {
        if (isIn(selection.p_read, i) || isIn(selection.p_write, i)) first = i;
    }
    const int ready = wait("input", first, deadline, countSelected, &selection);
    for (int i = 0; i < selection.count; ++i) {
        if (isIn(selection.p_read, i) && !isReadable(i)) remove(selection.p_read, i);
        if (isIn(selection.p_write, i) && !isWritable(i)) remove(selection.p_write, i);
    }
    return ready;
}

struct Polled {
    pollfd* p_descriptors;
    nfds_t count;
};

int countPolled(void* p_context) {
    const Polled& polled = *static_cast<Polled*>(p_context);
    int ready = 0;
    for (nfds_t i = 0; i < polled.count; ++i) {
        pollfd& descriptor = polled.p_descriptors[i];
        descriptor.revents = 0;
        if ((descriptor.events & POLLIN) != 0 && isReadable(descriptor.fd)) {
            descriptor.revents |= POLLIN;
        }
        if ((descriptor.events & POLLOUT) != 0 && isWritable(descriptor.fd)) {
            descriptor.revents |= POLLOUT;
        }
        if (descriptor.revents != 0) ++ready;
    }
    return ready;
}

}  // namespace

void linkPipeHooks() {}

}  // namespace tevalon::testkit

namespace testkit = tevalon::testkit;
using testkit::g_schedule;
using testkit::isHooked;

TESTKIT_HOOK int pipe2(int* p_ends, int flags) noexcept {
    if (!isHooked()) return TESTKIT_REAL(pipe2)(p_ends, flags);
    return testkit::makePipe(p_ends, flags);
}
TESTKIT_HOOK int pipe(int* p_ends) noexcept {
    return pipe2(p_ends, 0);
}
TESTKIT_HOOK ssize_t write(int descriptor, const void* p_bytes, std::size_t count) {
    testkit::Pipe* const p_pipe = isHooked() ? testkit::pipeOf(descriptor) : nullptr;
    if (p_pipe == nullptr) return syscall(SYS_write, descriptor, p_bytes, count);
    return testkit::writePipe(p_pipe, p_bytes, count);
}
TESTKIT_HOOK ssize_t read(int descriptor, void* p_bytes, std::size_t count) {
    testkit::Pipe* const p_pipe = isHooked() ? testkit::pipeOf(descriptor) : nullptr;
    if (p_pipe == nullptr) return syscall(SYS_read, descriptor, p_bytes, count);
    return testkit::readPipe(p_pipe, p_bytes, count);
}
TESTKIT_HOOK int select(int count, fd_set* p_read, fd_set* p_write, fd_set* p_except,
                        timeval* p_wait) {
    if (!isHooked()) return TESTKIT_REAL(select)(count, p_read, p_write, p_except, p_wait);
    std::int64_t deadline = testkit::kNever;
    if (p_wait != nullptr) {
        deadline = testkit::deadlineIn({p_wait->tv_sec, p_wait->tv_usec * 1000L});
    }
    return testkit::select({count, p_read, p_write}, deadline);
}
TESTKIT_HOOK int poll(pollfd* p_descriptors, nfds_t count, int timeoutMs) {
    if (!isHooked()) return TESTKIT_REAL(poll)(p_descriptors, count, timeoutMs);
    std::int64_t deadline = testkit::kNever;
    if (timeoutMs >= 0) {
        deadline = testkit::deadlineIn({timeoutMs / 1000, timeoutMs % 1000 * 1'000'000L});
    }
    testkit::Polled polled = {p_descriptors, count};
    return testkit::wait("input", count > 0 ? p_descriptors[0].fd : -1, deadline,
                         testkit::countPolled, &polled);
}
