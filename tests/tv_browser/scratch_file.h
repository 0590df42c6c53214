// scratch_file.h: a file for the length of a test.

#ifndef TESTS_TV_BROWSER_SCRATCH_FILE_H
#define TESTS_TV_BROWSER_SCRATCH_FILE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace test {

class ScratchFile {
public:
    /// @param name  Must differ among the files that a test has at a time.
    ScratchFile(const std::string& name, const std::string& text)
        : m_name(std::to_string(getpid()) + "." + name), m_path(testing::TempDir() + m_name) {
        std::ofstream(m_path, std::ios::binary) << text;
    }
    ~ScratchFile() { (void)std::remove(m_path.c_str()); }

    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    const std::string& name() const { return m_name; }  ///< Within testing::TempDir().
    const std::string& path() const { return m_path; }

private:
    const std::string m_name;
    const std::string m_path;
};

}  // namespace test

#endif  // TESTS_TV_BROWSER_SCRATCH_FILE_H
