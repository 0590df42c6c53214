// libtevalon-record.so in a program that knows nothing of it.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "diagnostics/recordings.h"
#include "ends/forked_child.h"
#include "support/child_process.h"
#include "support/scratch_folder.h"

namespace {

using Lines = std::vector<std::string>;

/// A sanitizer has a handler for faults that tells of them, and wants to be loaded first.
void withoutSanitizersHandlers(test::ChildProcess* p_process) {
    for (const char* const name : {"ASAN_OPTIONS", "TSAN_OPTIONS"}) {
        const char* const p_options = std::getenv(name);
        p_process->variable(
            name, std::string(p_options != nullptr ? p_options : "") +
                      " handle_segv=0 handle_sigbus=0 handle_abort=0 use_sigaltstack=0 "
                      "report_thread_leaks=0 atexit_sleep_ms=50" +
                      (std::string(name) == "ASAN_OPTIONS" ? " verify_asan_link_order=0" : ""));
    }
}

class RecordPreloadTest : public testing::Test {
protected:
    test::ChildProcess client(const std::vector<std::string>& arguments) const {
        std::vector<std::string> command = {TEVALON_TEST_CLIENT};
        command.insert(command.end(), arguments.begin(), arguments.end());
        test::ChildProcess process(command);
        withoutSanitizersHandlers(&process);
        process.variable("LD_PRELOAD", TEVALON_TEST_PRELOAD)
            .variable("TEVALON_RECORD_FILE", m_path)
            .variable("TEVALON_RECORD_SIGNAL", "USR2");
        return process;
    }

    std::string contents(const std::string& ending) const {
        return test::contentsOf(m_path + ending);
    }
    Lines sentences(const std::string& ending = "") const {
        return test::sentences(test::readFile(m_path + ending));
    }
    /// The names of all files that are there.
    Lines files() const {
        Lines names;
        for (const auto& entry : std::filesystem::directory_iterator(m_folder.path())) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    const test::ScratchFolder m_folder;
    const std::string m_path = m_folder.path("tv");
    const std::string m_state = "state of the client, thread 'tevalon-record'\n";
    const std::string m_stateAtExit = "state of the client, thread 'preload-client'\n";
};

void expectSilentDeath(const test::ChildResult& result, int signal) {
    EXPECT_EQ(result.signal, signal);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "");
}

void expectSilentExit(const test::ChildResult& result) {
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "");
}

TEST_F(RecordPreloadTest, LeavesRecordingAndStateAtExit) {
    expectSilentExit(client({"return"}).run());

    const test::trace::Recording read = test::readFile(m_path);
    EXPECT_EQ(test::sentences(read), Lines{"mark 'return' 42"});
    EXPECT_NE(read.head.stopMonotonicNs, 0U);
    EXPECT_EQ(contents(".state"), m_stateAtExit);
    EXPECT_EQ(files(), (Lines{"tv", "tv.state"}));
    for (const char* const ending : {"", ".state"}) {
        struct stat file = {};
        ASSERT_EQ(stat((m_path + ending).c_str(), &file), 0);
        EXPECT_EQ(file.st_mode, static_cast<mode_t>(S_IFREG | S_IRUSR | S_IWUSR));
    }
}

TEST_F(RecordPreloadTest, LeavesTheRecordingOfAKilledProcess) {
    expectSilentDeath(client({"kill"}).run(), SIGKILL);

    EXPECT_EQ(sentences(), Lines{"mark 'kill' 42"});
    EXPECT_EQ(files(), Lines{"tv"});
}

TEST_F(RecordPreloadTest, LeavesTheRecordingOfAProcessThatEndsAtOnce) {
    expectSilentExit(client({"_exit"}).run());

    EXPECT_EQ(sentences(), Lines{"mark '_exit' 42"});
    EXPECT_EQ(files(), Lines{"tv"});
}

struct Death {
    const char* end;
    int signal;
};

class RecordPreloadDeathTest : public RecordPreloadTest,
                               public testing::WithParamInterface<Death> {};

TEST_P(RecordPreloadDeathTest, LeavesRecordingAndStateAndDiesAsEver) {
    expectSilentDeath(client({GetParam().end}).run(), GetParam().signal);

    EXPECT_EQ(sentences(), Lines{"mark '" + std::string(GetParam().end) + "' 42"});
    EXPECT_EQ(contents(".state"), m_state);
    EXPECT_EQ(files(), (Lines{"tv", "tv.state"}));
}

INSTANTIATE_TEST_SUITE_P(Of, RecordPreloadDeathTest,
                         testing::Values(Death{"fault", SIGSEGV},
                                         Death{"fault on a thread", SIGSEGV},
                                         Death{"overflow", SIGSEGV},
                                         Death{"overflow on a thread", SIGSEGV},
                                         Death{"abort", SIGABRT}, Death{"sent fault", SIGSEGV}),
                         [](const auto& death) {
                             std::string name = death.param.end;
                             name.erase(std::remove(name.begin(), name.end(), ' '), name.end());
                             return name;
                         });

TEST_F(RecordPreloadTest, CallsTheHandlerThatWasThere) {
    const test::ChildResult result = client({"handled fault"}).run();

    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_EQ(result.output, "the handler that was there\n");
    EXPECT_EQ(contents(".state"), m_state);
}

TEST_F(RecordPreloadTest, CallsTheHandlerThatWasThereWithWhatItWantsToKnow) {
    const test::ChildResult result = client({"handled fault with information"}).run();

    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_EQ(result.output, "the handler that was there\n");
    EXPECT_EQ(contents(".state"), m_state);
}

TEST_F(RecordPreloadTest, AFaultEndsTheProcessThoughItIsIgnoredAndASentOneDoesNot) {
    expectSilentDeath(client({"handled fault, ignored"}).run(), SIGSEGV);
    EXPECT_EQ(contents(".state"), m_state);
    const test::ChildResult result =
        client({"handled sent fault, ignored"}).variable("TEVALON_RECORD_FILE", m_path + "2").run();
    expectSilentExit(result);
    EXPECT_EQ(contents("2.state"), m_state + m_stateAtExit);
}

TEST_F(RecordPreloadTest, LeavesTheStackOfAThreadsOwnAlone) {
    expectSilentExit(client({"own stack"}).run());
    expectSilentExit(client({"own stack from the start"}).run());
}

TEST_F(RecordPreloadTest, AThreadThatIsRefusedIsRefusedAsEver) {
    expectSilentExit(client({"refused thread"}).run());
}

TEST_F(RecordPreloadTest, AForkedChildHasThreadsAndNoCopies) {
    SKIP_WITHOUT_THREADS_IN_CHILDREN();
    expectSilentExit(client({"child"}).run());

    EXPECT_EQ(files(), (Lines{"tv", "tv.state"}));
}

TEST_F(RecordPreloadTest, FilesThatAreThereAlreadyAreLeftAlone) {
    (void)m_folder.file("tv.state", "another state");
    (void)m_folder.file("tv.1", "another copy");
    (void)m_folder.file("tv.2.state", "another state of a copy");

    expectSilentExit(client({"two copies", m_path + ".1.state", m_path + ".2"}).run());

    EXPECT_EQ(contents(".state"), "another state");
    EXPECT_EQ(contents(".1"), "another copy");
    EXPECT_EQ(contents(".1.state"), m_state);
    EXPECT_EQ(contents(".2.state"), "another state of a copy");
}

TEST_F(RecordPreloadTest, WaitsTwoSecondsForAReportAndNoLonger) {
    const test::ChildResult result = client({"fault"}).variable("CLIENT_STATE_HANGS", "1").run();

    expectSilentDeath(result, SIGSEGV);
    EXPECT_EQ(sentences(), Lines{"mark 'fault' 42"});
    EXPECT_EQ(contents(".state"), "");
}

TEST_F(RecordPreloadTest, CopiesOnTheSignal) {
    expectSilentExit(client({"two copies", m_path + ".1.state", m_path + ".2.state"}).run());

    EXPECT_EQ(sentences(".1"), Lines{"mark 'two copies' 42"});
    EXPECT_EQ(sentences(".2"), (Lines{"mark 'two copies' 42", "mark 'between' 0"}));
    EXPECT_EQ(contents(".1.state"), m_state);
    EXPECT_EQ(contents(".2.state"), m_state);
    EXPECT_EQ(contents(".state"), m_stateAtExit);
    EXPECT_EQ(files(), (Lines{"tv", "tv.1", "tv.1.state", "tv.2", "tv.2.state", "tv.state"}));
}

TEST_F(RecordPreloadTest, CallsTheHandlerThatWasThereForTheSignal) {
    const test::ChildResult result = client({"handled copy", m_path + ".1.state"}).run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "the handler that was there\n");
    EXPECT_EQ(sentences(".1"), Lines{"mark 'handled copy' 42"});
}

TEST_F(RecordPreloadTest, LetsThreadsBeCancelled) {
    expectSilentExit(client({"cancelled threads"}).run());
}

TEST_F(RecordPreloadTest, AForkedChildDiesWithoutAReport) {
    expectSilentExit(client({"fork"}).run());

    EXPECT_EQ(sentences(), (Lines{"mark 'fork' 42", "mark 'after the child' 0"}));
    EXPECT_EQ(contents(".state"), m_stateAtExit);
}

TEST_F(RecordPreloadTest, TakesSizeAndProcessIdIntoAccount) {
    expectSilentExit(client({"return"})
                         .variable("TEVALON_RECORD_FILE", m_path + ".%p.%p")
                         .variable("TEVALON_RECORD_BYTES", "1M")
                         .run());

    const Lines names = files();
    ASSERT_EQ(names.size(), 2U);
    const test::trace::Recording read = test::readFile(m_folder.path(names[0]));
    const std::string id = std::to_string(read.head.processId);
    EXPECT_EQ(names[0], "tv." + id + "." + id);
    EXPECT_EQ(names[1], names[0] + ".state");
    EXPECT_EQ(read.head.blockBytes, 4096U);  // Of a recording of so many bytes.
}

TEST_F(RecordPreloadTest, LeavesAnEarlierRecordingAsItIs) {
    (void)m_folder.file("tv", "an earlier one");

    expectSilentExit(client({"return"}).run());

    EXPECT_EQ(contents(""), "an earlier one");
    const Lines names = files();
    ASSERT_EQ(names.size(), 3U);
    const test::trace::Recording read = test::readFile(m_folder.path(names[1]));
    EXPECT_EQ(names[1], "tv." + std::to_string(read.head.processId));
    EXPECT_EQ(test::sentences(read), Lines{"mark 'return' 42"});
}

TEST_F(RecordPreloadTest, TellsOfSettingsThatItCannotUse) {
    const test::ChildResult result = client({"return"})
                                         .variable("TEVALON_RECORD_BYTES", "256k")
                                         .variable("TEVALON_RECORD_SIGNAL", "11")
                                         .run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors,
              "tevalon-record: TEVALON_RECORD_BYTES: cannot use '256k'; accepted is a number of "
              "bytes from 16K to 1024M; 256K is used\n"
              "tevalon-record: TEVALON_RECORD_SIGNAL: cannot use '11'; accepted are HUP, QUIT, "
              "USR1, USR2 or a signal's number; none is used\n");
    EXPECT_EQ(sentences(), Lines{"mark 'return' 42"});
}

TEST_F(RecordPreloadTest, RefusesSignalsThatNobodyCanHandle) {
    for (const char* const text : {"0", "65", "12x", "x", "USR3", "9", "99999999999999999999"}) {
        const test::ChildResult result = client({"return"})
                                             .variable("TEVALON_RECORD_FILE", m_path + ".%p")
                                             .variable("TEVALON_RECORD_SIGNAL", text)
                                             .run();
        EXPECT_EQ(result.errors, "tevalon-record: TEVALON_RECORD_SIGNAL: cannot use '" +
                                     std::string(text) +
                                     "'; accepted are HUP, QUIT, USR1, USR2 or a signal's number; "
                                     "none is used\n");
    }
    const std::string number = std::to_string(SIGUSR2);
    const test::ChildResult result = client({"handled copy", m_path + ".1.state"})
                                         .variable("TEVALON_RECORD_SIGNAL", number)
                                         .run();
    EXPECT_EQ(result.output, "the handler that was there\n");
    EXPECT_EQ(sentences(".1"), Lines{"mark 'handled copy' 42"});
    expectSilentExit(client({"return"})
                         .variable("TEVALON_RECORD_FILE", m_path + ".%x")
                         .variable("TEVALON_RECORD_SIGNAL", "")
                         .run());
    EXPECT_EQ(sentences(".%x"), Lines{"mark 'return' 42"});
}

TEST_F(RecordPreloadTest, RefusesNamesThatAreTooLong) {
    const test::ChildResult result =
        client({"return"}).variable("TEVALON_RECORD_FILE", std::string(5000, 'x')).run();

    EXPECT_EQ(result.exitStatus, 0);
    const std::string begin =
        "tevalon-record: TEVALON_RECORD_FILE: the name is too long; /tmp/tevalon-recording.";
    ASSERT_EQ(result.errors.substr(0, begin.size()), begin);
    const std::string id =
        result.errors.substr(begin.size(), result.errors.find(' ', begin.size()) - begin.size());
    EXPECT_EQ(result.errors, begin + id + " is used\n");
    const std::string used = "/tmp/tevalon-recording." + id;
    EXPECT_EQ(test::sentences(test::readFile(used)), Lines{"mark 'return' 42"});
    EXPECT_EQ(unlink(used.c_str()), 0);
    EXPECT_EQ(unlink((used + ".state").c_str()), 0);
}

TEST_F(RecordPreloadTest, TellsWhyNothingIsRecorded) {
    const std::string nowhere = m_folder.path("none/tv");
    const test::ChildResult result =
        client({"return"}).variable("TEVALON_RECORD_FILE", nowhere).run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "tevalon-record: cannot open '" + nowhere +
                                 "': No such file or directory; nothing is recorded\n");
    EXPECT_EQ(files(), Lines{});
}

TEST_F(RecordPreloadTest, TellsOfEveryAnswerOfTheRecorder) {
    using tevalon::base::diagnostics::Status;
    const std::string none = "; nothing is recorded\n";
    const struct {
        Status status;
        std::string line;
    } kAnswers[] = {
        {Status::FileExists, "'" + m_path + "\\.[0-9]+' is there already" + none},
        {Status::NoRoom, "no room for 262144 bytes in '" + m_path + "'" + none},
        {Status::AlreadyRecording, "the program records already; its own recording goes on\n"},
        {Status::NoMemory, "no memory for 262144 bytes" + none},
    };
    for (const auto& answer : kAnswers) {
        const test::ChildResult result =
            client({"return"})
                .variable("CLIENT_START_ANSWERS", std::to_string(static_cast<int>(answer.status)))
                .run();
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_TRUE(std::regex_match(result.errors, std::regex("tevalon-record: " + answer.line)))
            << result.errors;
    }
    EXPECT_EQ(files(), Lines{});
}

TEST_F(RecordPreloadTest, WithoutANameTheRecordingIsInTheTemporaryFolder) {
    const test::ChildResult result =
        client({"process id"}).variable("TEVALON_RECORD_FILE", "").run();

    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    const std::string used = "/tmp/tevalon-recording." + result.output;
    EXPECT_EQ(test::sentences(test::readFile(used)), Lines{"mark 'process id' 42"});
    EXPECT_EQ(test::contentsOf(used + ".state"), m_stateAtExit);
    EXPECT_EQ(unlink(used.c_str()), 0);
    EXPECT_EQ(unlink((used + ".state").c_str()), 0);
}

/// Where the system refuses something.
class RecordPreloadRefusalTest : public RecordPreloadTest {
protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        GTEST_SKIP() << "A sanitizer wants to be first, and stands in front of the same calls.";
#endif
    }
    test::ChildProcess clientWithout(const char* call, const char* end) const {
        test::ChildProcess process = client({end});
        process.variable("LD_PRELOAD", TEVALON_TEST_PRELOAD " " TEVALON_TEST_REFUSALS)
            .variable("REFUSED_CALL", call);
        return process;
    }
};

TEST_F(RecordPreloadRefusalTest, WithoutItsThreadTheRecordingAloneIsThere) {
    for (const char* const call : {"pthread_attr_init", "pthread_create", "new"}) {
        const std::string path = m_folder.path(call);
        expectSilentExit(clientWithout(call, "return").variable("TEVALON_RECORD_FILE", path).run());
        EXPECT_EQ(test::sentences(test::readFile(path)), Lines{"mark 'return' 42"}) << call;
    }
    EXPECT_EQ(files(), (Lines{"new", "pthread_attr_init", "pthread_create"}));
}

TEST_F(RecordPreloadRefusalTest, WithoutAlternateStacksThreadsRunAndDieAsEver) {
    for (const char* const call :
         {"look at stack", "sigaltstack", "look at own stack", "mmap of a stack"}) {
        const std::string path = m_folder.path(call);
        expectSilentExit(
            clientWithout(call, "a thread").variable("TEVALON_RECORD_FILE", path).run());
        EXPECT_EQ(test::sentences(test::readFile(path)), Lines{"mark 'a thread' 42"}) << call;
        expectSilentDeath(clientWithout(call, "fault on a thread")
                              .variable("TEVALON_RECORD_FILE", path + "2")
                              .run(),
                          SIGSEGV);
        EXPECT_EQ(test::contentsOf(path + "2.state"), m_state) << call;
    }
}

TEST_F(RecordPreloadRefusalTest, AProgramWithSpecialRightsIsNotRecorded) {
    expectSilentExit(clientWithout("special rights", "return").run());

    EXPECT_EQ(files(), Lines{});
}

TEST_F(RecordPreloadTest, RefusesSizesAroundTheLimits) {
    for (const char* const text :
         {"16383", "15K", "1025M", "-16K", " 16K", "16KB", "K", "99999999999999999999"}) {
        const test::ChildResult result = client({"return"})
                                             .variable("TEVALON_RECORD_FILE", m_path + ".%p")
                                             .variable("TEVALON_RECORD_BYTES", text)
                                             .run();
        EXPECT_EQ(result.errors, "tevalon-record: TEVALON_RECORD_BYTES: cannot use '" +
                                     std::string(text) +
                                     "'; accepted is a number of bytes from 16K to 1024M; 256K "
                                     "is used\n");
    }
    expectSilentExit(client({"return"}).variable("TEVALON_RECORD_BYTES", "16384").run());
}

}  // namespace
