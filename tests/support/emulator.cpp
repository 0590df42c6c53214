// Tests built for another processor run under its emulator, and so have the programs they start:
// each is handed to the emulator, which alone the kernel can run. A script is run by this machine's
// interpreter.

#include <unistd.h>

#include <fstream>
#include <vector>

namespace {

// The words of the emulator's command.
std::vector<char*> emulatorCommand() {
    static char command[] = TEVALON_TEST_EMULATOR;
    static const std::vector<char*> words = [] {
        std::vector<char*> list{command};
        for (char* p_byte = command; *p_byte != '\0'; ++p_byte) {
            if (*p_byte != '|') continue;
            *p_byte = '\0';
            list.push_back(p_byte + 1);
        }
        return list;
    }();
    return words;
}

bool isScript(const char* p_path) {
    std::ifstream file(p_path, std::ios::binary);
    return file.get() == '#' && file.get() == '!';
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int execv(const char* p_path,
                                                            char* const* pp_arguments) noexcept {
    if (isScript(p_path)) return execve(p_path, pp_arguments, environ);
    std::vector<char*> words = emulatorCommand();
    words.push_back(const_cast<char*>(p_path));
    for (char* const* pp_word = pp_arguments + 1; *pp_word != nullptr; ++pp_word) {
        words.push_back(*pp_word);
    }
    words.push_back(nullptr);
    return execvp(words.front(), words.data());
}
