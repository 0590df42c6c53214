#include "settings.h"

#include <pthread.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "call_scope.h"
#include "levels.h"
#include "levels_file.h"
#include "line_writer.h"
#include "lock.h"
#include "report.h"
#include "text.h"

namespace zor_debug {
namespace {

constexpr const char* kLevelsVariable = "ZOR_DEBUG";
constexpr const char* kFileVariable = "ZOR_DEBUG_FILE";
constexpr const char* kFileLimitVariable = "ZOR_DEBUG_FILE_BYTES";
constexpr const char* kPrefixVariable = "ZOR_DEBUG_PREFIX";

// Held while the environment is read. A lock and not pthread_once(): a fork waits for it, so that
// no child finds the settings half read, and reads them again on top.
Lock g_environmentLock;
Lock g_levelsLock;  // One change of the levels at a time.

bool isEmpty(const char* p_text) {
    return p_text == nullptr || *p_text == '\0';
}

std::string_view viewOf(const char* p_text) {
    return p_text != nullptr ? std::string_view(p_text) : std::string_view();
}

struct NamedPiece {
    std::string_view name;
    bool LinePrefix::*p_isShown;
};

constexpr NamedPiece kPrefixPieces[] = {{"wall", &LinePrefix::wall},
                                        {"time", &LinePrefix::time},
                                        {"level", &LinePrefix::level},
                                        {"module", &LinePrefix::module},
                                        {"thread", &LinePrefix::thread}};

bool addPiece(std::string_view name, LinePrefix* p_prefix) {
    for (const NamedPiece& piece : kPrefixPieces) {
        if (!isSameWord(piece.name, name)) continue;
        p_prefix->*piece.p_isShown = true;
        return true;
    }
    return false;
}

bool tryPrefix(const char* p_text, std::string_view* p_bad) {
    LinePrefix prefix;
    ItemReader items(viewOf(p_text));
    for (std::string_view item; !isEmpty(p_text) && items.next(&item);) {
        if (addPiece(item, &prefix)) continue;
        *p_bad = item;
        return false;
    }
    setPrefix(prefix);
    return true;
}

void readDestination(const char* p_path) {
    if (setFile(p_path)) return;
    char rest[160];
    char reason[64];
    std::snprintf(rest, sizeof(rest),
                  ": %s; accepted is a file to append to, %%p in its name being the process id; "
                  "standard error is used",
                  strerror_r(errno, reason, sizeof(reason)));
    report(kFileVariable, p_path, rest);
}

void readFileLimit(const char* p_text) {
    if (setFileLimit(p_text)) return;
    report(kFileLimitVariable, p_text,
           "; accepted is a number of bytes, with K, M or G behind it where it is of these; "
           "the file is not limited");
}

void readPrefix(const char* p_text) {
    std::string_view bad;
    if (tryPrefix(p_text, &bad)) return;
    report(kPrefixVariable, bad,
           "; accepted are wall, time, level, module and thread, separated by commas; "
           "no prefix is used");
}

void readLevels(const char* p_text) {
    std::string_view bad;
    if (tryLevels(viewOf(p_text), &bad)) return;
    (void)setLevels(nullptr);
    char rest[sizeof(kAcceptedLevels) + 32];
    std::snprintf(rest, sizeof(rest), "; %s; error is used", kAcceptedLevels);
    report(kLevelsVariable, bad, rest);
}

void readLevelsFile(const char* p_path) {
    if (setLevelsFile(p_path)) return;
    report(kLevelsFileVariable, p_path, ": File name too long; no file is looked at");
}

void readEnvironment() {
    prepareLineWriter();
    turnToStandardError();
    // The destination first: that is where complaints about the others are looked for.
    readDestination(secure_getenv(kFileVariable));
    readFileLimit(secure_getenv(kFileLimitVariable));
    readPrefix(std::getenv(kPrefixVariable));
    readLevels(std::getenv(kLevelsVariable));
    readLevelsFile(secure_getenv(kLevelsFileVariable));
    g_isEnvironmentRead.store(true, std::memory_order_release);
}

}  // namespace

void readEnvironmentOnce() {
    const CallScope scope;
    const Locked locked(g_environmentLock);
    if (!g_isEnvironmentRead.load(std::memory_order_relaxed)) readEnvironment();
}

bool tryLevels(std::string_view text, std::string_view* p_bad) {
    LevelSettings settings;
    if (!parseLevels(text, &settings, p_bad)) return false;
    const Locked locked(g_levelsLock);
    applyLevels(settings);
    return true;
}

void checkEachLevelExactly(bool isExact) {
    const Locked locked(g_levelsLock);
    answerExactly(isExact);
}

bool setLevels(const char* p_text) {
    std::string_view bad;
    return tryLevels(viewOf(p_text), &bad);
}

bool setFileLimit(const char* p_text) {
    std::uint64_t bytes = 0;
    if (!isEmpty(p_text) && !parseBytes(trimmed(p_text), &bytes)) return false;
    limitFile(bytes);
    return true;
}

bool setFile(const char* p_path) {
    if (!isEmpty(p_path)) return turnToFile(p_path);
    turnToStandardError();
    return true;
}

bool setPrefixText(const char* p_text) {
    std::string_view bad;
    return tryPrefix(p_text, &bad);
}

void lockSettings() {
    (void)pthread_mutex_lock(&g_environmentLock.mutex);
    lockLevelsFile();
    (void)pthread_mutex_lock(&g_levelsLock.mutex);
}

void unlockSettings() {
    (void)pthread_mutex_unlock(&g_levelsLock.mutex);
    unlockLevelsFile();
    (void)pthread_mutex_unlock(&g_environmentLock.mutex);
}

}  // namespace zor_debug
