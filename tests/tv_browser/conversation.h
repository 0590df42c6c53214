// conversation.h: talks to a running process, answer by answer.

#ifndef TESTS_TV_BROWSER_CONVERSATION_H
#define TESTS_TV_BROWSER_CONVERSATION_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace test {

/// A process whose standard input and output are pipes to the test. Its log is switched off.
/// Belongs to one thread.
class Conversation {
public:
    /// Starts the process.
    explicit Conversation(const std::vector<std::string>& arguments);
    /// Ends what end() has not.
    ~Conversation();

    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    /// Writes @p text to its standard input.
    void say(const std::string& text);

    /// Reads until the output since the last hear() holds @p part, and returns that output; ""
    /// when it ended, or said nothing for half a minute, before that.
    std::string hear(const std::string& part);

    /// Closes its standard input, waits for its end, and returns its status; -1 for a signal.
    int end();

private:
    void closeInput();

    pid_t m_child = -1;
    int m_toChild = -1;
    int m_fromChild = -1;
};

}  // namespace test

#endif  // TESTS_TV_BROWSER_CONVERSATION_H
