#include "settings.h"

#include <sys/auxv.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "base/diagnostics/recorder.h"

namespace tevalon::record_preload {
namespace {

constexpr const char* kBytesVariable = "TEVALON_RECORD_BYTES";
constexpr const char* kFileVariable = "TEVALON_RECORD_FILE";
constexpr const char* kSignalVariable = "TEVALON_RECORD_SIGNAL";
constexpr const char* kDefaultFile = "/tmp/tevalon-recording.%p";

/// A decimal number without sign; what is behind it goes to *pp_rest.
bool parseNumber(const char* text, unsigned long long* p_number, const char** pp_rest) {
    if (*text < '0' || *text > '9') return false;
    char* p_rest = nullptr;
    errno = 0;
    *p_number = std::strtoull(text, &p_rest, 10);
    *pp_rest = p_rest;
    return errno == 0;
}

bool parseBytes(const char* text, std::size_t* p_bytes) {
    unsigned long long number = 0;
    const char* p_rest = nullptr;
    if (!parseNumber(text, &number, &p_rest)) return false;
    unsigned long long unit = 1;
    if (*p_rest == 'K') unit = 1024;
    if (*p_rest == 'M') unit = 1024ULL * 1024;
    if (unit != 1) ++p_rest;
    if (*p_rest != '\0' || number > base::diagnostics::kMostRecordingBytes / unit) return false;
    *p_bytes = static_cast<std::size_t>(number * unit);
    return *p_bytes >= base::diagnostics::kLeastRecordingBytes;
}

/// Those that nobody can handle, and those that end the process with a report anyway.
bool isTaken(int signal) {
    for (const int taken :
         {SIGKILL, SIGSTOP, SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGSYS, SIGTRAP}) {
        if (signal == taken) return true;
    }
    return false;
}

bool parseSignal(const char* text, int* p_signal) {
    constexpr struct {
        const char* name;
        int number;
    } kNames[] = {{"HUP", SIGHUP}, {"QUIT", SIGQUIT}, {"USR1", SIGUSR1}, {"USR2", SIGUSR2}};
    for (const auto& known : kNames) {
        if (std::strcmp(text, known.name) == 0) {
            *p_signal = known.number;
            return true;
        }
    }
    unsigned long long number = 0;
    const char* p_rest = nullptr;
    if (!parseNumber(text, &number, &p_rest) || *p_rest != '\0') return false;
    if (number < 1 || number >= NSIG || isTaken(static_cast<int>(number))) return false;
    *p_signal = static_cast<int>(number);
    return true;
}

/// Replaces each %p by the process id. False where the result is empty or too long.
bool expandPath(const char* pattern, char* p_path, std::size_t capacity) {
    std::size_t length = 0;
    for (const char* p_next = pattern; *p_next != '\0'; ++p_next) {
        char piece[16] = {*p_next, '\0'};
        if (p_next[0] == '%' && p_next[1] == 'p') {
            (void)std::snprintf(piece, sizeof(piece), "%ld", static_cast<long>(getpid()));
            ++p_next;
        }
        const std::size_t pieceLength = std::strlen(piece);
        if (length + pieceLength >= capacity) return false;
        std::memcpy(p_path + length, piece, pieceLength + 1);
        length += pieceLength;
    }
    return length > 0;
}

const char* textOf(const char* variable) {
    const char* const p_text = std::getenv(variable);
    return p_text != nullptr ? p_text : "";
}

void readBytes(Settings* p_settings) {
    p_settings->bytes = base::diagnostics::RecordingOptions().bytes;
    const char* const p_text = textOf(kBytesVariable);
    if (*p_text == '\0' || parseBytes(p_text, &p_settings->bytes)) return;
    p_settings->bytes = base::diagnostics::RecordingOptions().bytes;
    complain("%s: cannot use '%s'; accepted is a number of bytes from 16K to 1024M; 256K is used",
             kBytesVariable, p_text);
}

void readFile(Settings* p_settings) {
    // Room for what is put behind the name.
    constexpr std::size_t kLongestName = sizeof(p_settings->file) - 64;
    const char* const p_text = textOf(kFileVariable);
    if (*p_text != '\0' && expandPath(p_text, p_settings->file, kLongestName)) return;
    (void)expandPath(kDefaultFile, p_settings->file, kLongestName);
    if (*p_text == '\0') return;
    complain("%s: the name is too long; %s is used", kFileVariable, p_settings->file);
}

void readSignal(Settings* p_settings) {
    p_settings->signal = 0;
    const char* const p_text = textOf(kSignalVariable);
    if (*p_text == '\0' || parseSignal(p_text, &p_settings->signal)) return;
    complain(
        "%s: cannot use '%s'; accepted are HUP, QUIT, USR1, USR2 or a signal's number; none "
        "is used",
        kSignalVariable, p_text);
}

}  // namespace

bool readSettings(Settings* p_settings) {
    if (getauxval(AT_SECURE) != 0) return false;
    readBytes(p_settings);
    readFile(p_settings);
    readSignal(p_settings);
    return true;
}

void complain(const char* format, ...) {
    char line[PATH_MAX + 256];
    va_list args;
    va_start(args, format);
    (void)std::vsnprintf(line, sizeof(line), format, args);
    va_end(args);
    (void)dprintf(STDERR_FILENO, "tevalon-record: %s\n", line);
}

}  // namespace tevalon::record_preload
