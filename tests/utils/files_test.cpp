#include "base/utils/files.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/logging/log_level.h"
#include "base/utils.h"
#include "support/fault_injection.h"
#include "support/log_capture.h"
#include "support/open_descriptors.h"
#include "support/scratch_folder.h"
#include "support/threads.h"

namespace {

using test::Call;
using test::FailCall;
using test::isThere;
using test::LogCapture;
using test::LogEntry;
using test::ScratchFolder;
using test::When;
using tevalon::base::isPathExists;
using tevalon::base::kLogDebug;
using tevalon::base::kLogError;
using tevalon::base::rmDir;

using PathCall = test::ReplaceCall<int(const char*)>;

std::string errorText(int error) {
    return "(" + std::to_string(error) + "-'" + std::strerror(error) + "')";
}

LogEntry errorLine(const std::string& function, const std::string& message) {
    return {kLogError, "[B-LOG] utils.cpp:#:" + function + "(): " + message};
}

// isPathExists.

LogEntry missingLine(const std::string& path, int error, int result = -1) {
    return errorLine("isPathExists", "filePath:'" + path + "', ret:" + std::to_string(result) +
                                         ", error:'" + std::strerror(error) + "'.\n");
}

class IsPathExistsTest : public testing::Test {
protected:
    void expectMissing(const std::string& path, int error) {
        LogCapture log;
        EXPECT_FALSE(isPathExists(path.c_str()));
        EXPECT_EQ(log.entriesWithoutLineNumbers(), std::vector<LogEntry>{missingLine(path, error)});
    }

    const ScratchFolder m_scratch;
};

TEST_F(IsPathExistsTest, FindsWhateverCanBeReached) {
    const std::string file = m_scratch.file("file");
    const std::string link = m_scratch.link("link", file);
    LogCapture log;

    EXPECT_TRUE(isPathExists(file.c_str()));
    EXPECT_TRUE(isPathExists(link.c_str()));
    EXPECT_TRUE(isPathExists(m_scratch.path().c_str()));
    EXPECT_TRUE(isPathExists("/"));
    EXPECT_TRUE(isPathExists("."));

    EXPECT_TRUE(log.entries().empty());
}

TEST_F(IsPathExistsTest, IsFalseWithoutALineForNull) {
    const test::CountCalls calls(Call::Access);
    LogCapture log;

    EXPECT_FALSE(isPathExists(nullptr));

    EXPECT_TRUE(log.entries().empty());
    EXPECT_EQ(calls.seen(), 0);
}

TEST_F(IsPathExistsTest, ReportsWhyAPathCannotBeReached) {
    const std::string file = m_scratch.file("file");

    expectMissing("", ENOENT);
    expectMissing(m_scratch.path("missing"), ENOENT);
    expectMissing(m_scratch.path("100%s%n"), ENOENT);
    expectMissing(file + "/below", ENOTDIR);
    expectMissing(m_scratch.link("dangling", "nowhere"), ENOENT);
    expectMissing(m_scratch.link("circle", "circle"), ELOOP);
    expectMissing(m_scratch.path(std::string(300, 'n')), ENAMETOOLONG);
}

TEST_F(IsPathExistsTest, ReportsAFolderThatMayNotBeSearched) {
    const FailCall fail(Call::Access, EACCES);

    expectMissing(m_scratch.path("file"), EACCES);

    EXPECT_EQ(fail.hits(), 1);
}

TEST_F(IsPathExistsTest, ReportsTheResultAndNoOldError) {
    test::ReplaceCall<int(const char*, int)> access(Call::Access, [](const char*, int mode) {
        EXPECT_EQ(mode, F_OK);
        return 7;
    });
    LogCapture log;
    errno = EDOM;

    EXPECT_FALSE(isPathExists("path"));

    EXPECT_EQ(log.entriesWithoutLineNumbers(), std::vector<LogEntry>{missingLine("path", 0, 7)});
}

TEST_F(IsPathExistsTest, IsSilentWhenErrorsAreOff) {
    LogCapture log(1);

    EXPECT_FALSE(isPathExists("/missing/path"));

    EXPECT_TRUE(log.entries().empty());
}

// rmDir.

LogEntry rmDirLine(const std::string& message) {
    return errorLine("rmDir", message + "\n\n");
}
LogEntry openFailed(const std::string& path) {
    return rmDirLine("Fail to opendir('" + path + "').");
}
LogEntry statFailed(int error) {
    return rmDirLine("Fail to get stat of path.error:" + errorText(error) + ".");
}
LogEntry deleteFailed(const std::string& path, int error) {
    return rmDirLine("Fail to delete:'" + path + "', error:" + errorText(error) + ".");
}
LogEntry folderFailed(const std::string& path, int error) {
    return rmDirLine("Fail to delete dir:'" + path + "', error:" + errorText(error) + ".");
}
LogEntry otherLine(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return {kLogDebug, "[B-LOG] utils.cpp:#:rmDir(): name:'" + path +
                           "', MODE:" + std::to_string(status.st_mode) + ", ISOTHER.\n\n"};
}

using Lines = std::vector<LogEntry>;

bool isBefore(const LogEntry& left, const LogEntry& right) {
    return left.text < right.text;
}

Lines sorted(Lines lines) {
    std::sort(lines.begin(), lines.end(), isBefore);
    return lines;
}

class RmDirTest : public testing::Test {
protected:
    RmDirTest() { m_scratch.folder("dir"); }

    /// Expects a status and, in any order, the lines; and that no descriptor is left open.
    void expectRemoval(std::int32_t status, const Lines& lines) {
        expectRemoval(m_dir, status, lines);
    }
    static void expectRemoval(const std::string& path, std::int32_t status, const Lines& lines) {
        const long descriptors = test::openDescriptors();
        LogCapture log;
        EXPECT_EQ(rmDir(path.c_str()), status);
        EXPECT_EQ(sorted(log.entriesWithoutLineNumbers()), sorted(lines));
        EXPECT_EQ(test::openDescriptors(), descriptors);
    }
    void expectGone() { expectRemoval(0, {}); }

    const ScratchFolder m_scratch;
    const std::string m_dir = m_scratch.path("dir");
};

TEST_F(RmDirTest, RefusesNull) {
    LogCapture log;

    EXPECT_EQ(rmDir(nullptr), -1);

    EXPECT_EQ(log.entriesWithoutLineNumbers(), Lines{rmDirLine("dirPath is NULL.")});
}

TEST_F(RmDirTest, RefusesWhatIsNoFolder) {
    const std::string file = m_scratch.file("file");
    const std::string dangling = m_scratch.link("dangling", "nowhere");

    expectRemoval("", -2, {openFailed("")});
    expectRemoval(m_scratch.path("missing"), -2, {openFailed(m_scratch.path("missing"))});
    expectRemoval(m_scratch.path("%s%n"), -2, {openFailed(m_scratch.path("%s%n"))});
    expectRemoval(file, -2, {openFailed(file)});
    expectRemoval(dangling, -2, {openFailed(dangling)});

    EXPECT_TRUE(isThere(file));
    EXPECT_TRUE(isThere(dangling));
}

TEST_F(RmDirTest, RemovesAnEmptyFolder) {
    expectGone();

    EXPECT_FALSE(isThere(m_dir));
}

TEST_F(RmDirTest, RemovesFilesAndFoldersOfAnyName) {
    for (const char* name : {"file", ".hidden", "..two", "...", "a b", "100%s%n", "line\nend"}) {
        m_scratch.file("dir/" + std::string(name));
    }
    m_scratch.file("dir/" + std::string(255, 'n'));
    m_scratch.file("dir/empty", "");
    m_scratch.folder("dir/.sub/..sub/sub");
    m_scratch.file("dir/.sub/..sub/sub/file");
    const std::string neighbour = m_scratch.file("neighbour");

    expectGone();

    EXPECT_FALSE(isThere(m_dir));
    EXPECT_TRUE(isThere(neighbour));
}

TEST_F(RmDirTest, TakesATrailingSlashAsItIs) {
    m_scratch.file("dir/file");
    m_scratch.folder("dir/sub");

    expectRemoval(m_dir + "/", 0, {});

    EXPECT_FALSE(isThere(m_dir));
}

TEST_F(RmDirTest, TakesARelativePath) {
    const std::filesystem::path before = std::filesystem::current_path();
    m_scratch.file("dir/file");
    std::filesystem::current_path(m_scratch.path());

    expectRemoval("dir", 0, {});

    std::filesystem::current_path(before);
    EXPECT_FALSE(isThere(m_dir));
}

TEST_F(RmDirTest, RemovesTenThousandFiles) {
    for (int i = 0; i < 10000; ++i) m_scratch.file("dir/file" + std::to_string(i), "");

    expectGone();

    EXPECT_FALSE(isThere(m_dir));
}

std::string deepPath(int levels) {
    std::string path;
    for (int level = 0; level < levels; ++level) path += "/d";
    return path;
}

TEST_F(RmDirTest, RemovesTwoHundredLevels) {
    m_scratch.folder("dir" + deepPath(200));
    m_scratch.file("dir" + deepPath(200) + "/file");
    m_scratch.file("dir" + deepPath(100) + "/file");

    expectGone();

    EXPECT_FALSE(isThere(m_dir));
}

// What is no file and no folder.

TEST_F(RmDirTest, LeavesPipesSocketsAndDevices) {
    const std::string pipe = m_scratch.path("dir/pipe%s");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0640), 0);
    const std::string device = m_scratch.link("dir/device", "/dev/null");
    const std::string file = m_scratch.file("dir/file");

    expectRemoval(-3, {otherLine(pipe), otherLine(device), folderFailed(m_dir, ENOTEMPTY)});

    EXPECT_TRUE(isThere(pipe));
    EXPECT_TRUE(isThere(device));
    EXPECT_FALSE(isThere(file));
}

TEST_F(RmDirTest, LeavesSockets) {
    const std::string path = m_scratch.path("dir/socket");
    const int socketDescriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(socketDescriptor, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ASSERT_EQ(bind(socketDescriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);

    expectRemoval(-3, {otherLine(path), folderFailed(m_dir, ENOTEMPTY)});

    EXPECT_TRUE(isThere(path));
    (void)close(socketDescriptor);
}

TEST_F(RmDirTest, SpeaksOfOtherThingsAtTheDebugLevelAlone) {
    ASSERT_EQ(mkfifo(m_scratch.path("dir/pipe").c_str(), 0600), 0);
    LogCapture log(kLogError);

    EXPECT_EQ(rmDir(m_dir.c_str()), -3);

    EXPECT_EQ(log.entriesWithoutLineNumbers(), Lines{folderFailed(m_dir, ENOTEMPTY)});
}

TEST_F(RmDirTest, ReportsEveryFolderAboveAPipe) {
    m_scratch.folder("dir/a/b");
    m_scratch.folder("dir/c");
    const std::string pipe = m_scratch.path("dir/a/b/pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);

    expectRemoval(
        -3, {otherLine(pipe), folderFailed(m_scratch.path("dir/a/b"), ENOTEMPTY),
             folderFailed(m_scratch.path("dir/a"), ENOTEMPTY), folderFailed(m_dir, ENOTEMPTY)});

    EXPECT_TRUE(isThere(pipe));
    EXPECT_FALSE(isThere(m_scratch.path("dir/c")));
}

// Links.

TEST_F(RmDirTest, EmptiesALinkedFolderAndLeavesTheLink) {
    const std::string outside = m_scratch.folder("outside");
    m_scratch.file("outside/file");
    m_scratch.folder("outside/sub");
    const std::string link = m_scratch.link("dir/link", outside);

    expectRemoval(-3, {folderFailed(link, ENOTDIR), folderFailed(m_dir, ENOTEMPTY)});

    EXPECT_TRUE(isThere(link));
    EXPECT_TRUE(isThere(outside));
    EXPECT_TRUE(std::filesystem::is_empty(outside));
}

TEST_F(RmDirTest, EmptiesTheFolderBehindAGivenLink) {
    m_scratch.file("dir/file");
    const std::string link = m_scratch.link("link", m_dir);

    expectRemoval(link, -3, {folderFailed(link, ENOTDIR)});

    EXPECT_TRUE(isThere(link));
    EXPECT_TRUE(std::filesystem::is_empty(m_dir));
}

TEST_F(RmDirTest, RemovesALinkToAFileAndLeavesTheFile) {
    const std::string outside = m_scratch.file("outside");
    m_scratch.link("dir/link", outside);

    expectGone();

    EXPECT_TRUE(isThere(outside));
}

TEST_F(RmDirTest, LeavesALinkToNowhere) {
    const std::string link = m_scratch.link("dir/link", "nowhere");

    expectRemoval(-3, {statFailed(ENOENT), folderFailed(m_dir, ENOTEMPTY)});

    EXPECT_TRUE(isThere(link));
}

TEST_F(RmDirTest, LeavesALinkToItself) {
    const std::string link = m_scratch.link("dir/link", "link");

    expectRemoval(-3, {statFailed(ELOOP), folderFailed(m_dir, ENOTEMPTY)});

    EXPECT_TRUE(isThere(link));
}

TEST_F(RmDirTest, ComesBackFromAFolderThatLinksToItself) {
    const std::string link = m_scratch.link("dir/l", ".");
    const long descriptors = test::openDescriptors();
    LogCapture log;

    EXPECT_EQ(rmDir(m_dir.c_str()), -3);

    Lines lines = log.entriesWithoutLineNumbers();
    ASSERT_GT(lines.size(), 2U);
    std::string path = m_dir;
    for (std::size_t left = lines.size() - 1; left > 0; --left) {
        const int error = left + 1 == lines.size() ? ENOTEMPTY : ENOTDIR;
        EXPECT_EQ(lines[left], folderFailed(path, error));
        path += "/l";
    }
    EXPECT_EQ(lines[0], statFailed(ELOOP));
    EXPECT_TRUE(isThere(link));
    EXPECT_EQ(test::openDescriptors(), descriptors);
}

// Calls that fail.

TEST_F(RmDirTest, LeavesAFolderThatCannotBeOpened) {
    m_scratch.file("dir/file");
    m_scratch.folder("dir/locked");
    const std::string kept = m_scratch.file("dir/locked/file");
    const FailCall fail(Call::Opendir, EACCES, When().nth(2));

    expectRemoval(-3, {openFailed(m_scratch.path("dir/locked")), folderFailed(m_dir, ENOTEMPTY)});

    EXPECT_EQ(fail.hits(), 1);
    EXPECT_TRUE(isThere(kept));
    EXPECT_FALSE(isThere(m_scratch.path("dir/file")));
}

TEST_F(RmDirTest, RefusesAGivenFolderThatCannotBeOpened) {
    const FailCall fail(Call::Opendir, EMFILE);

    expectRemoval(-2, {openFailed(m_dir)});

    EXPECT_TRUE(isThere(m_dir));
}

TEST_F(RmDirTest, SkipsWhatCannotBeExamined) {
    m_scratch.file("dir/a");
    m_scratch.file("dir/b");
    const FailCall fail(Call::Stat, EACCES);

    expectRemoval(-3, {statFailed(EACCES), folderFailed(m_dir, ENOTEMPTY)});

    EXPECT_EQ(fail.seen(), 2);
    EXPECT_NE(isThere(m_scratch.path("dir/a")), isThere(m_scratch.path("dir/b")));
}

TEST_F(RmDirTest, GoesOnAfterAFileThatCannotBeDeleted) {
    for (const char* name : {"dir/a", "dir/b", "dir/c"}) m_scratch.file(name);
    const std::string kept = m_scratch.path("dir/b");
    PathCall unlinkCall(Call::Unlink, [&](const char* p_path) {
        if (p_path != kept) return unlink(p_path);
        errno = EPERM;
        return -1;
    });

    expectRemoval(-3, {deleteFailed(kept, EPERM), folderFailed(m_dir, ENOTEMPTY)});

    EXPECT_EQ(unlinkCall.hits(), 3);
    EXPECT_TRUE(isThere(kept));
    EXPECT_FALSE(isThere(m_scratch.path("dir/a")));
    EXPECT_FALSE(isThere(m_scratch.path("dir/c")));
}

TEST_F(RmDirTest, ReportsAFolderThatCannotBeDeleted) {
    m_scratch.file("dir/file");
    const FailCall fail(Call::Rmdir, EBUSY);

    expectRemoval(-3, {folderFailed(m_dir, EBUSY)});

    EXPECT_TRUE(isThere(m_dir));
    EXPECT_FALSE(isThere(m_scratch.path("dir/file")));
}

TEST_F(RmDirTest, IgnoresWhatBecameOfASubFolder) {
    m_scratch.folder("dir/sub");
    const FailCall fail(Call::Rmdir, EBUSY);

    expectRemoval(-3,
                  {folderFailed(m_scratch.path("dir/sub"), EBUSY), folderFailed(m_dir, ENOTEMPTY)});
}

TEST_F(RmDirTest, ReportsNoErrorOfAnEarlierCall) {
    m_scratch.file("dir/file");
    m_scratch.file("dir/unseen");
    const auto failSilently = [](const char*) { return -1; };
    PathCall unlinkCall(Call::Unlink, failSilently);
    PathCall rmdirCall(Call::Rmdir, failSilently);
    const std::string unseen = m_scratch.path("dir/unseen");
    test::ReplaceCall<int(const char*, struct stat*)> statCall(
        Call::Stat, [&](const char* p_path, struct stat* p_status) {
            const int result = p_path == unseen ? -1 : stat(p_path, p_status);
            if (result == 0) errno = EDOM;
            return result;
        });
    errno = EDOM;

    expectRemoval(
        -3, {statFailed(0), deleteFailed(m_scratch.path("dir/file"), 0), folderFailed(m_dir, 0)});
}

TEST_F(RmDirTest, TakesAFolderThatCannotBeReadAnyMoreForReadToItsEnd) {
    m_scratch.file("dir/file");
    const FailCall fail(Call::Readdir, EIO);

    expectRemoval(-3, {folderFailed(m_dir, ENOTEMPTY)});

    EXPECT_TRUE(isThere(m_scratch.path("dir/file")));
}

TEST_F(RmDirTest, ClosesEveryFolderThatItOpens) {
    m_scratch.folder("dir/a/b");
    m_scratch.folder("dir/c");
    const test::CountCalls opened(Call::Opendir);
    const test::CountCalls closed(Call::Closedir);

    EXPECT_EQ(rmDir(m_dir.c_str()), 0);

    EXPECT_EQ(opened.seen(), 4);
    EXPECT_EQ(closed.seen(), 4);
}

// Things that change while they are walked.

TEST_F(RmDirTest, ReportsASubFolderThatVanishesBeforeItIsOpened) {
    const std::string sub = m_scratch.folder("dir/sub");
    const test::RunAtCall vanish(
        Call::Opendir, [&] { (void)rmdir(sub.c_str()); }, When().nth(2));

    expectRemoval(0, {openFailed(sub)});

    EXPECT_EQ(vanish.hits(), 1);
    EXPECT_FALSE(isThere(m_dir));
}

TEST_F(RmDirTest, ReportsASubFolderThatVanishesBeforeItIsExamined) {
    const std::string sub = m_scratch.folder("dir/sub");
    const test::RunAtCall vanish(Call::Stat, [&] { (void)rmdir(sub.c_str()); });

    expectRemoval(0, {statFailed(ENOENT)});

    EXPECT_EQ(vanish.hits(), 1);
}

TEST_F(RmDirTest, ReportsASubFolderThatVanishesWhileItIsWalked) {
    const std::string sub = m_scratch.folder("dir/sub");
    const test::RunAtCall vanish(Call::Rmdir, [&] { (void)rmdir(sub.c_str()); });

    expectRemoval(0, {folderFailed(sub, ENOENT)});

    EXPECT_EQ(vanish.hits(), 1);
}

TEST_F(RmDirTest, ReportsAFileThatVanishesBeforeItIsDeleted) {
    const std::string file = m_scratch.file("dir/file");
    const test::RunAtCall vanish(Call::Unlink, [&] { (void)unlink(file.c_str()); });

    expectRemoval(0, {deleteFailed(file, ENOENT)});
}

TEST_F(RmDirTest, ReportsTheGivenFolderThatVanishesWhileItIsWalked) {
    const test::RunAtCall vanish(Call::Readdir, [&] { (void)rmdir(m_dir.c_str()); });

    expectRemoval(-3, {folderFailed(m_dir, ENOENT)});

    EXPECT_EQ(vanish.hits(), 1);
}

TEST_F(RmDirTest, ReportsAFolderThatIsMovedAwayWithAllThatIsInIt) {
    m_scratch.file("dir/file");
    const std::string away = m_scratch.path("away");
    const test::RunAtCall vanish(Call::Stat, [&] { std::filesystem::rename(m_dir, away); });

    expectRemoval(-3, {statFailed(ENOENT), folderFailed(m_dir, ENOENT)});

    EXPECT_TRUE(isThere(away + "/file"));
}

TEST_F(RmDirTest, RemovesNothingThatAppearsAfterTheEnd) {
    const test::RunAtCall appear(Call::Rmdir, [&] { m_scratch.file("dir/late"); });

    expectRemoval(-3, {folderFailed(m_dir, ENOTEMPTY)});

    EXPECT_TRUE(isThere(m_scratch.path("dir/late")));
}

TEST_F(RmDirTest, ManyThreadsTogetherRemoveATree) {
    for (int i = 0; i < 20; ++i) {
        const std::string sub = "dir/sub" + std::to_string(i);
        m_scratch.folder(sub);
        for (int j = 0; j < 20; ++j) m_scratch.file(sub + "/file" + std::to_string(j), "");
    }
    const long descriptors = test::openDescriptors();
    LogCapture log;

    test::runAtOnce(4, [&](int) {
        const std::int32_t status = rmDir(m_dir.c_str());
        EXPECT_TRUE(status == 0 || status == -2 || status == -3) << status;
    });

    EXPECT_FALSE(isThere(m_dir));
    EXPECT_EQ(test::openDescriptors(), descriptors);
}

// Limits.

/// Lets the process have a number of descriptors that lies a little above those it has, while
/// it lives.
class DescriptorLimit {
public:
    DescriptorLimit() {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &m_before), 0);
        const long open = test::openDescriptors() - 1;
        m_free = kLimit - open;
        rlimit limit = m_before;
        limit.rlim_cur = kLimit;
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    }
    ~DescriptorLimit() { (void)setrlimit(RLIMIT_NOFILE, &m_before); }

    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

    /// How many more the process may have at least; all, unless one of a high number is open.
    long free() const { return m_free; }

private:
    static constexpr long kLimit = 64;
    rlimit m_before = {};
    long m_free = 0;
};

TEST_F(RmDirTest, FailsCleanlyOnATreeDeeperThanTheDescriptorLimit) {
    m_scratch.folder("dir" + deepPath(100));
    m_scratch.file("dir" + deepPath(100) + "/file");
    const long descriptors = test::openDescriptors();
    Lines lines;
    std::int32_t status = 0;
    long freeDescriptors = 0;
    {
        LogCapture log;
        const DescriptorLimit limit;
        freeDescriptors = limit.free();
        status = rmDir(m_dir.c_str());
        lines = log.entriesWithoutLineNumbers();
    }

    EXPECT_EQ(status, -3);
    const int levels = static_cast<int>(lines.size()) - 1;
    EXPECT_GE(levels, freeDescriptors);  // One a level at most: nothing was leaked on the way.
    ASSERT_LT(levels, 100);
    Lines expected = {openFailed(m_dir + deepPath(levels))};
    for (int level = levels - 1; level >= 0; --level) {
        expected.push_back(folderFailed(m_dir + deepPath(level), ENOTEMPTY));
    }
    EXPECT_EQ(lines, expected);
    EXPECT_EQ(test::openDescriptors(), descriptors);
    EXPECT_TRUE(isThere(m_dir + deepPath(100) + "/file"));
    expectGone();
}

TEST_F(RmDirTest, FailsCleanlyOnATreeDeeperThanAnyPath) {
    const std::filesystem::path before = std::filesystem::current_path();
    const std::string name(250, 'n');
    std::filesystem::current_path(m_dir);
    for (int level = 0; level < 20; ++level) {
        ASSERT_EQ(mkdir(name.c_str(), 0700), 0);
        ASSERT_EQ(chdir(name.c_str()), 0);
    }
    std::filesystem::current_path(before);
    std::vector<std::string> paths = {m_dir};
    while (paths.back().size() + 1 + name.size() < 4096) {
        paths.push_back(paths.back() + "/" + name);
    }

    Lines expected = {statFailed(ENAMETOOLONG)};
    for (const std::string& path : paths) expected.push_back(folderFailed(path, ENOTEMPTY));
    expectRemoval(-3, expected);
}

}  // namespace
