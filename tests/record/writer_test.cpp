#include "record/writer.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "locks/annotated_mutex.h"
#include "own_recording.h"
#include "record/record.h"
#include "record/wait_scope.h"
#include "support/event.h"
#include "support/fault_injection.h"
#include "support/fresh_process.h"
#include "support/threads.h"

namespace {

namespace record = tevalon::base::record;
using test::OwnRecording;

/// What the clocks show while it lives.
class ManualClock {
public:
    explicit ManualClock(std::uint64_t ns)
        : m_ns(ns), m_replacement(test::Call::ClockGettime, [this](clockid_t, timespec* p_time) {
              p_time->tv_sec = static_cast<time_t>(m_ns / kSecondNs);
              p_time->tv_nsec = static_cast<long>(m_ns % kSecondNs);
              return 0;
          }) {}

    void set(std::uint64_t ns) { m_ns = ns; }
    void advance(std::uint64_t ns) { m_ns += ns; }

    static constexpr std::uint64_t kSecondNs = 1000000000;

private:
    std::uint64_t m_ns;
    const test::ReplaceCall<int(clockid_t, timespec*)> m_replacement;
};

constexpr std::uint64_t kSecondNs = ManualClock::kSecondNs;

/// The values of the marks of each thread, in the order of the recording.
std::map<std::uint32_t, std::vector<std::uint64_t>> marksByThread(
    const test::trace::Recording& recording) {
    std::map<std::uint32_t, std::vector<std::uint64_t>> marks;
    for (const auto& each : recording.records) {
        if (each.kind == record::Kind::Mark) marks[each.thread].push_back(each.word(0));
    }
    return marks;
}

/// Each value is one more than the one before it.
bool areConsecutive(const std::vector<std::uint64_t>& values) {
    for (std::size_t i = 1; i < values.size(); ++i) {
        if (values[i] != values[i - 1] + 1) return false;
    }
    return true;
}

TEST(WriterTest, EachRecordHasItsTime) {
    OwnRecording recording(50);
    {
        ManualClock clock(5 * kSecondNs);
        record::mark("first", 0);
        clock.advance(1);
        record::mark("second", 0);
        clock.set(400000 * kSecondNs);  // More than a block's times can tell apart.
        record::mark("third", 0);
    }

    const auto records = test::withoutMemory(recording.read());
    ASSERT_EQ(records.size(), 3U);
    EXPECT_EQ(records[0].timeNs, 5 * kSecondNs);
    EXPECT_EQ(records[1].timeNs, 5 * kSecondNs + 1);
    EXPECT_EQ(records[2].timeNs, 400000 * kSecondNs);
}

TEST(WriterTest, MemoryIsRecordedOnceASecondWhileAnythingIs) {
    record::setHeapInUse(std::uint64_t{5} << 30);
    OwnRecording recording(50);
    {
        ManualClock clock(5 * kSecondNs + 900000000);
        record::mark("first", 0);
        record::mark("in the same second", 0);
        clock.set(6 * kSecondNs);
        record::mark("in the next second", 0);
        clock.set(6 * kSecondNs + 999999999);
        record::mark("in that second too", 0);
        clock.set(60 * kSecondNs);
        record::mark("long after", 0);
    }
    record::setHeapInUse(0);

    std::vector<std::uint64_t> times;
    for (const auto& each : recording.read().records) {
        if (each.kind != record::Kind::Memory) continue;
        times.push_back(each.timeNs);
        EXPECT_GT(each.word(0), each.word(1));            // Resident, and of that
        EXPECT_GT(each.word(1), 0U);                      // private.
        EXPECT_EQ(each.word(2), std::uint64_t{5} << 30);  // Heap.
        EXPECT_EQ(each.word(3), each.timeNs);             // The other clock.
    }
    EXPECT_EQ(times, (std::vector<std::uint64_t>{5 * kSecondNs + 900000000, 6 * kSecondNs,
                                                 60 * kSecondNs}));
}

TEST(WriterTest, TheOldestIsOverwrittenAndTheNewestKept) {
    constexpr std::uint64_t kMarks = 10000;
    OwnRecording recording(50);

    for (std::uint64_t i = 1; i <= kMarks; ++i) record::mark("m", static_cast<std::int64_t>(i));

    const test::trace::Recording read = recording.read();
    const std::vector<std::uint64_t> values = marksByThread(read).begin()->second;
    EXPECT_EQ(values.back(), kMarks);
    EXPECT_TRUE(areConsecutive(values));
    EXPECT_GE(values.size(), 49U * 8U);  // Of 24 bytes each, eight in 200; one block is begun anew.
    EXPECT_EQ(read.head.recordsLost, 0U);
}

TEST(WriterTest, TenThousandThreadsInTurnDoNotWearItOut) {
    constexpr int kThreads = 10000;
    constexpr std::uint32_t kBlocks = 54;  // As many as 16 KiB hold.
    OwnRecording recording(kBlocks);

    for (int i = 0; i < kThreads; ++i) {
        std::thread([i] {
            (void)pthread_setname_np(pthread_self(), ("run " + std::to_string(i)).c_str());
            record::mark("begun", i);
            record::mark("ended", i);
        }).join();
    }

    const test::trace::Recording read = recording.read();
    EXPECT_EQ(read.head.recordsLost, 0U);
    EXPECT_EQ(read.threads.size(), kBlocks);
    // The last ones, each with its own name and both of its records.
    std::uint32_t number = kThreads - kBlocks;
    for (const auto& [thread, values] : marksByThread(read)) {
        EXPECT_EQ(thread, number + 1);
        EXPECT_EQ(read.threads.at(thread).name, "run " + std::to_string(number));
        EXPECT_EQ(values, (std::vector<std::uint64_t>{number, number}));
        ++number;
    }
    EXPECT_EQ(number, kThreads);
}

TEST(WriterTest, AThreadsBlocksAreCountedAnewInEachRecording) {
    for (int i = 0; i < 2; ++i) {
        const OwnRecording recording(4);
        for (int mark = 0; mark < 20; ++mark) record::mark("m", mark);

        for (std::uint32_t block = 0; block < 2; ++block) {
            record::BlockHead head = {};
            std::memcpy(&head, recording.blocks() + std::size_t{block} * 256, sizeof(head));
            EXPECT_EQ(head.threadBlock, block);
        }
    }
}

TEST(WriterTest, TheFirstBlockIsNumberOneOfItsThread) {
    const OwnRecording recording(4);

    record::mark("m", 0);

    record::BlockHead head = {};
    std::memcpy(&head, recording.blocks(), sizeof(head));
    EXPECT_EQ(head.sequence, 1U);
    EXPECT_EQ(head.kernelId, static_cast<std::uint32_t>(syscall(SYS_gettid)));
}

TEST(WriterTest, AThreadsLastNameIsKept) {
    OwnRecording recording(50);

    std::thread([] {
        (void)pthread_setname_np(pthread_self(), "first name");
        record::mark("m", 0);
        (void)pthread_setname_np(pthread_self(), "last name");
    }).join();

    EXPECT_EQ(recording.read().threads.at(1).name, "last name");
}

TEST(WriterTest, AQuietThreadKeepsWhatItDidLast) {
    OwnRecording recording(50);
    test::Event isQuiet;
    test::Event end;
    std::thread quiet([&] {
        for (int i = 1; i <= 3; ++i) record::mark("quiet", i);
        isQuiet.set();
        EXPECT_TRUE(end.wait());
    });
    EXPECT_TRUE(isQuiet.wait());

    for (int i = 0; i < 10000; ++i) record::mark("busy", i);
    end.set();
    quiet.join();

    EXPECT_EQ(marksByThread(recording.read()).at(1), (std::vector<std::uint64_t>{1, 2, 3}));
}

TEST(WriterTest, AThreadThatHasEndedKeepsNothingFromBeingOverwritten) {
    OwnRecording recording(50);
    std::thread([] { record::mark("ended", 1); }).join();

    for (int i = 0; i < 10000; ++i) record::mark("busy", i);

    EXPECT_EQ(marksByThread(recording.read()).count(1), 0U);
}

TEST(WriterTest, MoreThreadsThanBlocksRecordInTurn) {
    constexpr int kThreads = 40;
    constexpr int kRounds = 20;
    OwnRecording recording(8);
    std::vector<std::unique_ptr<test::Event>> turns;
    for (int i = 0; i <= kThreads * kRounds; ++i) turns.push_back(std::make_unique<test::Event>());
    turns[0]->set();

    test::runAtOnce(kThreads, [&](int thread) {
        for (int round = 0; round < kRounds; ++round) {
            const auto turn = static_cast<std::size_t>(round * kThreads + thread);
            EXPECT_TRUE(turns[turn]->wait());
            record::mark("turn", static_cast<std::int64_t>(turn));
            turns[turn + 1]->set();
        }
    });

    const test::trace::Recording read = recording.read();
    EXPECT_EQ(read.head.recordsLost, 0U);
    std::vector<std::uint64_t> values;
    for (const auto& each : test::withoutMemory(read)) values.push_back(each.word(0));
    ASSERT_FALSE(values.empty());
    EXPECT_EQ(values.back(), kThreads * kRounds - 1U);
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
}

TEST(WriterTest, ManyThreadsAtOnceEachKeepTheirOrder) {
    constexpr int kThreads = 8;
    constexpr int kMarks = 20000;
    OwnRecording recording(64);

    test::runAtOnce(kThreads, [](int) {
        for (int i = 0; i < kMarks; ++i) record::mark("m", i);
    });

    const test::trace::Recording read = recording.read();
    const auto marks = marksByThread(read);
    EXPECT_FALSE(marks.empty());
    for (const auto& [thread, values] : marks) {
        EXPECT_TRUE(std::is_sorted(values.begin(), values.end())) << thread;
    }
}

/// The second one is lost, for it begins within the first.
void markWithinAMark() {
    const test::RunAtCall interrupt(test::Call::ClockGettime, [] { record::mark("inside", 0); });
    record::mark("interrupted", 0);
}

TEST(WriterTest, WhatInterruptsARecordIsLostAndCounted) {
    OwnRecording recording(50);
    record::mark("before", 0);
    markWithinAMark();
    record::mark("after", 0);

    const test::trace::Recording read = recording.read();
    EXPECT_EQ(
        test::sentences(read),
        (std::vector<std::string>{"mark 'before' 0", "mark 'interrupted' 0", "mark 'after' 0"}));
    EXPECT_EQ(read.head.recordsLost, 1U);
}

TEST(WriterTest, TheCountOfLostRecordsIsThereBeforeTheEnd) {
    OwnRecording recording(4);
    markWithinAMark();
    for (int i = 0; i < 20; ++i) record::mark("m", i);  // Into the next block.

    test::trace::Recording read;
    std::string error;
    EXPECT_TRUE(test::trace::readRecording(recording.bytes(), &read, &error)) << error;

    EXPECT_EQ(read.head.recordsLost, 1U);
}

TEST(WriterTest, EachRecordingBeginsAnew) {
    for (int i = 0; i < 2; ++i) {
        OwnRecording recording(8);
        markWithinAMark();
        std::thread([] { record::mark("m", 0); }).join();

        const test::trace::Recording read = recording.read();
        EXPECT_EQ(read.head.recordsLost, 1U);
        std::vector<std::uint32_t> threads;
        bool hasMemory = false;
        for (const auto& [number, thread] : read.threads) threads.push_back(number);
        for (const auto& each : read.records) hasMemory |= each.kind == record::Kind::Memory;
        EXPECT_EQ(threads, (std::vector<std::uint32_t>{1, 2}));
        EXPECT_TRUE(hasMemory);
    }
}

TEST(WriterTest, IsNoCancellationPoint) {
    OwnRecording recording(50);
    void* p_result = nullptr;
    pthread_t thread;
    const auto run = [](void*) -> void* {
        (void)pthread_cancel(pthread_self());
        for (int i = 0; i < 100; ++i) record::mark("m", i);  // A memory sample among them.
        record::mark("got here", 0);
        pthread_testcancel();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, nullptr, run, nullptr), 0);
    ASSERT_EQ(pthread_join(thread, &p_result), 0);

    EXPECT_EQ(p_result, PTHREAD_CANCELED);
    EXPECT_EQ(test::sentences(recording.read()).back(), "mark 'got here' 0");
}

TEST(WriterTest, CancelledThreadsHandTheirBlocksBack) {
    constexpr int kThreads = 200;
    OwnRecording recording(8);

    for (int i = 0; i < kThreads; ++i) {
        pthread_t thread;
        const auto run = [](void*) -> void* {
            for (;;) {
                record::mark("m", 0);
                pthread_testcancel();
            }
        };
        ASSERT_EQ(pthread_create(&thread, nullptr, run, nullptr), 0);
        (void)pthread_cancel(thread);
        ASSERT_EQ(pthread_join(thread, nullptr), 0);
    }
    record::mark("last", 0);

    const test::trace::Recording read = recording.read();
    EXPECT_EQ(read.head.recordsLost, 0U);
    EXPECT_EQ(test::sentences(read).back(), "mark 'last' 0");
}

TEST(WriterTest, OpensAndClosesUnderThreadsThatRecord) {
    constexpr int kTimes = 200;
    std::atomic<bool> isOver{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; !isOver.load(std::memory_order_relaxed); ++n) {
                if (record::isOn()) record::mark("m", n);
            }
        });
    }

    for (int i = 0; i < kTimes; ++i) {
        OwnRecording recording(i % 2 == 0 ? 8 : 500, i % 3 == 0 ? 256 : 1024);
        record::mark("own", i);
        for (const auto& [thread, values] : marksByThread(recording.read())) {
            EXPECT_TRUE(std::is_sorted(values.begin(), values.end())) << thread;
        }
    }
    isOver = true;
    for (std::thread& thread : threads) thread.join();
}

TEST(WriterTest, WhatComesAfterTheEndIsNotRecorded) {
    OwnRecording recording(8);
    record::mark("in time", 0);
    recording.close();
    record::mark("too late", 0);  // As by a thread that had asked isOn() before.

    EXPECT_FALSE(record::isOn());
    EXPECT_EQ(test::sentences(recording.read()), std::vector<std::string>{"mark 'in time' 0"});
}

// A thread that stands still in the middle of a record, where it first touches the page that holds
// an address, for as long as the test wants.
class StuckWriter {
public:
    explicit StuckWriter(std::byte* p_at) : m_page(pageOf(p_at)) {
        (void)sem_init(&s_isStuck, 0, 0);
        (void)sem_init(&s_release, 0, 0);
        struct sigaction action = {};
        action.sa_handler = [](int) {
            (void)sem_post(&s_isStuck);
            while (sem_wait(&s_release) != 0) {
            }
        };
        (void)sigaction(SIGSEGV, &action, &m_before);
        (void)mprotect(m_page, kPageBytes, PROT_NONE);
        m_thread = std::thread([] { record::mark("stuck", 0); });
        while (sem_wait(&s_isStuck) != 0) {
        }
        (void)mprotect(m_page, kPageBytes, PROT_READ | PROT_WRITE);
    }
    ~StuckWriter() { release(); }

    StuckWriter(const StuckWriter&) = delete;
    StuckWriter& operator=(const StuckWriter&) = delete;

    void release() {
        if (!m_thread.joinable()) return;
        (void)sem_post(&s_release);
        m_thread.join();
        (void)sigaction(SIGSEGV, &m_before, nullptr);
    }

    static constexpr std::size_t kPageBytes = 4096;

private:
    static void* pageOf(std::byte* p_in) {
        return reinterpret_cast<void*>(reinterpret_cast<std::uintptr_t>(p_in) & ~(kPageBytes - 1));
    }

    static inline sem_t s_isStuck;
    static inline sem_t s_release;
    void* const m_page;
    struct sigaction m_before = {};
    std::thread m_thread;
};

TEST(WriterTest, IsNotClosedWhileAThreadStandsStillInARecord) {
    OwnRecording first(8);
    StuckWriter stuck(first.blocks());

    EXPECT_FALSE(record::closeBlocks());
    EXPECT_FALSE(record::openBlocks({}));
    stuck.release();

    EXPECT_EQ(test::sentences(first.read()), std::vector<std::string>{"mark 'stuck' 0"});
}

// In the destructor of a key that is later than the recorder's own.
TEST(WriterTest, AThreadThatNeverHadABlockMayRecordAtItsEnd) {
    OwnRecording recording(1);
    StuckWriter stuck(recording.blocks());
    pthread_key_t key = 0;
    ASSERT_EQ(pthread_key_create(&key, [](void*) { record::mark("at the end", 0); }), 0);

    std::thread([&] {
        record::mark("lost", 0);
        (void)pthread_setspecific(key, &key);
    }).join();
    stuck.release();

    const test::trace::Recording read = recording.read();
    EXPECT_GE(read.head.recordsLost, 2U);  // And a sample of the memory, at times.
    EXPECT_EQ(test::sentences(read), std::vector<std::string>{"mark 'stuck' 0"});
    (void)pthread_key_delete(key);
}

TEST(WriterTest, WithoutAKeyOfItsOwnItLeavesThoseOfOthersAlone) {
    EXPECT_HOLDS_IN_FRESH_PROCESS([] {
        std::vector<pthread_key_t> keys;
        for (pthread_key_t key = 0; pthread_key_create(&key, nullptr) == 0;) keys.push_back(key);
        const auto values = [] {
            std::vector<void*> found;
            for (pthread_key_t key = 0; key < PTHREAD_KEYS_MAX; ++key) {
                found.push_back(pthread_getspecific(key));
            }
            return found;
        };
        OwnRecording recording(4);
        const std::vector<void*> before = values();

        record::mark("m", 0);

        EXPECT_EQ(values(), before);
        EXPECT_EQ(test::sentences(recording.read()), std::vector<std::string>{"mark 'm' 0"});
    });
}

/// One block over several pages, with the marks 0 to 9 of a thread that has ended: the next thread
/// has to reuse it.
class ReusedBlockTest : public testing::Test {
protected:
    ReusedBlockTest() : m_recording(1, kBlockBytes) {
        std::thread([] {
            for (int i = 0; i < 10; ++i) record::mark("m", i);
        }).join();
    }

    /// What is read of the recording as it stands.
    test::trace::Recording read() const {
        test::trace::Recording recording;
        std::string error;
        EXPECT_TRUE(test::trace::readRecording(m_recording.bytes(), &recording, &error)) << error;
        return recording;
    }

    static constexpr std::uint32_t kBlockBytes = 2 * StuckWriter::kPageBytes;
    OwnRecording m_recording;
};

TEST_F(ReusedBlockTest, StandsAsItWasUntilItsEndIsMarked) {
    StuckWriter stuck(m_recording.blocks() + kBlockBytes - sizeof(record::BlockTail));

    const test::trace::Recording before = read();

    EXPECT_EQ(before.unreadableBlocks, 0U);
    EXPECT_EQ(test::withoutMemory(before).size(), 10U);
    stuck.release();
    EXPECT_EQ(test::sentences(m_recording.read()), std::vector<std::string>{"mark 'stuck' 0"});
}

TEST_F(ReusedBlockTest, IsUnreadableOnceItsEndIsMarked) {
    StuckWriter stuck(m_recording.blocks());

    const test::trace::Recording between = read();

    EXPECT_EQ(between.unreadableBlocks, 1U);
    EXPECT_EQ(between.records.size(), 0U);
    stuck.release();
    EXPECT_EQ(test::sentences(m_recording.read()), std::vector<std::string>{"mark 'stuck' 0"});
}

TEST(WaitScopeTest, RecordsALongWaitAndNoShortOne) {
    OwnRecording recording(8);
    const int object = 0;
    {
        ManualClock clock(5 * kSecondNs);
        {
            const record::WaitScope scope(record::Wait::Stop, &object, 4321);
            clock.advance(record::kLongWaitNs);
        }
        {
            const record::WaitScope scope(record::Wait::Stop, &object, 4321);
            clock.advance(record::kLongWaitNs + 1);
        }
    }

    const auto records = test::withoutMemory(recording.read());
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].kind, record::Kind::Waited);
    EXPECT_EQ(records[0].word(0), reinterpret_cast<std::uintptr_t>(&object));
    EXPECT_EQ(records[0].low(1), static_cast<std::int32_t>(record::Wait::Stop));
    EXPECT_EQ(records[0].high(1), 4321);
    EXPECT_EQ(records[0].word(2), record::kLongWaitNs + 1);
}

/// Locked by somebody, until it is waited for.
class ContendedMutex {
public:
    explicit ContendedMutex(std::function<void()> whileWaiting)
        : m_whileWaiting(std::move(whileWaiting)) {}
    bool try_lock() { return false; }
    void lock() {
        m_whileWaiting();
        ++m_locked;
    }
    [[nodiscard]] int locked() const { return m_locked; }

private:
    const std::function<void()> m_whileWaiting;
    int m_locked = 0;
};

TEST(WaitScopeTest, RecordsALongWaitForALock) {
    const int object = 0;
    OwnRecording recording(8);
    {
        ManualClock clock(5 * kSecondNs);
        ContendedMutex mutex([&] { clock.advance(2 * record::kLongWaitNs); });
        record::lockRecorded(mutex, &object);
        EXPECT_EQ(mutex.locked(), 1);
        recording.close();
        record::lockRecorded(mutex, &object);  // Recorded no more.
        EXPECT_EQ(mutex.locked(), 2);
    }

    const auto records = test::withoutMemory(recording.read());
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].kind, record::Kind::Waited);
    EXPECT_EQ(records[0].word(2), 2 * record::kLongWaitNs);
}

/// Takes a mutex that another thread holds for @p ns.
void waitForMutex(tevalon::base::AnnotatedMutex* p_mutex, std::uint64_t ns, bool isRecording) {
    test::Event isHeld;
    test::Event mayGo;
    std::thread holder([&] {
        const std::lock_guard<std::mutex> lock(p_mutex->native());
        isHeld.set();
        (void)mayGo.wait();
    });
    EXPECT_TRUE(isHeld.wait());
    {
        ManualClock clock(5 * kSecondNs);
        const test::RunAtCall wait(
            test::Call::PthreadMutexLock,
            [&] {
                clock.advance(ns);
                mayGo.set();
                holder.join();
            },
            test::When().on(p_mutex->native().native_handle()));
        const tevalon::base::MutexGuard guard(*p_mutex, isRecording);
        EXPECT_EQ(wait.hits(), 1);
    }
}

TEST(WaitScopeTest, ALockThatIsFreeAsksNoClock) {
    const OwnRecording recording(8);
    std::mutex mutex;
    const test::CountCalls readings(test::Call::ClockGettime);

    record::lockRecorded(mutex, &mutex);

    EXPECT_EQ(readings.seen(), 0);
    mutex.unlock();
}

TEST(WaitScopeTest, OfAMutexItIsRecordedWhereTheCallerSaysSo) {
    tevalon::base::AnnotatedMutex mutex;
    OwnRecording recording(8);

    waitForMutex(&mutex, 2 * record::kLongWaitNs, false);
    waitForMutex(&mutex, 3 * record::kLongWaitNs, true);

    const auto records = test::withoutMemory(recording.read());
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].kind, record::Kind::Waited);
    EXPECT_EQ(records[0].word(0), reinterpret_cast<std::uintptr_t>(&mutex));
    EXPECT_EQ(records[0].low(1), static_cast<std::int32_t>(record::Wait::Lock));
    EXPECT_EQ(records[0].word(2), 3 * record::kLongWaitNs);
}

}  // namespace
