// libtevalon-record.so: preloaded, it records a program that knows nothing of it. See settings.h
// for what it takes from the environment.

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "base/diagnostics/recorder.h"
#include "reporter.h"
#include "settings.h"
#include "signals.h"

namespace tevalon::record_preload {
namespace {

using base::diagnostics::Status;

Settings g_settings;

Status startIn(const char* file) {
    base::diagnostics::RecordingOptions options;
    options.bytes = g_settings.bytes;
    options.file = file;
    return base::diagnostics::startRecording(options);
}

// What is there already may be of an earlier run, whose end somebody wants to know about.
void avoidExistingFile() {
    const std::size_t length = std::strlen(g_settings.file);
    (void)std::snprintf(g_settings.file + length, sizeof(g_settings.file) - length, ".%ld",
                        static_cast<long>(getpid()));
}

void complainAbout(Status status) {
    switch (status) {
        case Status::FileNotOpened:
            complain("cannot open '%s': %s; nothing is recorded", g_settings.file,
                     std::strerror(errno));
            break;
        case Status::FileExists:
            complain("'%s' is there already; nothing is recorded", g_settings.file);
            break;
        case Status::NoRoom:
            complain("no room for %zu bytes in '%s'; nothing is recorded", g_settings.bytes,
                     g_settings.file);
            break;
        case Status::AlreadyRecording:
            complain("the program records already; its own recording goes on");
            break;
        default:
            complain("no memory for %zu bytes; nothing is recorded", g_settings.bytes);
            break;
    }
}

__attribute__((constructor)) void onLoad() {
    if (!readSettings(&g_settings)) return;
    Status status = startIn(g_settings.file);
    if (status == Status::FileExists) {
        avoidExistingFile();
        status = startIn(g_settings.file);
    }
    if (status != Status::Ok) {
        complainAbout(status);
        return;
    }
    // Without the thread the recording alone is there.
    if (startReporter(g_settings.file)) handleSignals(g_settings.signal);
}

__attribute__((destructor)) void onExit() {
    if (!hasReporter()) return;
    (void)base::diagnostics::stopRecording();
    appendState();
}

}  // namespace
}  // namespace tevalon::record_preload
