#include "support/child_process.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>

namespace test {
namespace {

constexpr unsigned kLongestRunSeconds = 60;

struct CloseFile {
    void operator()(std::FILE* p_file) const { (void)std::fclose(p_file); }
};

// Files rather than pipes: nobody has to empty them while the child runs.
class ScratchFile {
public:
    ScratchFile() : m_file(std::tmpfile()) {
        if (m_file == nullptr) throw std::runtime_error("no scratch file");
    }

    int descriptor() const { return fileno(m_file.get()); }

    void fill(const std::string& text) {
        (void)std::fwrite(text.data(), 1, text.size(), m_file.get());
        (void)std::fflush(m_file.get());
        std::rewind(m_file.get());
    }

    std::string contents() {
        std::rewind(m_file.get());
        std::string text;
        for (int c = std::fgetc(m_file.get()); c != EOF; c = std::fgetc(m_file.get())) {
            text += static_cast<char>(c);
        }
        return text;
    }

private:
    std::unique_ptr<std::FILE, CloseFile> m_file;
};

std::vector<char*> pointersTo(const std::vector<std::string>& arguments) {
    std::vector<char*> pointers;
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ChildProcess& ChildProcess::variable(const std::string& name, const std::string& value) {
    m_variables.emplace_back(name, value);
    return *this;
}

ChildProcess& ChildProcess::input(std::string text) {
    m_input = std::move(text);
    return *this;
}

ChildResult ChildProcess::run() const {
    ScratchFile input;
    ScratchFile output;
    ScratchFile errors;
    input.fill(m_input);
    const std::vector<char*> arguments = pointersTo(m_arguments);

    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("no child process");
    if (child == 0) {
        for (const auto& [name, value] : m_variables) {
            (void)setenv(name.c_str(), value.c_str(), 1);
        }
        (void)dup2(input.descriptor(), STDIN_FILENO);
        (void)dup2(output.descriptor(), STDOUT_FILENO);
        (void)dup2(errors.descriptor(), STDERR_FILENO);
        (void)alarm(kLongestRunSeconds);
        (void)execv(arguments[0], arguments.data());
        _exit(127);
    }

    int status = 0;
    (void)waitpid(child, &status, 0);
    ChildResult result;
    if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    result.output = output.contents();
    result.errors = errors.contents();
    return result;
}

}  // namespace test
