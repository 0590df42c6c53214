// child_process.h: runs a program to its end and keeps what it wrote.

#ifndef TESTS_SUPPORT_CHILD_PROCESS_H
#define TESTS_SUPPORT_CHILD_PROCESS_H

#include <string>
#include <utility>
#include <vector>

namespace test {

struct ChildResult {
    int exitStatus = -1;  ///< -1 when a signal ended it.
    int signal = 0;       ///< The signal that ended it, or 0.
    std::string output;   ///< Its standard output.
    std::string errors;   ///< Its standard error.
};

/// A program to be run. Belongs to one thread.
class ChildProcess {
public:
    /// @param arguments  The program's path and what it is called with.
    explicit ChildProcess(std::vector<std::string> arguments) : m_arguments(std::move(arguments)) {}

    /// Sets a variable of its environment, which is otherwise ours.
    ChildProcess& variable(const std::string& name, const std::string& value);
    /// What it reads from its standard input; nothing by default.
    ChildProcess& input(std::string text);

    /// Starts it and waits for its end. A child that does not end is killed after a minute.
    ChildResult run() const;

private:
    std::vector<std::string> m_arguments;
    std::vector<std::pair<std::string, std::string>> m_variables;
    std::string m_input;
};

}  // namespace test

#endif  // TESTS_SUPPORT_CHILD_PROCESS_H
