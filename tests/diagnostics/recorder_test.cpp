#include "base/diagnostics/recorder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "base/logging/boot_id.h"
#include "ends/forked_child.h"
#include "recordings.h"
#include "support/child_process.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/fresh_process.h"
#include "support/scratch_folder.h"
#include "support/threads.h"

namespace {

using namespace tevalon::base::diagnostics;
using test::optionsOf;
using test::RecorderTest;

constexpr std::size_t kKiB = 1024;

TEST_F(RecorderTest, StartsOnceAndSaysSoTheSecondTime) {
    EXPECT_EQ(stopRecording(), Status::NotRecording);
    EXPECT_FALSE(isRecording());

    EXPECT_EQ(startRecording(), Status::Ok);
    EXPECT_TRUE(isRecording());
    EXPECT_EQ(startRecording(), Status::AlreadyRecording);
    EXPECT_EQ(stopRecording(), Status::Ok);
    EXPECT_FALSE(isRecording());
    EXPECT_EQ(stopRecording(), Status::NotRecording);

    EXPECT_EQ(startRecording(), Status::Ok);
}

TEST_F(RecorderTest, HasNothingToWriteBeforeTheFirstStart) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        EXPECT_EQ(writeRecording(STDERR_FILENO), Status::NotRecording);
        mark("nothing");
    });
}

// A forked child would go on recording, into its parent's file perhaps.
TEST_F(RecorderTest, DoesNotStartWhereAForkWouldGoUnnoticed) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        {
            test::FailCall noMemory(test::Call::PthreadAtfork, ENOMEM);
            EXPECT_EQ(startRecording(), Status::NoMemory);
            EXPECT_EQ(noMemory.hits(), 1);
        }
        EXPECT_FALSE(isRecording());
        EXPECT_EQ(startRecording(), Status::Ok);
    });
}

TEST_F(RecorderTest, KeepsToTheLimitsOfSize) {
    EXPECT_EQ(startRecording(optionsOf(16 * kKiB - 1)), Status::BadArgument);
    EXPECT_EQ(startRecording(optionsOf(kMostRecordingBytes + 1)), Status::BadArgument);
    EXPECT_FALSE(isRecording());

    for (const std::size_t bytes : {16 * kKiB, 16 * kKiB + 1, 100 * kKiB + 7, 256 * kKiB,
                                    511 * kKiB, 512 * kKiB, 3000 * kKiB}) {
        ASSERT_EQ(startRecording(optionsOf(bytes)), Status::Ok) << bytes;
        mark("m", 1);
        const std::string written = test::writtenBytes();
        EXPECT_LE(written.size(), bytes);
        EXPECT_GT(written.size(), bytes - bytes / 60) << bytes;  // Nearly all of it is used.
        EXPECT_EQ(test::sentences(test::readBytes(written)),
                  std::vector<std::string>{"mark 'm' 1"});
        ASSERT_EQ(stopRecording(), Status::Ok);
    }
}

TEST_F(RecorderTest, RecordsMarksScopesAndCountersOnlyWhileItRuns) {
    mark("before");
    {
        const Scope begunBefore("begun before");
        ASSERT_EQ(startRecording(), Status::Ok);
    }
    {
        const Scope outer("launch app");
        const Scope inner("load page");
        mark("tuned", 498000);
        counter("frames", -2);
        mark("no value");
    }
    ASSERT_EQ(stopRecording(), Status::Ok);
    mark("after");

    EXPECT_EQ(test::sentences(test::readBytes(test::writtenBytes())),
              (std::vector<std::string>{
                  "scope 'launch app' begun",
                  "scope 'load page' begun",
                  "mark 'tuned' 498000",
                  "counter 'frames' -2",
                  "mark 'no value' 0",
                  "scope 'load page' ended",
                  "scope 'launch app' ended",
              }));
}

TEST_F(RecorderTest, ANewStartForgetsTheLastRecording) {
    ASSERT_EQ(startRecording(optionsOf(16 * kKiB)), Status::Ok);
    mark("first");
    ASSERT_EQ(stopRecording(), Status::Ok);
    ASSERT_EQ(startRecording(optionsOf(300 * kKiB)), Status::Ok);
    mark("second");

    const test::trace::Recording read = test::readBytes(test::writtenBytes());
    EXPECT_EQ(test::sentences(read), std::vector<std::string>{"mark 'second' 0"});
    EXPECT_EQ(read.head.stopMonotonicNs, 0U);
}

/// The note that linkers write, as it stands in this very program.
std::string buildIdInFile(const std::string& path) {
    const std::string bytes = test::contentsOf(path);
    const std::string note("\4\0\0\0\24\0\0\0\3\0\0\0GNU\0", 16);
    const std::size_t found = bytes.find(note);
    return found == std::string::npos ? std::string(20, '\0')
                                      : bytes.substr(found + note.size(), 20);
}

template <std::size_t kSize>
std::string rawBytes(const std::uint8_t (&bytes)[kSize]) {
    return std::string(reinterpret_cast<const char*>(bytes), kSize);
}

std::uint64_t nanosecondsOf(clockid_t clock) {
    timespec now = {};
    (void)clock_gettime(clock, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1000000000U +
           static_cast<std::uint64_t>(now.tv_nsec);
}

TEST_F(RecorderTest, TheHeadTellsOfTheProcess) {
    const std::uint64_t monotonicBefore = nanosecondsOf(CLOCK_MONOTONIC);
    const std::uint64_t realtimeBefore = nanosecondsOf(CLOCK_REALTIME);
    ASSERT_EQ(startRecording(), Status::Ok);
    const std::uint64_t monotonicAfter = nanosecondsOf(CLOCK_MONOTONIC);
    const std::uint64_t realtimeAfter = nanosecondsOf(CLOCK_REALTIME);
    ASSERT_EQ(stopRecording(), Status::Ok);

    const test::record::Head head = test::readBytes(test::writtenBytes()).head;
    EXPECT_EQ(head.processId, static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(head.bootId, tevalon::base::bootID());
    EXPECT_EQ(head.pointerBytes, sizeof(void*));
    EXPECT_STREQ(head.processName, std::string(program_invocation_short_name, 0, 15).c_str());
    EXPECT_GE(head.startMonotonicNs, monotonicBefore);
    EXPECT_LE(head.startMonotonicNs, monotonicAfter);
    EXPECT_GE(head.startRealtimeNs, realtimeBefore);
    EXPECT_LE(head.startRealtimeNs, realtimeAfter);
    EXPECT_GE(head.stopMonotonicNs, head.startMonotonicNs);
    EXPECT_EQ(rawBytes(head.libraryBuildId), buildIdInFile(TEVALON_TEST_LIBRARY));
    EXPECT_NE(rawBytes(head.libraryBuildId), rawBytes(head.programBuildId));
#ifndef TEVALON_TEST_EMULATED  // There these are the emulator's.
    utsname system = {};
    ASSERT_EQ(uname(&system), 0);
    EXPECT_STREQ(head.architecture, system.machine);
    EXPECT_EQ(rawBytes(head.programBuildId), buildIdInFile("/proc/self/exe"));
#endif
}

// It has notes of the same type that others have made.
TEST_F(RecorderTest, TheHeadOfAProgramWithoutABuildIdHasNone) {
    const test::ChildResult result = test::ChildProcess({TEVALON_TEST_NO_BUILD_ID}).run();

    ASSERT_EQ(result.exitStatus, 0);
    const test::record::Head head = test::readBytes(result.output).head;
    EXPECT_EQ(rawBytes(head.programBuildId), std::string(20, '\0'));
    EXPECT_EQ(rawBytes(head.libraryBuildId), buildIdInFile(TEVALON_TEST_LIBRARY));
}

TEST_F(RecorderTest, TellsWhatCannotBeWritten) {
    ASSERT_EQ(startRecording(), Status::Ok);
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);

    errno = 0;
    EXPECT_EQ(writeRecording(full), Status::WriteFailed);
    EXPECT_EQ(errno, ENOSPC);
    errno = 0;
    EXPECT_EQ(writeRecording(-1), Status::WriteFailed);
    EXPECT_EQ(errno, EBADF);
    (void)close(full);
    EXPECT_EQ(writeState(-1), Status::WriteFailed);
}

TEST_F(RecorderTest, GivesTheLastRecordingsMemoryBackAsTheNextOneStarts) {
    constexpr std::size_t kBytes = 16 * kKiB * kKiB;
    const auto mapped = [] {
        std::size_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages;
        return pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    };
    const auto record = [] {
        ASSERT_EQ(startRecording(optionsOf(kBytes)), Status::Ok);
        ASSERT_EQ(stopRecording(), Status::Ok);
    };
    record();
    const std::size_t before = mapped();

    for (int i = 0; i < 4; ++i) record();

    EXPECT_LT(mapped(), before + kBytes);
}

TEST_F(RecorderTest, IsWrittenBySignalHandlersThatInterruptARecord) {
    static std::atomic<int> s_written{0};
    ASSERT_EQ(startRecording(optionsOf(16 * kKiB)), Status::Ok);
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    static int s_null;
    s_null = null;
    struct sigaction before = {};
    struct sigaction action = {};
    action.sa_handler = [](int) {
        if (writeRecording(s_null) == Status::Ok) s_written.fetch_add(1);
        mark("in a handler");
    };
    ASSERT_EQ(sigaction(SIGUSR2, &action, &before), 0);
    constexpr int kSignals = 100;
    std::atomic<bool> isOver{false};
    std::thread recorder([&] {
        while (!isOver.load(std::memory_order_relaxed)) mark("m");
    });

    for (int i = 0; i < kSignals; ++i) {
        const int written = s_written.load();
        ASSERT_EQ(pthread_kill(recorder.native_handle(), SIGUSR2), 0);
        while (s_written.load() == written) std::this_thread::yield();
    }
    isOver = true;
    recorder.join();
    (void)sigaction(SIGUSR2, &before, nullptr);
    (void)close(null);

    EXPECT_EQ(s_written.load(), kSignals);
}

/// Of each thread: the values of its marks in the order of the recording.
std::map<std::uint32_t, std::vector<std::uint64_t>> marksByThread(
    const test::trace::Recording& recording) {
    std::map<std::uint32_t, std::vector<std::uint64_t>> marks;
    for (const auto& each : recording.records) {
        if (each.kind != test::record::Kind::Mark) continue;
        EXPECT_EQ(each.text(1), "a text of some length");
        marks[each.thread].push_back(each.word(0));
    }
    return marks;
}

TEST_F(RecorderTest, IsWrittenWhileThreadsRecord) {
    constexpr int kCopies = 100;
    ASSERT_EQ(startRecording(optionsOf(16 * kKiB)), Status::Ok);
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; !isOver.load(std::memory_order_relaxed); ++n) {
                mark("a text of some length", n);
            }
        });
    }

    for (int i = 0; i < kCopies; ++i) {
        const test::trace::Recording read = test::readBytes(test::writtenBytes());
        for (const auto& [thread, values] : marksByThread(read)) {
            // Gaps where a block was reused meanwhile, and never a step back or a value twice.
            EXPECT_EQ(std::adjacent_find(values.begin(), values.end(),
                                         [](auto left, auto right) { return left >= right; }),
                      values.end())
                << thread;
        }
    }
    isOver = true;
    for (std::thread& thread : threads) thread.join();
}

TEST_F(RecorderTest, StartsAndStopsUnderThreadsThatRecordNameAndWrite) {
    constexpr int kTimes = 100;
    std::atomic<bool> isOver{false};
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; !isOver.load(std::memory_order_relaxed); ++n) {
                const Scope scope("a scope");
                counter("a counter", n);
            }
        });
    }
    threads.emplace_back([&] {
        for (int n = 0; !isOver.load(std::memory_order_relaxed); ++n) {
            (void)writeRecording(null);
            (void)nameTask(n % 50, "task");
        }
    });

    for (int i = 0; i < kTimes; ++i) {
        Status status = Status::Busy;
        while ((status = startRecording(optionsOf(i % 2 == 0 ? 16 * kKiB : 116 * kKiB))) ==
               Status::Busy) {
            std::this_thread::yield();  // It is being written.
        }
        ASSERT_EQ(status, Status::Ok);
        ASSERT_EQ(stopRecording(), Status::Ok);
    }
    isOver = true;
    for (std::thread& thread : threads) thread.join();
    (void)close(null);
}

TEST_F(RecorderTest, OneOfManyStartsAtOnceSucceeds) {
    std::atomic<int> successes{0};
    test::runAtOnce(8, [&](int) {
        const Status status = startRecording();
        if (status == Status::Ok) ++successes;
        EXPECT_TRUE(status == Status::Ok || status == Status::AlreadyRecording ||
                    status == Status::Busy);
    });
    EXPECT_EQ(successes.load(), 1);
}

TEST_F(RecorderTest, IsBusyWhileAnotherThreadStarts) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        test::Event isStarting;
        test::Event mayGoOn;
        std::thread other([&] {
            const test::RunAtCall within(test::Call::ClockGettime, [&] {
                isStarting.set();
                (void)mayGoOn.wait();
            });
            EXPECT_EQ(startRecording(), Status::Ok);
        });
        EXPECT_TRUE(isStarting.wait());
        const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);

        EXPECT_EQ(startRecording(), Status::Busy);
        EXPECT_EQ(stopRecording(), Status::Busy);
        EXPECT_EQ(writeRecording(null), Status::Busy);
        EXPECT_EQ(writeState(null), Status::Ok);
        EXPECT_EQ(nameModule(7, "tuner"), Status::Ok);

        mayGoOn.set();
        other.join();
        (void)close(null);
        const test::trace::Recording read = test::readBytes(test::writtenBytes());
        EXPECT_EQ(read.names,
                  (decltype(read.names){{{test::record::NameKind::Module, 7}, "tuner"}}));
    });
}

TEST_F(RecorderTest, DoesNotStartAnewWhileTheLastOneIsWritten) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_EQ(startRecording(), Status::Ok);
    std::thread writer([&] {
        EXPECT_EQ(writeRecording(ends[1]), Status::Ok);
        (void)close(ends[1]);
    });
    char piece[4096];
    EXPECT_EQ(read(ends[0], piece, 1), 1);  // A pipe has no room for all of it.

    EXPECT_EQ(stopRecording(), Status::Ok);
    EXPECT_EQ(startRecording(), Status::Busy);

    while (read(ends[0], piece, sizeof(piece)) > 0) {
    }
    writer.join();
    (void)close(ends[0]);
    EXPECT_EQ(startRecording(), Status::Ok);
}

/// No step of the test's own is a cancellation point.
bool recordsThroughout(const char* file, int fd) {
    return startRecording(optionsOf(16 * kKiB, "/dev/null/none")) == Status::FileNotOpened &&
           startRecording(optionsOf(16 * kKiB, file)) == Status::Ok &&
           writeRecording(fd) == Status::Ok && stopRecording() == Status::Ok;
}

TEST_F(RecorderTest, IsNotCancelledHalfway) {
    static bool s_hasRecorded;
    static const test::ScratchFolder s_folder;
    static const std::string s_file = s_folder.path("recording");
    static const int s_fd = open("/dev/null", O_WRONLY | O_CLOEXEC);
    void* p_result = nullptr;
    pthread_t thread;
    // Nothing on this function's own stack: the address sanitizer does not see it unwound.
    const auto run = [](void*) -> void* {
        (void)pthread_cancel(pthread_self());
        s_hasRecorded = recordsThroughout(s_file.c_str(), s_fd);
        pthread_testcancel();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, run, nullptr), 0);
    ASSERT_EQ(pthread_join(thread, &p_result), 0);

    EXPECT_EQ(p_result, PTHREAD_CANCELED);
    EXPECT_TRUE(s_hasRecorded);
    EXPECT_EQ(startRecording(), Status::Ok);
}

/// How a forked child has ended that records, and reads what it has recorded.
int recordInChild() {
    return test::runInForkedChild([] {
        CHECK_IN_CHILD(!isRecording());
        CHECK_IN_CHILD(startRecording(optionsOf(16 * kKiB)) == Status::Ok);
        mark("of the child");
        CHECK_IN_CHILD(test::sentences(test::readBytes(test::writtenBytes())) ==
                       std::vector<std::string>{"mark 'of the child' 0"});
        CHECK_IN_CHILD(stopRecording() == Status::Ok);
    });
}

TEST_F(RecorderTest, AChildThatIsForkedInTheMiddleOfAStartRecordsByItself) {
    // Before forks are noticed, and while the recording is made.
    for (const test::Call call : {test::Call::PthreadAtfork, test::Call::ClockGettime}) {
        EXPECT_HOLDS_IN_FRESH_PROCESS([=] {
            int status = -1;
            const test::RunAtCall within(call, [&] { status = recordInChild(); });

            EXPECT_EQ(startRecording(), Status::Ok);

            EXPECT_EQ(within.hits(), 1);
            EXPECT_EQ(status, 0);
        });
    }
}

// For a key beyond the first 32 the C library allocates on each thread that records.
TEST_F(RecorderTest, AProcessWithManyKeysIsRecordedAndKeepsTheRest) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        constexpr pthread_key_t kMany = 40;
        pthread_key_t last = 0;
        while (last < kMany) ASSERT_EQ(pthread_key_create(&last, nullptr), 0);

        ASSERT_EQ(startRecording(), Status::Ok);
        std::thread([] { mark("of a thread"); }).join();

        EXPECT_EQ(test::sentences(test::readBytes(test::writtenBytes())),
                  std::vector<std::string>{"mark 'of a thread' 0"});
        pthread_key_t next = 0;
        ASSERT_EQ(pthread_key_create(&next, nullptr), 0);
        EXPECT_EQ(next, last + 1);
    });
}

TEST_F(RecorderTest, NamesAreGivenOnceAndShown) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        EXPECT_EQ(nameModule(7, "tuner"), Status::Ok);
        EXPECT_EQ(nameModule(7, "another"), Status::AlreadyNamed);
        EXPECT_EQ(nameEvent(7, "tune"), Status::Ok);
        EXPECT_EQ(nameModule(8, nullptr), Status::BadArgument);
        EXPECT_EQ(nameModule(8, ""), Status::BadArgument);
        ASSERT_EQ(startRecording(), Status::Ok);
        EXPECT_EQ(nameTask(INT32_MIN, "a name of 23 characters.and more"), Status::Ok);

        const test::trace::Recording read = test::readBytes(test::writtenBytes());
        using Kind = test::record::NameKind;
        EXPECT_EQ(read.names, (decltype(read.names){
                                  {{Kind::Module, 7}, "tuner"},
                                  {{Kind::Event, 7}, "tune"},
                                  {{Kind::Task, INT32_MIN}, "a name of 23 characters"},
                              }));
    });
}

TEST_F(RecorderTest, SaysHowManyNamesItHasNoRoomFor) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        for (int i = 0; i < 512; ++i) EXPECT_EQ(nameEvent(i, "event"), Status::Ok);
        EXPECT_EQ(nameEvent(512, "event"), Status::NoRoom);
        EXPECT_EQ(nameEvent(511, "event"), Status::AlreadyNamed);
        ASSERT_EQ(startRecording(optionsOf(16 * kKiB)), Status::Ok);

        const test::trace::Recording read = test::readBytes(test::writtenBytes());
        EXPECT_EQ(read.names.size(), 64U);
        EXPECT_EQ(read.head.namesGiven, 513U);
    });
}

TEST_F(RecorderTest, NamesGivenByManyThreadsAreAllThere) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        ASSERT_EQ(startRecording(), Status::Ok);
        test::runAtOnce(8, [](int thread) {
            for (int i = 0; i < 20; ++i) {
                EXPECT_EQ(nameEvent(thread * 20 + i, "event"), Status::Ok);
            }
        });
        EXPECT_EQ(test::readBytes(test::writtenBytes()).names.size(), 160U);
    });
}

TEST_F(RecorderTest, TheHeapStandsInTheMemoryRecordsOnceItWasAskedFor) {
    sampleHeap();
    ASSERT_EQ(startRecording(), Status::Ok);
    mark("m");

    const test::trace::Recording read = test::readBytes(test::writtenBytes());
    const auto memory =
        std::find_if(read.records.begin(), read.records.end(),
                     [](const auto& each) { return each.kind == test::record::Kind::Memory; });
    ASSERT_NE(memory, read.records.end());
    EXPECT_GT(memory->word(0), 0U);
#ifndef TEVALON_TEST_SANITIZED  // Those have a heap of their own.
    EXPECT_GT(memory->word(2), 0U);
    EXPECT_LT(memory->word(2), std::uint64_t{1} << 30);
#endif
}

}  // namespace
