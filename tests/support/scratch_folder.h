// scratch_folder.h: a folder for the length of a test, and what it takes to fill it.

#ifndef TESTS_SUPPORT_SCRATCH_FOLDER_H
#define TESTS_SUPPORT_SCRATCH_FOLDER_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "support/fault_injection.h"

namespace test {

/// Gone at the end, with whatever is left in it. Its own calls are not subject to the
/// interventions of fault_injection.h.
class ScratchFolder {
public:
    ScratchFolder() : m_path(testing::TempDir() + "scratch.XXXXXX") {
        const PassCalls pass;
        if (mkdtemp(m_path.data()) == nullptr) throw std::runtime_error("no scratch folder");
    }
    ~ScratchFolder() {
        const PassCalls pass;
        std::error_code ignored;  // The test may have removed it itself.
        std::filesystem::remove_all(m_path, ignored);
    }

    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::string& path() const { return m_path; }
    /// The path of what is called @p name in it.
    std::string path(const std::string& name) const { return m_path + "/" + name; }

    /// Each makes one thing of this name and returns its path.
    std::string file(const std::string& name, const std::string& text = "text") const {
        const PassCalls pass;
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    std::string folder(const std::string& name) const {
        const PassCalls pass;
        std::filesystem::create_directories(path(name));
        return path(name);
    }
    std::string link(const std::string& name, const std::string& target) const {
        const PassCalls pass;
        std::filesystem::create_symlink(target, path(name));
        return path(name);
    }

private:
    std::string m_path;
};

/// Whether there is anything at @p path, be it a link to nowhere.
inline bool isThere(const std::string& path) {
    const PassCalls pass;
    return std::filesystem::exists(std::filesystem::symlink_status(path));
}

}  // namespace test

#endif  // TESTS_SUPPORT_SCRATCH_FOLDER_H
