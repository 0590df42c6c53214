#include "tv_browser/conversation.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>

namespace test {
namespace {

constexpr int kPatienceMs = 30000;

struct Pipe {
    Pipe() {
        if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    }
    std::array<int, 2> ends{};
};

[[noreturn]] void become(const std::vector<char*>& arguments, const Pipe& input,
                         const Pipe& output) {
    (void)dup2(input.ends[0], STDIN_FILENO);
    (void)dup2(output.ends[1], STDOUT_FILENO);
    (void)execv(arguments[0], arguments.data());
    _exit(127);
}

}  // namespace

Conversation::Conversation(const std::vector<std::string>& arguments) {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    const Pipe input;
    const Pipe output;
    (void)setenv("ZOR_DEBUG", "off", 1);

    m_child = fork();
    if (m_child == 0) become(pointers, input, output);
    (void)close(input.ends[0]);
    (void)close(output.ends[1]);
    m_toChild = input.ends[1];
    m_fromChild = output.ends[0];
    if (m_child < 0) throw std::runtime_error("no child process");
}

Conversation::~Conversation() {
    if (m_child > 0) {
        (void)kill(m_child, SIGKILL);
        (void)end();
    }
    (void)close(m_fromChild);
}

void Conversation::say(const std::string& text) {
    // A few bytes into an empty pipe: written whole, or the child has gone and hear() tells.
    (void)!write(m_toChild, text.data(), text.size());
}

std::string Conversation::hear(const std::string& part) {
    std::string heard;
    while (heard.find(part) == std::string::npos) {
        pollfd readable{m_fromChild, POLLIN, 0};
        if (poll(&readable, 1, kPatienceMs) != 1) return "";
        std::array<char, 4096> piece;
        const ssize_t length = read(m_fromChild, piece.data(), piece.size());
        if (length <= 0) return "";
        heard.append(piece.data(), static_cast<std::size_t>(length));
    }
    return heard;
}

int Conversation::end() {
    closeInput();
    int status = 0;
    const pid_t ended = waitpid(m_child, &status, 0);
    m_child = -1;
    return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void Conversation::closeInput() {
    if (m_toChild >= 0) (void)close(m_toChild);
    m_toChild = -1;
}

}  // namespace test
