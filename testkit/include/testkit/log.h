// log.h: what was logged while a test ran, and GoogleMock matchers for it.

#ifndef TESTKIT_LOG_H
#define TESTKIT_LOG_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "testkit/log_messages.h"

namespace tevalon::testkit {

/// A line of the log, as it was written: one that comes in pieces is put together.
struct LogLine {
    std::uint16_t level;   ///< As its writer last asked for: 1000 is an error.
    std::uint16_t module;  ///< Likewise.
    std::string text;      ///< With its line end.
};

/// Collects all that the process logs while it lives, by tevalon-base, the modules and the test
/// itself, instead of the debug-output library, whichever that is. At most one at a time.
///
///     const tevalon::testkit::CapturedLog log;
///     module.start();
///     EXPECT_THAT(log, LoggedNoError());
///     EXPECT_THAT(log, Logged(Message(log_messages::kTaskEmpty)));
///
/// Where such an expectation fails, the log is shown; of more than 500 lines the first and the
/// last. Where the process ends by std::terminate(), abort() or a failed assert() meanwhile, the
/// last 50 lines are written to standard error before that.
///
/// Thread-safety: any thread may log meanwhile, and any thread may call any method.
class CapturedLog {
public:
    /// All levels that there can be.
    static constexpr std::uint16_t kEveryLevel = UINT16_MAX;

    /// Has every level up to @p level on, of every module: 1000 for errors alone.
    explicit CapturedLog(std::uint16_t level = kEveryLevel);
    /// What is logged then goes to the debug-output library again.
    ~CapturedLog();

    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

    /// In the order in which they ended.
    std::vector<LogLine> lines() const;

    /// Forgets all lines.
    void clear();

    /// Blocks until there are @p count lines of @p message, at most half a minute; whether there
    /// are.
    [[nodiscard]] bool waitFor(const LogMessage& message, std::size_t count = 1) const;
};

/// The lines, each with its level; of more than 500 the first and the last.
void PrintTo(const CapturedLog& log, std::ostream* p_stream);
/// The level and the text.
void PrintTo(const LogLine& line, std::ostream* p_stream);

/// What a line is to be: made by Message() or Text(). A matcher of LogLine.
class LineMatcher {
public:
    /// What makes it one.
    using is_gtest_matcher = void;

    /// A line of @p message; its first values, as they stand in the line, are @p values.
    LineMatcher(const LogMessage& message, std::vector<std::string> values)
        : m_message(&message), m_texts(std::move(values)) {}
    /// A line that contains @p part.
    explicit LineMatcher(std::string part) : m_texts{std::move(part)} {}

    /// Whether @p line is one.
    bool matches(const LogLine& line) const;

    /// @{
    /// As GoogleMock wants it.
    bool MatchAndExplain(const LogLine& line, std::ostream*) const { return matches(line); }
    void DescribeTo(std::ostream* p_stream) const;
    void DescribeNegationTo(std::ostream* p_stream) const;
    /// @}

private:
    void describe(bool isWanted, std::ostream* p_stream) const;

    const LogMessage* m_message = nullptr;  // Null where m_texts is a part of the line.
    std::vector<std::string> m_texts;
};

/// A line of that message of the catalogue. Values that are given are compared with the first of
/// those that the line has where the message has "%s", "%d" and the like.
///
///     EXPECT_THAT(log, Logged(Message(log_messages::kTimerNotStarted, "channel timeout")));
template <typename... Values>
LineMatcher Message(const LogMessage& message, const Values&... values) {
    return LineMatcher(
        message, {static_cast<std::ostringstream&&>(std::ostringstream() << values).str()...});
}

/// A line that contains @p part, for what modules log themselves.
inline LineMatcher Text(std::string part) {
    return LineMatcher(std::move(part));
}

/// What a whole log is to be. A matcher of CapturedLog, made by the functions below.
class LogMatcher {
public:
    /// What makes it one.
    using is_gtest_matcher = void;

    /// How the lines are compared.
    enum class Kind {
        NoError,  ///< None has the level of an error.
        Times,    ///< So many match.
        AtLeast,  ///< So many match, or more.
        InOrder   ///< For each matcher one matches, in this order; others may stand between.
    };

    /// @param kind      How.
    /// @param lines     What lines.
    /// @param count     For Times and AtLeast.
    LogMatcher(Kind kind, std::vector<LineMatcher> lines, std::size_t count = 0)
        : m_kind(kind), m_lines(std::move(lines)), m_count(count) {}

    /// @{
    /// As GoogleMock wants it.
    bool MatchAndExplain(const CapturedLog& log, std::ostream* p_explanation) const;
    void DescribeTo(std::ostream* p_stream) const;
    void DescribeNegationTo(std::ostream* p_stream) const;
    /// @}

private:
    void describe(bool isWanted, std::ostream* p_stream) const;

    const Kind m_kind;
    const std::vector<LineMatcher> m_lines;
    const std::size_t m_count;
};

/// No error was logged.
inline LogMatcher LoggedNoError() {
    return {LogMatcher::Kind::NoError, {}};
}
/// Such a line was logged, once or more often.
inline LogMatcher Logged(LineMatcher line) {
    return {LogMatcher::Kind::AtLeast, {std::move(line)}, 1};
}
/// Exactly @p count such lines were logged.
inline LogMatcher LoggedTimes(std::size_t count, LineMatcher line) {
    return {LogMatcher::Kind::Times, {std::move(line)}, count};
}
/// These lines were logged in this order; others may stand between them.
template <typename... Lines>
LogMatcher LoggedInOrder(Lines... lines) {
    return {LogMatcher::Kind::InOrder, {std::move(lines)...}};
}

}  // namespace tevalon::testkit

#endif  // TESTKIT_LOG_H
