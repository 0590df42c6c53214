// A recording that lies in a file: how the file is made, and what stands in it whatever becomes of
// the process.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "base/diagnostics/recorder.h"
#include "recordings.h"
#include "support/fault_injection.h"
#include "support/fresh_process.h"
#include "support/open_descriptors.h"
#include "support/scratch_folder.h"

namespace {

using namespace tevalon::base::diagnostics;
using test::optionsOf;

constexpr std::size_t kBytes = std::size_t{16} * 1024;

class RecordingFileTest : public test::RecorderTest {
protected:
    Status start(const std::string& path, std::size_t bytes = kBytes) {
        return startRecording(optionsOf(bytes, path.c_str()));
    }

    const test::ScratchFolder m_folder;
    const std::string m_path = m_folder.path("tv.recording");
};

TEST_F(RecordingFileTest, IsReadWhileItIsWritten) {
    const long descriptors = test::openDescriptors();
    ASSERT_EQ(start(m_path), Status::Ok);
    mark("one");
    EXPECT_EQ(test::sentences(test::readFile(m_path)), std::vector<std::string>{"mark 'one' 0"});
    mark("two");
    EXPECT_EQ(test::sentences(test::readFile(m_path)),
              (std::vector<std::string>{"mark 'one' 0", "mark 'two' 0"}));

    EXPECT_EQ(test::contentsOf(m_path), test::writtenBytes());
    EXPECT_EQ(test::openDescriptors(), descriptors);
}

TEST_F(RecordingFileTest, StaysWhenTheRecordingIsStopped) {
    ASSERT_EQ(start(m_path), Status::Ok);
    mark("one");
    ASSERT_EQ(stopRecording(), Status::Ok);
    ASSERT_EQ(startRecording(), Status::Ok);  // Another, in memory.
    mark("two");

    const test::trace::Recording read = test::readFile(m_path);
    EXPECT_EQ(test::sentences(read), std::vector<std::string>{"mark 'one' 0"});
    EXPECT_NE(read.head.stopMonotonicNs, 0U);
}

TEST_F(RecordingFileTest, IsForItsUserAlone) {
    const mode_t before = umask(0);
    const Status status = start(m_path);
    (void)umask(before);
    ASSERT_EQ(status, Status::Ok);

    struct stat file = {};
    ASSERT_EQ(stat(m_path.c_str(), &file), 0);
    EXPECT_EQ(file.st_mode, static_cast<mode_t>(S_IFREG | S_IRUSR | S_IWUSR));
    EXPECT_LE(file.st_size, static_cast<off_t>(kBytes));
    EXPECT_GE(file.st_blocks * 512, file.st_size);  // No holes.
}

TEST_F(RecordingFileTest, LeavesAFileThatIsThereAsItIs) {
    const std::string path = m_folder.file("earlier", "an earlier recording");

    EXPECT_EQ(start(path), Status::FileExists);

    EXPECT_EQ(test::contentsOf(path), "an earlier recording");
    EXPECT_FALSE(isRecording());
}

TEST_F(RecordingFileTest, FollowsNoLink) {
    const std::string target = m_folder.file("target", "a target");
    const std::string link = m_folder.link("link", target);
    const std::string dangling = m_folder.link("dangling", m_path);

    EXPECT_EQ(start(link), Status::FileExists);
    EXPECT_EQ(start(dangling), Status::FileExists);

    EXPECT_EQ(test::contentsOf(target), "a target");
    EXPECT_FALSE(test::isThere(m_path));
}

TEST_F(RecordingFileTest, TellsWhyItCannotBeOpened) {
    errno = 0;
    EXPECT_EQ(start(m_folder.path("none/tv.recording")), Status::FileNotOpened);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(start(""), Status::FileNotOpened);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(isRecording());
}

TEST_F(RecordingFileTest, IsNotLeftBehindWithoutItsRoom) {
    const long descriptors = test::openDescriptors();
    {
        const test::FailCall full(test::Call::PosixFallocate, ENOSPC);
        EXPECT_EQ(start(m_path), Status::NoRoom);
        EXPECT_EQ(full.hits(), 1);
    }
    EXPECT_FALSE(test::isThere(m_path));
    EXPECT_EQ(test::openDescriptors(), descriptors);
    {
        const test::FailCall interrupted(test::Call::PosixFallocate, EINTR, test::When().times(3));
        EXPECT_EQ(start(m_path), Status::Ok);
        EXPECT_EQ(interrupted.hits(), 3);
    }
}

// A file beyond the limit raises SIGXFSZ, which ends a process.
TEST_F(RecordingFileTest, StaysBelowTheProcesssLimit) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([this] {
        const rlimit limit = {kBytes, kBytes};
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
        EXPECT_EQ(start(m_path, 2 * kBytes), Status::NoRoom);
        EXPECT_FALSE(test::isThere(m_path));
        EXPECT_EQ(start(m_path, kBytes), Status::Ok);
        mark("m");
    });
}

/// A file system of so many KiB, in this process alone; false where the process may not have one.
bool mountSmall(const std::string& folder, const std::string& kib) {
    return unshare(CLONE_NEWNS) == 0 &&
           mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", folder.c_str(), "tmpfs", 0, ("size=" + kib + "k").c_str()) == 0;
}

TEST_F(RecordingFileTest, OnAFullFileSystemIsRefusedAndNothingBreaks) {
    const std::string folder = m_folder.folder("small");
    // So that a fresh process can tell that it was not allowed to look.
    const std::string forbidden = m_folder.path("forbidden");
    EXPECT_HOLDS_IN_FRESH_PROCESS([&] {
        if (!mountSmall(folder, "64")) {
            (void)m_folder.file("forbidden");
            return;
        }
        EXPECT_EQ(start(folder + "/large", 128 * 1024), Status::NoRoom);
        EXPECT_FALSE(test::isThere(folder + "/large"));
        EXPECT_EQ(start(folder + "/small", 32 * 1024), Status::Ok);
        // Nobody can take the room that it has.
        const int rest = open((folder + "/rest").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        const std::string page(4096, 'x');
        while (write(rest, page.data(), page.size()) > 0) {
        }
        EXPECT_EQ(errno, ENOSPC);
        for (int i = 0; i < 5000; ++i) mark("m", i);
        EXPECT_EQ(test::sentences(test::readFile(folder + "/small")).back(), "mark 'm' 4999");
    });
    if (test::isThere(forbidden)) GTEST_SKIP() << "not allowed to mount";
}

// ---- what stands in it when the process is killed ----

/// Records until it is killed: each thread counts up, and so do the threads that it makes in turn.
[[noreturn]] void recordForEver(const std::string& path, int ready) {
    if (startRecording(optionsOf(kBytes, path.c_str())) != Status::Ok) _exit(1);
    for (int i = 0; i < 2; ++i) {
        std::thread([] {
            for (int n = 0;; ++n) mark("counted", n);
        }).detach();
    }
    std::thread([] { mark("in turn", 0); }).join();
    (void)!write(ready, "r", 1);
    for (int n = 1;; ++n) std::thread([n] { mark("in turn", n); }).join();
}

bool isAscending(const std::vector<std::uint64_t>& values) {
    return std::adjacent_find(values.begin(), values.end(),
                              [](auto left, auto right) { return left >= right; }) == values.end();
}

/// All that is in it makes sense. Returns how many records that are.
std::size_t checkKilled(const test::trace::Recording& read) {
    std::map<std::uint32_t, std::vector<std::uint64_t>> counted;
    for (const auto& each : read.records) {
        EXPECT_GE(each.timeNs, read.head.startMonotonicNs);
        if (each.kind == test::record::Kind::Memory) continue;
        EXPECT_EQ(each.kind, test::record::Kind::Mark);
        const std::string text = each.text(1);
        EXPECT_TRUE(text == "counted" || text == "in turn") << text;
        if (text == "counted") counted[each.thread].push_back(each.word(0));
    }
    for (const auto& [thread, values] : counted) EXPECT_TRUE(isAscending(values)) << thread;
    // At most the blocks that were just being reused, one by each thread that was killed.
    EXPECT_LE(read.unreadableBlocks, 3U);
    EXPECT_EQ(read.head.stopMonotonicNs, 0U);
    return read.records.size();
}

TEST_F(RecordingFileTest, StandsWhereverItsProcessIsKilled) {
    constexpr int kTimes = 100;
    std::size_t records = 0;
    for (int i = 0; i < kTimes; ++i) {
        const std::string path = m_folder.path("killed " + std::to_string(i));
        int ready[2];
        ASSERT_EQ(pipe(ready), 0);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) recordForEver(path, ready[1]);
        (void)close(ready[1]);
        char byte = 0;
        ASSERT_EQ(read(ready[0], &byte, 1), 1);
        (void)close(ready[0]);
        (void)usleep(static_cast<useconds_t>(i * 37 % 1000));  // Each at another moment.
        ASSERT_EQ(kill(child, SIGKILL), 0);
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status));

        records += checkKilled(test::readFile(path));
    }
    EXPECT_GT(records, 1000U);
}

TEST_F(RecordingFileTest, OfAStoppedProcessIsRead) {
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) recordForEver(m_path, ready[1]);
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    for (int i = 0; i < 20; ++i) {
        int status = 0;
        ASSERT_EQ(kill(child, SIGSTOP), 0);
        ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
        ASSERT_TRUE(WIFSTOPPED(status));
        EXPECT_GT(checkKilled(test::readFile(m_path)), 0U);
        ASSERT_EQ(kill(child, SIGCONT), 0);
    }
    (void)kill(child, SIGKILL);
    (void)waitpid(child, nullptr, 0);
    (void)close(ready[0]);
    (void)close(ready[1]);
}

// ---- forks ----

int exitStatusOf(pid_t child) {
    int status = 0;
    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(RecordingFileTest, AForkedChildRecordsNothingThere) {
    ASSERT_EQ(start(m_path), Status::Ok);
    mark("parent");

    const pid_t child = fork();
    if (child == 0) {
        const bool isQuiet = !isRecording();
        mark("child");
        internal::record(internal::Entry::Mark, "child that had asked before", 0);
        const bool hasNone = writeRecording(STDERR_FILENO) == Status::NotRecording &&
                             stopRecording() == Status::NotRecording;
        _exit(isQuiet && hasNone ? 0 : 1);
    }
    EXPECT_EQ(exitStatusOf(child), 0);
    mark("parent after");

    EXPECT_EQ(test::sentences(test::readFile(m_path)),
              (std::vector<std::string>{"mark 'parent' 0", "mark 'parent after' 0"}));
}

bool isMapped(const std::string& path) {
    return test::contentsOf("/proc/self/maps").find(path) != std::string::npos;
}

TEST_F(RecordingFileTest, AForkedChildDoesNotHaveItMapped) {
    ASSERT_EQ(start(m_path), Status::Ok);
    EXPECT_TRUE(isMapped(m_path));

    const pid_t child = fork();
    if (child == 0) _exit(isMapped(m_path) ? 1 : 0);

    EXPECT_EQ(exitStatusOf(child), 0);
}

TEST_F(RecordingFileTest, AForkedChildRecordsInAFileOfItsOwn) {
    const std::string own = m_folder.path("child");
    ASSERT_EQ(start(m_path), Status::Ok);
    mark("parent");

    const pid_t child = fork();
    if (child == 0) {
        const bool isStarted = startRecording(optionsOf(2 * kBytes, own.c_str())) == Status::Ok;
        mark("child");
        _exit(isStarted ? 0 : 1);
    }
    EXPECT_EQ(exitStatusOf(child), 0);

    EXPECT_EQ(test::sentences(test::readFile(m_path)), std::vector<std::string>{"mark 'parent' 0"});
    const test::trace::Recording read = test::readFile(own);
    EXPECT_EQ(test::sentences(read), std::vector<std::string>{"mark 'child' 0"});
    EXPECT_EQ(read.head.processId, static_cast<std::uint32_t>(child));
}

// That thread holds the memory against a new start, and does not exist in the child.
TEST_F(RecordingFileTest, AForkedChildRecordsThoughAThreadIsJustWritingTheRecording) {
    int ends[2] = {};
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(start(m_path, 16 * kBytes), Status::Ok);
    std::thread writer([&] { EXPECT_EQ(writeRecording(ends[1]), Status::Ok); });
    int inPipe = 0;  // At last as much as it holds, which is less than the recording.
    while (inPipe < 4096 * 4) ASSERT_EQ(ioctl(ends[0], FIONREAD, &inPipe), 0);

    const pid_t child = fork();
    if (child == 0) _exit(startRecording(optionsOf(kBytes)) == Status::Ok ? 0 : 1);
    EXPECT_EQ(exitStatusOf(child), 0);

    std::thread reader([&] {
        char piece[4096];
        while (read(ends[0], piece, sizeof(piece)) > 0) {
        }
    });
    writer.join();
    (void)close(ends[1]);
    reader.join();
    (void)close(ends[0]);
}

// It came before anybody was to be told of forks.
TEST_F(RecordingFileTest, AChildOfAForkDuringTheFirstStartRecords) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        int status = -1;
        {
            const test::ReplaceCall<int(void (*)(), void (*)(), void (*)(), void*)> forks(
                test::Call::PthreadAtfork,
                [&](void (*p_prepare)(), void (*p_parent)(), void (*p_child)(), void*) {
                    const pid_t child = fork();
                    if (child == 0) {
                        _exit(startRecording(optionsOf(kBytes)) == Status::Ok ? 0 : 1);
                    }
                    status = exitStatusOf(child);
                    return pthread_atfork(p_prepare, p_parent, p_child);
                });
            EXPECT_EQ(startRecording(optionsOf(kBytes)), Status::Ok);
        }
        EXPECT_EQ(status, 0);
    });
}

TEST_F(RecordingFileTest, ForksWhileThreadsRecordLeaveItWhole) {
    constexpr int kForks = 50;
    ASSERT_EQ(start(m_path), Status::Ok);
    std::atomic<bool> isOver{false};
    std::thread recorder([&] {
        for (int n = 0; !isOver.load(std::memory_order_relaxed); ++n) mark("counted", n);
    });
    for (int i = 0; i < kForks; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            for (int n = 0; n < 100; ++n) internal::record(internal::Entry::Mark, "child", n);
            _exit(startRecording(optionsOf(kBytes)) == Status::Ok ? 0 : 1);
        }
        ASSERT_EQ(exitStatusOf(child), 0);
    }
    isOver = true;
    recorder.join();

    const test::trace::Recording read = test::readFile(m_path);
    EXPECT_EQ(read.unreadableBlocks, 0U);
    EXPECT_GT(checkKilled(read), 0U);
}

}  // namespace
