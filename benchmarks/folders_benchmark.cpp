// Removing a folder with 10,000 files in it. An iteration is one folder.

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "base/utils.h"
#include "support/rows.h"

#ifdef HAVE_QT
#include <QDir>
#endif
#ifdef HAVE_POCO
#include <Poco/File.h>
#endif

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kFiles = 10000;
constexpr int kSubFolders = 10;

std::string makeFolder() {
    std::string folder =
        (std::filesystem::temp_directory_path() / "folders_benchmark.XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr) return std::string();
    for (int i = 0; i < kFiles; ++i) {
        const std::string sub = folder + '/' + std::to_string(i % kSubFolders);
        if (i < kSubFolders) std::filesystem::create_directory(sub);
        const std::string file = sub + '/' + std::to_string(i);
        (void)close(open(file.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    }
    return folder;
}

template <typename Remove>
void removeFolders(benchmark::State& state, Remove remove) {
    for (auto _ : state) {
        const std::string folder = makeFolder();
        const Clock::time_point before = Clock::now();
        remove(folder);
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - before).count());
        if (folder.empty() || std::filesystem::exists(folder)) {
            state.SkipWithError("a folder could not be made, or is still there");
            return;
        }
    }
}

template <typename Remove>
void addRemovalRow(const char* peer, Remove remove) {
    addTimedRow("folders/remove_10000_files", peer, [=](benchmark::State& state) {
        removeFolders(state, remove);
    })->Iterations(1);
}

const bool s_areRowsAdded = [] {
    addRemovalRow(kOurs, [](const std::string& path) { tevalon::base::rmDir(path.c_str()); });
    addRemovalRow(kLimit, [](const std::string& path) { std::filesystem::remove_all(path); });
#ifdef HAVE_QT
    addRemovalRow("Qt", [](const std::string& path) {
        QDir(QString::fromStdString(path)).removeRecursively();
    });
#endif
#ifdef HAVE_POCO
    addRemovalRow("POCO", [](const std::string& path) { Poco::File(path).remove(true); });
#endif
    return true;
}();

}  // namespace
}  // namespace bench
