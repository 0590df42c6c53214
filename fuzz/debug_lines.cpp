// What the substitute debug library makes of pieces of text that two threads write: whole lines
// with their prefix, in a file.

#include <pthread.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "support/expect.h"
#include "support/helper_thread.h"
#include "support/input.h"
#include "zor_debug/zor_debug_control.h"

namespace {

/// A file in memory, which the library opens by the descriptor's name.
class File {
public:
    File() : m_descriptor(memfd_create("lines", MFD_CLOEXEC)) {
        const std::string path = "/proc/self/fd/" + std::to_string(m_descriptor);
        fuzz::expectEqual(zorDebugSetFile(path.c_str()), 0, "the setting of a file");
    }

    void clear() { fuzz::expectEqual(ftruncate(m_descriptor, 0), 0, "the emptying of the file"); }

    std::string text() const {
        std::string text(static_cast<std::size_t>(lseek(m_descriptor, 0, SEEK_END)), '\0');
        const ssize_t count = pread(m_descriptor, text.data(), text.size(), 0);
        fuzz::expectEqual(count, static_cast<ssize_t>(text.size()), "the reading of the file");
        return text;
    }

private:
    const int m_descriptor;
};

struct Prefix {
    bool hasLevel = false;
    bool hasModule = false;
    bool hasThread = false;
};

/// A thread that writes, and what the model knows of it.
struct Writer {
    int id = 0;
    std::string threadName;
    DebugLevelRecord lastOn = {0, 0, 0, 0};
    std::string begun;  // A line that has no end yet, with its prefix.
};

class Model {
public:
    void write(Writer* p_writer, const std::string& text) {
        std::string lines;
        for (const char c : text) {
            if (p_writer->begun.empty()) p_writer->begun = prefixOf(*p_writer);
            p_writer->begun += c;
            if (c != '\n') continue;
            lines += p_writer->begun;
            p_writer->begun.clear();
        }
        send(*p_writer, lines);
    }

    void end(Writer* p_writer) {
        send(*p_writer, p_writer->begun);
        p_writer->begun.clear();
    }

    Prefix prefix;
    std::string file;

private:
    // An unfinished line of a thread that has ended is finished before another thread's.
    void send(const Writer& writer, const std::string& text) {
        if (text.empty()) return;
        if (m_openLineOwner != 0 && m_openLineOwner != writer.id) file += '\n';
        file += text;
        m_openLineOwner = text.back() == '\n' ? 0 : writer.id;
    }

    std::string prefixOf(const Writer& writer) const {
        std::string text;
        if (prefix.hasLevel) {
            const unsigned level = writer.lastOn.level;
            char letter = 'D';
            if (level < 5000) letter = 'I';
            if (level < 4000) letter = 'W';
            if (level < 3000) letter = 'E';
            if (level < 1000) letter = 'A';
            if (level == 0) letter = '-';
            text += std::string("[") + letter + "] ";
        }
        if (prefix.hasModule) {
            char module[16];
            (void)std::snprintf(module, sizeof(module), "[0x%02x] ",
                                static_cast<unsigned>(writer.lastOn.module));
            text += module;
        }
        if (prefix.hasThread) {
            text += "[" + std::to_string(writer.id) + " " + writer.threadName + "] ";
        }
        return text;
    }

    int m_openLineOwner = 0;
};

void nameThread(Writer* p_writer) {
    char name[16] = "";
    (void)pthread_getname_np(pthread_self(), name, sizeof(name));
    p_writer->threadName = name;
    p_writer->id = static_cast<int>(syscall(SYS_gettid));
}

void setPrefix(fuzz::Input* p_input, Model* p_model) {
    const std::uint8_t pieces = p_input->byte();
    Prefix& prefix = p_model->prefix;
    prefix = {(pieces & 1U) != 0, (pieces & 2U) != 0, (pieces & 4U) != 0};
    std::string text;
    // In the order of the setting, which does not count.
    if (prefix.hasThread) text += "thread,";
    if (prefix.hasModule) text += "module,";
    if (prefix.hasLevel) text += "Level,";
    if (!text.empty()) text.pop_back();
    fuzz::expectEqual(zorDebugSetPrefix(text.c_str()), 0, "the setting of a prefix");
}

void check(DebugLevelRecord record, Writer* p_writer) {
    const bool isOn = zorDebugCheckLevelGetFrameAndChunk(&record) != 0;
    fuzz::expectEqual(isOn, record.level <= 4500, "whether a level is on");
    if (isOn) p_writer->lastOn = record;
}

std::string textOf(fuzz::Input* p_input) {
    std::string text;
    for (const char c : p_input->text(60)) {
        if (c != '\0') text += c % 8 == 1 ? '\n' : c;
    }
    if (p_input->below(8) != 0) return text;
    // More than a buffer holds at first.
    for (int i = 0; i < 7; ++i) text += text;
    return text;
}

File& file() {
    static File* s_file = new File();
    return *s_file;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* p_data, std::size_t size) {
    fuzz::Input input(p_data, size);
    (void)zorDebugSetLevels("4500");
    (void)zorDebugSetPrefix(nullptr);
    file().clear();
    Model model;
    std::array<Writer, 2> writers;
    nameThread(&writers[0]);
    check({1, 0x5F, 0, 0}, &writers[0]);
    std::unique_ptr<fuzz::HelperThread> helper;
    while (!input.isAtEnd()) {
        const std::uint8_t kind = input.byte();
        Writer& writer = writers[kind >> 7];
        if ((kind & 0x80U) != 0 && helper == nullptr) {
            helper = std::make_unique<fuzz::HelperThread>();
            writer = {};
            helper->call([&writer] { nameThread(&writer); });
        }
        const auto onThread = [&](const std::function<void()>& work) {
            if ((kind & 0x80U) != 0) {
                helper->call(work);
            } else {
                work();
            }
        };
        switch (kind % 8) {
            case 0:
                setPrefix(&input, &model);
                break;
            case 1: {
                const auto level = input.number<std::uint16_t>();
                const auto module = input.number<std::uint16_t>();
                onThread([&] {
                    check({std::max<std::uint16_t>(level, 1), module, 0, 0}, &writer);
                });
                break;
            }
            case 2:
                if (helper == nullptr) break;
                helper.reset();
                model.end(&writers[1]);
                break;
            default: {
                const std::string text = textOf(&input);
                onThread([&] { (void)zorDebugOutput0("%s", text.c_str()); });
                model.write(&writer, text);
            }
        }
    }
    if (helper != nullptr) {
        helper.reset();
        model.end(&writers[1]);
    }
    (void)zorDebugOutput0("the end\n");
    model.write(&writers[0], "the end\n");
    fuzz::expectEqual(file().text(), model.file, "the file");
    return 0;
}
