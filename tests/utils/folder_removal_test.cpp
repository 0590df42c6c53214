#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "base/logging/log_level.h"
#include "base/utils/files.h"
#include "support/fault_injection.h"
#include "support/log_capture.h"
#include "support/open_descriptors.h"
#include "support/scratch_folder.h"

namespace {

using test::Call;
using test::FailCall;
using test::isThere;
using test::LogCapture;
using test::LogEntry;
using test::ReplaceCall;
using test::ScratchFolder;
using test::When;
using tevalon::base::kLogError;
using tevalon::base::removeFolder;

using Lines = std::vector<LogEntry>;

LogEntry line(const std::string& message) {
    return {kLogError, "[B-LOG] folder_removal.cpp:#:removeFolder(): " + message + "\n\n"};
}
LogEntry openFailed(const std::string& path) {
    return line("Fail to opendir('" + path + "').");
}
std::string errorText(int error) {
    return "(" + std::to_string(error) + "-'" + std::strerror(error) + "')";
}
LogEntry deleteFailed(const std::string& path, int error) {
    return line("Fail to delete:'" + path + "', error:" + errorText(error) + ".");
}
LogEntry folderFailed(const std::string& path, int error) {
    return line("Fail to delete dir:'" + path + "', error:" + errorText(error) + ".");
}

Lines sorted(Lines lines) {
    std::sort(lines.begin(), lines.end(),
              [](const LogEntry& left, const LogEntry& right) { return left.text < right.text; });
    return lines;
}

class RemoveFolderTest : public testing::Test {
protected:
    RemoveFolderTest() { m_scratch.folder("dir"); }

    void expectRemoval(std::int32_t status, const Lines& lines) {
        expectRemoval(m_dir, status, lines);
    }
    static void expectRemoval(const std::string& path, std::int32_t status, const Lines& lines) {
        const long descriptors = test::openDescriptors();
        LogCapture log;
        EXPECT_EQ(removeFolder(path.c_str()), status);
        EXPECT_EQ(sorted(log.entriesWithoutLineNumbers()), sorted(lines));
        EXPECT_EQ(test::openDescriptors(), descriptors);
    }

    const ScratchFolder m_scratch;
    const std::string m_dir = m_scratch.path("dir");
};

TEST_F(RemoveFolderTest, RefusesNull) {
    LogCapture log;

    EXPECT_EQ(removeFolder(nullptr), -1);

    EXPECT_EQ(log.entriesWithoutLineNumbers(), Lines{line("dirPath is NULL.")});
}

TEST_F(RemoveFolderTest, RefusesWhatIsNoFolder) {
    const std::string file = m_scratch.file("file");
    const std::string missing = m_scratch.path("missing%s");
    const std::string link = m_scratch.link("link", "dir");
    const std::string kept = m_scratch.file("dir/kept");

    expectRemoval("", -2, {openFailed("")});
    expectRemoval(missing, -2, {openFailed(missing)});
    expectRemoval(file, -2, {openFailed(file)});
    expectRemoval(link, -2, {openFailed(link)});
    expectRemoval(link + "//", -2, {openFailed(link)});

    EXPECT_TRUE(isThere(file));
    EXPECT_TRUE(isThere(link));
    EXPECT_TRUE(isThere(kept));
}

TEST_F(RemoveFolderTest, RemovesEverythingOfAnyKindAndName) {
    for (const char* name : {"file", ".hidden", "..two", "...", "a b", "100%s%n", "line\nend"}) {
        m_scratch.file("dir/" + std::string(name));
    }
    m_scratch.folder("dir/.sub/..sub/sub");
    m_scratch.file("dir/.sub/..sub/sub/file");
    ASSERT_EQ(mkfifo(m_scratch.path("dir/.sub/pipe").c_str(), 0640), 0);
    const std::string neighbour = m_scratch.file("neighbour");

    expectRemoval(m_dir + "/", 0, {});

    EXPECT_FALSE(isThere(m_dir));
    EXPECT_TRUE(isThere(neighbour));
}

TEST_F(RemoveFolderTest, RemovesLinksAndNotWhatTheyLeadTo) {
    const std::string kept = m_scratch.file("elsewhere");
    m_scratch.folder("other/sub");
    const std::string keptToo = m_scratch.file("other/sub/file");
    m_scratch.link("dir/file", "../elsewhere");
    m_scratch.link("dir/folder", "../other");
    m_scratch.link("dir/dangling", "nowhere");
    m_scratch.link("dir/loop", ".");

    expectRemoval(0, {});

    EXPECT_FALSE(isThere(m_dir));
    EXPECT_TRUE(isThere(kept));
    EXPECT_TRUE(isThere(keptToo));
}

TEST_F(RemoveFolderTest, MayBeReachedThroughALink) {
    m_scratch.folder("dir/sub");
    m_scratch.file("dir/sub/file");
    const std::string link = m_scratch.link("link", "dir");

    expectRemoval(link + "/sub", 0, {});

    EXPECT_FALSE(isThere(m_scratch.path("dir/sub")));
    EXPECT_TRUE(isThere(m_dir));
}

TEST_F(RemoveFolderTest, RemovesTenThousandFilesAndTwoHundredLevels) {
    for (int i = 0; i < 10000; ++i) m_scratch.file("dir/file" + std::to_string(i), "");
    std::string deep = "dir";
    for (int level = 0; level < 200; ++level) deep += "/d";
    m_scratch.folder(deep);
    m_scratch.file(deep + "/file");

    expectRemoval(0, {});

    EXPECT_FALSE(isThere(m_dir));
}

// Failures.

TEST_F(RemoveFolderTest, GoesOnBehindWhatItCannotDelete) {
    const std::string first = m_scratch.file("dir/file");
    {
        const FailCall unlinkat(Call::Unlinkat, EBUSY);
        expectRemoval(-3, {deleteFailed(first, EBUSY), folderFailed(m_dir, ENOTEMPTY)});
    }
    m_scratch.folder("dir/sub");
    {
        const FailCall open(Call::Openat, EMFILE, When().nth(2));
        expectRemoval(-3, {openFailed(m_dir + "/sub"), folderFailed(m_dir, ENOTEMPTY)});
    }
    EXPECT_FALSE(isThere(first));
    m_scratch.folder("dir/sub");
    {
        const FailCall stream(Call::Fdopendir, ENOMEM, When().nth(2));
        expectRemoval(-3, {openFailed(m_dir + "/sub"), folderFailed(m_dir, ENOTEMPTY)});
    }
    {
        const FailCall open(Call::Openat, EACCES);
        expectRemoval(-2, {openFailed(m_dir)});
    }
    expectRemoval(0, {});
}

/// Removes a folder that it can open but not read, with its cancellation pending from there on.
void* removeWhileCancelled(void* p_dir) {
    {
        LogCapture log;
        const ReplaceCall<DIR*(int)> stream(Call::Fdopendir, [](int) -> DIR* {
            (void)pthread_cancel(pthread_self());
            errno = ENOMEM;
            return nullptr;
        });
        EXPECT_EQ(removeFolder(static_cast<const std::string*>(p_dir)->c_str()), -2);
    }
    // The end of the thread, seen by a sanitizer, should not be an unwinding.
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    return nullptr;
}

TEST_F(RemoveFolderTest, LeavesNoDescriptorOpenWhereItIsCancelledAndTheFolderCannotBeRead) {
    const long descriptors = test::openDescriptors();
    std::string dir = m_dir;
    pthread_t thread = {};

    ASSERT_EQ(pthread_create(&thread, nullptr, removeWhileCancelled, &dir), 0);
    ASSERT_EQ(pthread_join(thread, nullptr), 0);

    EXPECT_EQ(test::openDescriptors(), descriptors);
    EXPECT_TRUE(isThere(m_dir));
}

// To close a folder may be a cancellation point, and is done in a destructor, where cancellation
// would end the process.
TEST_F(RemoveFolderTest, IsNotCancelledWhileItClosesAFolder) {
    m_scratch.folder("dir/sub");
    std::vector<int> states;
    const ReplaceCall<int(DIR*)> closing(Call::Closedir, [&](DIR* p_folder) {
        int state = -1;
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
        (void)pthread_setcancelstate(state, nullptr);
        states.push_back(state);
        return closedir(p_folder);
    });

    EXPECT_EQ(removeFolder(m_dir.c_str()), 0);

    EXPECT_EQ(states, std::vector<int>(2, PTHREAD_CANCEL_DISABLE));
}

// A folder that may not be deleted itself may hold what may: the kernel refuses to unlink it with
// another error than others then.
TEST_F(RemoveFolderTest, EntersFoldersThatItCannotDelete) {
    const std::string sub = m_scratch.folder("dir/sub");
    const std::string file = m_scratch.file("dir/sub/file");
    for (const int error : {EACCES, EPERM}) {
        m_scratch.file("dir/sub/file");
        const FailCall asFile(Call::Unlinkat, error);
        const FailCall asFolder(Call::Unlinkat, error, When().nth(3));

        expectRemoval(-3, {folderFailed(sub, error), folderFailed(m_dir, ENOTEMPTY)});

        EXPECT_FALSE(isThere(file));
    }
}

/// A folder on which a file system of its own is mounted; skips the test where none can be.
class MountedFolder {
public:
    explicit MountedFolder(std::string path) : m_path(std::move(path)) {
        m_isMounted =
            std::system(("mount -t tmpfs none '" + m_path + "' 2>/dev/null").c_str()) == 0;
    }
    ~MountedFolder() {
        if (m_isMounted) (void)!std::system(("umount '" + m_path + "'").c_str());
    }
    MountedFolder(const MountedFolder&) = delete;
    MountedFolder& operator=(const MountedFolder&) = delete;
    bool isMounted() const { return m_isMounted; }

private:
    std::string m_path;
    bool m_isMounted;
};

TEST_F(RemoveFolderTest, DoesNotEnterAnotherFileSystem) {
    const std::string mounted = m_scratch.folder("dir/mounted");
    const MountedFolder fileSystem(mounted);
    if (!fileSystem.isMounted()) GTEST_SKIP() << "nothing can be mounted here";
    const std::string kept = m_scratch.file("dir/mounted/file");

    expectRemoval(-3, {folderFailed(mounted, EBUSY), folderFailed(m_dir, ENOTEMPTY)});

    EXPECT_TRUE(isThere(kept));
}

// Somebody puts a link to another folder in the place of one that is being removed, again and
// again.
TEST_F(RemoveFolderTest, DoesNotLeaveTheFolderWhateverIsPutIntoIt) {
    m_scratch.folder("other");
    const std::string kept = m_scratch.file("other/file");
    const std::string place = m_scratch.path("dir/place");
    const std::string target = m_scratch.path("other");
    std::atomic<bool> isOver{false};
    std::thread attacker([&] {
        while (!isOver) {
            (void)mkdir(place.c_str(), 0700);
            (void)rmdir(place.c_str());
            (void)!symlink(target.c_str(), place.c_str());
            (void)unlink(place.c_str());
        }
    });

    for (int round = 0; round < 2000; ++round) {
        LogCapture log;
        (void)mkdir(m_dir.c_str(), 0700);
        (void)removeFolder(m_dir.c_str());
    }
    isOver = true;
    attacker.join();

    EXPECT_TRUE(isThere(kept));
}

}  // namespace
