#include "symbols.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>

namespace tevalon::testkit {
namespace {

struct Module {
    std::uintptr_t base = 0;
    std::vector<std::uintptr_t> addresses;
};

bool startsWithAny(const std::string& text, std::initializer_list<const char*> beginnings) {
    return std::any_of(beginnings.begin(), beginnings.end(),
                       [&](const char* const beginning) { return text.rfind(beginning, 0) == 0; });
}

// Of the explorer, stripped or not, and of the system's libraries.
bool isForeign(const Frame& frame) {
    for (const char* const part : {"/usr/include/", "/usr/lib/", "include/c++/", "testkit/src/",
                                   "./nptl/", "./csu/", "./misc/", "./stdlib/", "./sysdeps/"}) {
        if (frame.place.find(part) != std::string::npos) return true;
    }
    if (frame.function.find("tevalon::testkit::") != std::string::npos) return true;
    const bool isPlaceKnown = frame.place.find(":?") == std::string::npos;
    return !isPlaceKnown &&
           startsWithAny(frame.function, {"?", "_", "std::", "pthread_", "sem_", "malloc", "free",
                                          "main", "operator ", "clone", "start_thread", "select",
                                          "poll", "nanosleep", "clock_"});
}

// A path from the program's source tree, without what lies above it.
std::string shortened(const std::string& place) {
    std::size_t cut = std::string::npos;
    for (const char* const folder :
         {"/src/", "/pubinc/", "/explore/", "/platform/", "/examples/", "/tests/", "/include/"}) {
        const std::size_t found = place.find(folder);
        if (found != std::string::npos)
            cut = cut == std::string::npos ? found : std::min(cut, found);
    }
    std::string text = cut == std::string::npos ? place : place.substr(cut + 1);
    const std::size_t comment = text.find(" (discriminator");
    return comment == std::string::npos ? text : text.substr(0, comment);
}

// Without arguments and template parameters at the end, which nobody reads.
std::string shortFunction(const std::string& function) {
    int depth = 0;
    std::string text;
    for (const char c : function) {
        if (c == '<') ++depth;
        if (c == '(' && depth == 0 && text.find("operator") == std::string::npos && !text.empty()) {
            break;
        }
        if (depth == 0) text += c;
        if (c == '>' && depth > 0) --depth;
    }
    constexpr std::size_t kMost = 70;
    return text.size() > kMost ? text.substr(text.size() - kMost) : text;
}

std::string readLine(FILE* p_in) {
    std::string line;
    for (int c = std::fgetc(p_in); c != EOF && c != '\n'; c = std::fgetc(p_in)) {
        line += static_cast<char>(c);
    }
    return line;
}

}  // namespace

void Symbols::resolve() {
    std::map<std::string, Module> modules;
    for (const auto& [address, frames] : m_frames) {
        Dl_info info = {};
        if (dladdr(reinterpret_cast<void*>(address), &info) == 0) continue;
        Module& module = modules[info.dli_fname];
        module.base = reinterpret_cast<std::uintptr_t>(info.dli_fbase);
        module.addresses.push_back(address);
    }
    for (const auto& [name, module] : modules) {
        std::string command = "addr2line -a -f -C -i -e '" + name + "'";
        for (const std::uintptr_t address : module.addresses) {
            char text[32];
            // The call is before the address that it returns to.
            (void)std::snprintf(text, sizeof(text), " %#zx", address - module.base - 1);
            command += text;
        }
        command += " 2>/dev/null";
        const std::unique_ptr<FILE, int (*)(FILE*)> in(popen(command.c_str(), "r"), pclose);
        if (in == nullptr) return;
        std::size_t index = 0;
        std::vector<Frame>* p_frames = nullptr;
        for (std::string line = readLine(in.get()); !line.empty(); line = readLine(in.get())) {
            if (line.rfind("0x", 0) == 0 && index < module.addresses.size()) {
                p_frames = &m_frames[module.addresses[index++]];
                continue;
            }
            Frame frame = {line, readLine(in.get())};
            if (p_frames == nullptr || isForeign(frame)) continue;
            frame.function = shortFunction(frame.function);
            frame.place = shortened(frame.place);
            p_frames->push_back(frame);
        }
    }
}

const std::vector<Frame>& Symbols::at(std::uintptr_t address) const {
    static const std::vector<Frame> kNone;
    const auto found = m_frames.find(address);
    return found != m_frames.end() ? found->second : kNone;
}

}  // namespace tevalon::testkit
