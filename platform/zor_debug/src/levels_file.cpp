#include "levels_file.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "call_scope.h"
#include "lock.h"
#include "report.h"
#include "settings.h"
#include "text.h"

namespace zor_debug {
namespace {

constexpr std::uint32_t kPauseMs = 1000;

// When the file was looked at last, in milliseconds that wrap. Relaxed: it guards nothing but the
// number of looks.
std::atomic<std::uint32_t> g_lookedAtMs{0};

// Held for a whole look. It guards what follows.
Lock g_fileLock;
char g_path[4096] = "";
int g_reportedError = 0;  // Why the file could not be read when that was reported last.

/// By what a file that has changed differs: 0 where there is none.
struct Version {
    dev_t device;
    ino_t number;
    off_t size;
    timespec changed;  // Of its permissions too.
};
Version g_lastVersion = {};

bool isSame(const Version& a, const Version& b) {
    return a.device == b.device && a.number == b.number && a.size == b.size &&
           a.changed.tv_sec == b.changed.tv_sec && a.changed.tv_nsec == b.changed.tv_nsec;
}

// False without a clock.
bool readClock(std::uint32_t* p_nowMs) {
    timespec now = {};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return false;
    *p_nowMs = static_cast<std::uint32_t>(now.tv_sec) * 1000U +
               static_cast<std::uint32_t>(now.tv_nsec / 1000000);
    return true;
}

// True once a second, for one thread.
bool isTimeToLook() {
    std::uint32_t nowMs = 0;
    if (!readClock(&nowMs)) return false;
    std::uint32_t lastMs = g_lookedAtMs.load(std::memory_order_relaxed);
    if (nowMs - lastMs <= kPauseMs) return false;  // Both are cut to whole ones.
    return g_lookedAtMs.compare_exchange_strong(lastMs, nowMs, std::memory_order_relaxed);
}

void noteLook() {
    std::uint32_t nowMs = 0;
    if (readClock(&nowMs)) g_lookedAtMs.store(nowMs, std::memory_order_relaxed);
}

void complain(const char* p_reason) {
    char rest[200];
    std::snprintf(rest, sizeof(rest), ": %s; the levels stay as they are", p_reason);
    report(kLevelsFileVariable, g_path, rest);
}

void complainOf(int error) {
    if (error == g_reportedError) return;
    g_reportedError = error;
    char reason[64];
    complain(strerror_r(error, reason, sizeof(reason)));
}

// Whoever could write it could fill the disk of a set, or silence its log.
const char* objectionTo(const struct stat& status) {
    if (!S_ISREG(status.st_mode)) return "it is no file";
    if (status.st_uid != geteuid()) return "it is another user's";
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) return "others can write it";
    return nullptr;
}

void take(std::string_view text) {
    std::string_view bad;
    if (tryLevels(trimmed(text), &bad)) return;
    char rest[sizeof(kAcceptedLevels) + 64];
    std::snprintf(rest, sizeof(rest), "; %s; the levels stay as they are", kAcceptedLevels);
    report(kLevelsFileVariable, bad, rest);
}

ssize_t readWhole(int descriptor, char* p_text, std::size_t capacity) {
    std::size_t length = 0;
    while (length < capacity) {
        const ssize_t got = read(descriptor, p_text + length, capacity - length);
        if (got == 0) break;
        if (got > 0) {
            length += static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return static_cast<ssize_t>(length);
}

// What it was when it was opened decides, not what the path meant before.
void readChanged(int descriptor) {
    struct stat status = {};
    if (fstat(descriptor, &status) != 0) {
        complainOf(errno);
        return;
    }
    const Version version = {status.st_dev, status.st_ino, status.st_size, status.st_ctim};
    if (isSame(version, g_lastVersion)) return;
    if (const char* p_objection = objectionTo(status)) {
        g_lastVersion = version;
        complain(p_objection);
        return;
    }
    char text[4096];
    const ssize_t length = readWhole(descriptor, text, sizeof(text));
    if (length < 0) {
        complainOf(errno);
        return;
    }
    g_lastVersion = version;
    g_reportedError = 0;
    if (length == static_cast<ssize_t>(sizeof(text))) {
        complain("it is too long");
        return;
    }
    take(std::string_view(text, static_cast<std::size_t>(length)));
}

// Locked. A file that is not there will come, or is being replaced.
void look() {
    const int descriptor = open(g_path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW);
    if (descriptor < 0) {
        if (errno != ENOENT) complainOf(errno);
        return;
    }
    readChanged(descriptor);
    (void)close(descriptor);
}

}  // namespace

void lookAtLevelsFile() {
    const CallScope scope;
    if (!isTimeToLook()) return;
    const Locked locked(g_fileLock);
    if (g_path[0] != '\0') look();
}

bool setLevelsFile(const char* p_path) {
    const bool isNamed = p_path != nullptr && *p_path != '\0';
    const std::size_t length = isNamed ? std::strlen(p_path) : 0;
    if (length >= sizeof(g_path)) {
        errno = ENAMETOOLONG;
        return false;
    }
    const Locked locked(g_fileLock);
    if (!isNamed && g_path[0] == '\0') return true;
    if (isNamed) std::memcpy(g_path, p_path, length);
    g_path[length] = '\0';
    g_lastVersion = {};
    g_reportedError = 0;
    g_isLevelsFileNamed.store(isNamed, std::memory_order_relaxed);
    checkEachLevelExactly(isNamed);
    if (!isNamed) return true;
    noteLook();
    look();
    return true;
}

void lockLevelsFile() {
    (void)pthread_mutex_lock(&g_fileLock.mutex);
}

void unlockLevelsFile() {
    (void)pthread_mutex_unlock(&g_fileLock.mutex);
}

}  // namespace zor_debug
