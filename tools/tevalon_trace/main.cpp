// tevalon-trace: shows a recording of base/diagnostics/recorder.h.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "recording.h"
#include "text.h"

namespace {

using namespace tevalon::trace;

constexpr int kFailed = 1;
constexpr int kWrongUse = 2;

struct CloseFile {
    void operator()(std::FILE* p_file) const { (void)std::fclose(p_file); }
};

int fail(const std::string& path, const std::string& reason) {
    (void)std::fprintf(stderr, "tevalon-trace: cannot read '%s': %s\n", path.c_str(),
                       reason.c_str());
    return kFailed;
}

bool readFile(const std::string& path, std::string* p_bytes) {
    const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
    if (file == nullptr) return false;
    char piece[65536];
    for (std::size_t count = 0; (count = std::fread(piece, 1, sizeof(piece), file.get())) > 0;) {
        p_bytes->append(piece, count);
    }
    return std::ferror(file.get()) == 0;
}

int showText(const std::string& path) {
    std::string bytes;
    if (!readFile(path, &bytes)) return fail(path, std::strerror(errno));
    Recording recording;
    std::string error;
    if (!readRecording(bytes, &recording, &error)) return fail(path, error);
    (void)std::fputs(describeHead(recording).c_str(), stdout);
    for (const Record& record : recording.records) {
        (void)std::puts(describeRecord(recording, record).c_str());
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        (void)std::fprintf(stderr, "tevalon-trace: cannot write: %s\n", std::strerror(errno));
        return kFailed;
    }
    return 0;
}

int showUsage(std::FILE* p_to) {
    (void)std::fputs(
        "usage: tevalon-trace --text FILE\n"
        "  --text   a line for each record, in order of time: seconds on the monotonic clock,\n"
        "           the thread's name and kernel id, what happened\n"
        "FILE may still be written, or be what a process left that was killed.\n",
        p_to);
    return p_to == stdout ? 0 : kWrongUse;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string first = argc > 1 ? argv[1] : "";
    if (argc == 2 && (first == "--help" || first == "-h")) return showUsage(stdout);
    if (argc != 3 || first != "--text") return showUsage(stderr);
    return showText(argv[2]);
}
