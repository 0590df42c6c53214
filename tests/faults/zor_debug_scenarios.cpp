// The substitute debug library.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <thread>

#include "faults/scenario.h"
#include "zor_debug/zor_debug.h"
#include "zor_debug/zor_debug_control.h"

namespace faults {
namespace {

const std::string& longText() {
    static const std::string s_text(5000, 'x');
    return s_text;
}

// Whole lines, pieces of lines, long ones, and such as only the C library can format.
void writeLines() {
    (void)zorDebugOutput0("a line\n");
    (void)zorDebugOutput0("a %s of a line, ", "part");
    (void)zorDebugOutput0("and its end\n");
    (void)zorDebugOutput0("%.3Lf\n", 1.5L);
    (void)zorDebugOutput0("%s\n", longText().c_str());
    (void)zorDebugOutput0("%s", longText().c_str());
    (void)zorDebugOutput0("\n");
}

// A second thread, whose part of a line is sent when it ends.
void writeOnTwoThreads() {
    writeLines();
    std::thread([] {
        writeLines();
        (void)zorDebugOutput0("not ended");
    }).join();
    writeLines();
}

void outputToFile(Run& run) {
    (void)unlink("log");
    run.say("file", zorDebugSetFile("log"));
    writeOnTwoThreads();
    run.say("other file", zorDebugSetFile("other log"));
    writeLines();
    run.calm();
    (void)unlink("log then");
    run.say("file then", zorDebugSetFile("log then"));
    writeLines();
    run.say("lines then", countLines(contentsOf("log then")));
    run.say("standard error then", zorDebugSetFile(nullptr));
}

void outputWithPrefix(Run& run) {
    (void)unlink("log");
    run.say("prefix", zorDebugSetPrefix("wall,time,level,module,thread"));
    run.say("file", zorDebugSetFile("log%p"));
    writeOnTwoThreads();
    run.calm();
    (void)unlink("log then");
    run.say("file then", zorDebugSetFile("log then"));
    writeLines();
    run.say("lines then", countLines(contentsOf("log then")));
    run.say("no prefix then", zorDebugSetPrefix(nullptr));
    run.say("standard error then", zorDebugSetFile(nullptr));
}

/// Standard error is the one end of a pipe that is read by a thread.
class ReadPipe {
public:
    ReadPipe() : m_before(dup(STDERR_FILENO)) {
        int ends[2] = {};
        (void)!pipe(ends);
        (void)dup2(ends[1], STDERR_FILENO);
        (void)close(ends[1]);
        m_reader = std::thread([end = ends[0]] {
            char text[4096];
            while (read(end, text, sizeof(text)) > 0) {
            }
            (void)close(end);
        });
    }
    ~ReadPipe() {
        (void)dup2(m_before, STDERR_FILENO);
        (void)close(m_before);
        m_reader.join();
    }

    ReadPipe(const ReadPipe&) = delete;
    ReadPipe& operator=(const ReadPipe&) = delete;

private:
    const int m_before;
    std::thread m_reader;
};

void outputToPipe(Run& run) {
    const ReadPipe pipe;
    run.say("standard error", zorDebugSetFile(nullptr));  // Looks at what it is.
    writeOnTwoThreads();
    run.calm();
    (void)unlink("log then");
    run.say("file then", zorDebugSetFile("log then"));
    writeLines();
    run.say("lines then", countLines(contentsOf("log then")));
    run.say("standard error then", zorDebugSetFile(nullptr));
}

// A pipe that takes nothing for a while: a write waits for it.
void outputToFullPipe(Run& run) {
    int ends[2] = {};
    (void)!pipe2(ends, O_CLOEXEC);
    const int before = dup(STDERR_FILENO);
    (void)dup2(ends[1], STDERR_FILENO);
    (void)fcntl(ends[1], F_SETFL, O_NONBLOCK);
    const std::string full(4096, 'x');
    while (write(ends[1], full.data(), full.size()) > 0) {
    }
    (void)zorDebugSetFile(nullptr);
    std::atomic<bool> isWritten{false};
    std::thread reader([&] {
        while (callsOf("poll") == 0 && !isWritten) std::this_thread::yield();
        char text[4096];
        while (read(ends[0], text, sizeof(text)) > 0) {
        }
    });
    (void)zorDebugOutput0("a line that waits\n");
    isWritten = true;
    run.calm();
    (void)dup2(before, STDERR_FILENO);
    (void)close(before);
    (void)close(ends[1]);
    reader.join();
    (void)close(ends[0]);
    run.say("standard error then", zorDebugSetFile(nullptr));
}

// With standard error closed, its number is not used for a file.
void outputWithoutStandardError(Run& run) {
    const int before = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    (void)close(STDERR_FILENO);
    run.say("file", zorDebugSetFile("log"));
    run.say("closed still", fcntl(STDERR_FILENO, F_GETFD) == -1 ? 1 : 0);
    writeLines();
    run.calm();
    (void)unlink("log then");
    run.say("file then", zorDebugSetFile("log then"));
    writeLines();
    run.say("lines then", countLines(contentsOf("log then")));
    (void)dup2(before, STDERR_FILENO);
    (void)close(before);
    run.say("standard error then", zorDebugSetFile(nullptr));
}

// The child writes to a file of its own.
void outputForked(Run& run) {
    run.say("file", zorDebugSetFile("log%p"));
    writeLines();
    (void)zorDebugOutput0("not ended");
    const pid_t child = fork();
    if (child == 0) {
        writeLines();
        reportCounts();
        _exit(0);
    }
    int status = -1;
    (void)waitpid(child, &status, 0);
    run.say("child", status);
    (void)zorDebugOutput0("\n");
    run.calm();
    (void)unlink("log then");
    run.say("file then", zorDebugSetFile("log then"));
    writeLines();
    run.say("lines then", countLines(contentsOf("log then")));
    run.say("standard error then", zorDebugSetFile(nullptr));
}

void captureText(void* p_count, const DebugLevelRecord*, const char*, std::size_t) {
    ++*static_cast<std::atomic<int>*>(p_count);
}

// Replaced from inside, there are two at once.
void replaceCapture(void* p_count, const DebugLevelRecord*, const char*, std::size_t) {
    zorDebugInstallCapture(captureText, p_count);
}

// A capture that is removed while a thread is in it.
Run* g_run = nullptr;
std::atomic<int> g_inside{0};

void captureSlowly(void*, const DebugLevelRecord*, const char*, std::size_t) {
    const long sleeps = callsOf("nanosleep");
    ++g_inside;
    (void)g_run->waitForCalls("waits", "nanosleep", sleeps + 1);
}

void captureBusy(Run& run) {
    g_run = &run;
    const int before = g_inside;
    zorDebugInstallCapture(captureSlowly, nullptr);
    std::thread writer([] { (void)zorDebugOutput0("a line\n"); });
    (void)run.waitFor("inside", g_inside, before + 1);
    zorDebugRemoveCapture();
    writer.join();
    run.calm();
    run.say("file then", zorDebugSetFile(nullptr));
}

void captures(Run& run) {
    static std::atomic<int> s_count;
    zorDebugInstallCapture(replaceCapture, &s_count);
    (void)zorDebugOutput0("a line\n");
    (void)zorDebugOutput0("another line\n");
    zorDebugRemoveCapture();
    run.calm();
    const int before = s_count;
    zorDebugInstallCapture(captureText, &s_count);
    (void)zorDebugOutput0("a line\n");
    zorDebugRemoveCapture();
    run.say("captured then", s_count - before);
}

void levels(Run& run) {
    DebugLevelRecord record = {5000, 0x5f, 0, 0};
    run.say("levels", zorDebugSetLevels("0x5f=debug,warn"));
    run.say("on", zorDebugCheckLevelGetFrameAndChunk(&record));
    run.say("level", zorDebugGetLevel(0x5f));
    run.calm();
    run.say("levels then", zorDebugSetLevels("0x5f=debug"));
    run.say("on then", zorDebugCheckLevelGetFrameAndChunk(&record));
    run.say("levels back", zorDebugSetLevels(nullptr));
}

void writeLevels(const char* p_text) {
    const int descriptor = open("levels", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    (void)!write(descriptor, p_text, std::strlen(p_text));
    (void)close(descriptor);
}

// Named, the file is looked at at once; a check looks for the time.
void levelsFromFile(Run& run) {
    DebugLevelRecord record = {5000, 0x5f, 0, 0};
    (void)zorDebugSetLevels(nullptr);
    writeLevels("debug\n");
    run.say("file", zorDebugSetLevelsFile("levels"));
    run.say("level", zorDebugGetLevel(0x5f));
    (void)zorDebugCheckLevelGetFrameAndChunk(&record);
    run.calm();
    writeLevels("0x5f=info, warning\n");
    run.say("file then", zorDebugSetLevelsFile("levels"));
    run.say("level then", zorDebugGetLevel(0x5f));
    run.say("no file then", zorDebugSetLevelsFile(nullptr));
    run.say("levels back", zorDebugSetLevels(nullptr));
}

// It is begun anew a few times.
void outputToLimitedFile(Run& run) {
    (void)unlink("log");
    run.say("limit", zorDebugSetFileLimit("64"));
    run.say("file", zorDebugSetFile("log"));
    writeOnTwoThreads();
    run.calm();
    run.say("limit then", zorDebugSetFileLimit("1M"));
    (void)unlink("log then");
    run.say("file then", zorDebugSetFile("log then"));
    writeLines();
    run.say("lines then", countLines(contentsOf("log then")));
    run.say("no limit then", zorDebugSetFileLimit(nullptr));
    run.say("standard error then", zorDebugSetFile(nullptr));
}

// Lost, and told in the next file.
void outputToFullDisk(Run& run) {
    run.say("file", zorDebugSetFile("/dev/full"));
    writeOnTwoThreads();
    run.say("other file", zorDebugSetFile("other log"));
    writeLines();
    run.calm();
    (void)zorDebugOutput0("what is lost is told by now\n");
    (void)unlink("log then");
    run.say("file then", zorDebugSetFile("log then"));
    writeLines();
    run.say("lines then", countLines(contentsOf("log then")));
    run.say("standard error then", zorDebugSetFile(nullptr));
}

// Settings that make no sense are reported, to the output: here a file.
void setEnvironment() {
    (void)setenv("ZOR_DEBUG", "nonsense", 1);
    (void)setenv("ZOR_DEBUG_FILE", "log", 1);
    (void)setenv("ZOR_DEBUG_FILE_BYTES", "nonsense", 1);
    (void)setenv("ZOR_DEBUG_LEVELS_FILE", "no such levels", 1);
    (void)setenv("ZOR_DEBUG_PREFIX", "nonsense", 1);
}

void setWrongFile() {
    setEnvironment();
    (void)setenv("ZOR_DEBUG_FILE", "no/such/folder/log", 1);
}

void environment(Run& run) {
    writeLines();
    run.calm();
    (void)unlink("log then");
    run.say("file then", zorDebugSetFile("log then"));
    writeLines();
    run.say("lines then", countLines(contentsOf("log then")));
    run.say("standard error then", zorDebugSetFile(nullptr));
}

}  // namespace

std::vector<Scenario> zorDebugScenarios() {
    const auto zor = [](const char* name, void (*run)(Run&), void (*prepare)() = nullptr) {
        return Scenario{name, run, prepare, Module::ZorDebug};
    };
    return {
        zor("output to a file", outputToFile),
        zor("output with a prefix", outputWithPrefix),
        zor("output to a pipe", outputToPipe),
        zor("output to a full pipe", outputToFullPipe),
        zor("output without standard error", outputWithoutStandardError),
        zor("output of a fork", outputForked),
        zor("capture that is busy", captureBusy),
        zor("captures", captures),
        zor("levels", levels),
        zor("levels from a file", levelsFromFile),
        zor("output to a limited file", outputToLimitedFile),
        zor("output to a full disk", outputToFullDisk),
        zor("settings", environment, setEnvironment),
        zor("settings, wrong file", environment, setWrongFile),
    };
}

}  // namespace faults
