#include "settings.h"

#include <pthread.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "call_scope.h"
#include "levels.h"
#include "line_writer.h"
#include "lock.h"
#include "text.h"

namespace zor_debug {
namespace {

constexpr const char* kLevelsVariable = "ZOR_DEBUG";
constexpr const char* kFileVariable = "ZOR_DEBUG_FILE";
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

bool tryLevels(const char* p_text, std::string_view* p_bad) {
    LevelSettings settings;
    if (!parseLevels(viewOf(p_text), &settings, p_bad)) return false;
    const Locked locked(g_levelsLock);
    applyLevels(settings);
    return true;
}

bool tryPrefix(const char* p_text, std::string_view* p_bad) {
    LinePrefix prefix;
    ItemReader items(viewOf(p_text));
    for (std::string_view item; !isEmpty(p_text) && items.next(&item);) {
        if (item == "time") {
            prefix.time = true;
        } else if (item == "thread") {
            prefix.thread = true;
        } else {
            *p_bad = item;
            return false;
        }
    }
    setPrefix(prefix);
    return true;
}

void report(const char* p_variable, std::string_view bad, const char* p_rest) {
    constexpr int kMaxShown = 200;
    char line[512];
    const int shown = bad.size() < kMaxShown ? static_cast<int>(bad.size()) : kMaxShown;
    std::snprintf(line, sizeof(line), "zor-debug: %s: cannot use '%.*s'%s\n", p_variable, shown,
                  bad.data(), p_rest);
    writeOwnLine(line);
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

void readPrefix(const char* p_text) {
    std::string_view bad;
    if (tryPrefix(p_text, &bad)) return;
    report(kPrefixVariable, bad,
           "; accepted are time and thread, separated by a comma; "
           "no prefix is used");
}

void readLevels(const char* p_text) {
    std::string_view bad;
    if (tryLevels(p_text, &bad)) return;
    (void)setLevels(nullptr);
    report(kLevelsVariable, bad,
           "; accepted are off, error, warn, info, debug or 0 to 65535, for one module as in "
           "0x5f=debug, separated by commas; error is used");
}

void readEnvironment() {
    prepareLineWriter();
    turnToStandardError();
    // The destination first: that is where complaints about the others are looked for.
    readDestination(secure_getenv(kFileVariable));
    readPrefix(std::getenv(kPrefixVariable));
    readLevels(std::getenv(kLevelsVariable));
    g_isEnvironmentRead.store(true, std::memory_order_release);
}

}  // namespace

void readEnvironmentOnce() {
    const CallScope scope;
    const Locked locked(g_environmentLock);
    if (!g_isEnvironmentRead.load(std::memory_order_relaxed)) readEnvironment();
}

bool setLevels(const char* p_text) {
    std::string_view bad;
    return tryLevels(p_text, &bad);
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
    (void)pthread_mutex_lock(&g_levelsLock.mutex);
}

void unlockSettings() {
    (void)pthread_mutex_unlock(&g_levelsLock.mutex);
    (void)pthread_mutex_unlock(&g_environmentLock.mutex);
}

}  // namespace zor_debug
