#include "text_file.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <utility>

namespace tv_browser {
namespace {

constexpr std::size_t kMaxBytes = std::size_t{1} << 20;

struct Close {
    void operator()(std::FILE* p_file) const { (void)std::fclose(p_file); }  // Only read from.
};

}  // namespace

int readTextFile(const std::string& path, std::string* p_text) {
    const std::unique_ptr<std::FILE, Close> file(std::fopen(path.c_str(), "re"));
    if (file == nullptr) return errno;
    std::string text;
    char piece[4096];
    while (true) {
        errno = 0;
        const std::size_t length = std::fread(piece, 1, sizeof piece, file.get());
        if (std::ferror(file.get()) != 0) return errno != 0 ? errno : EIO;
        if (length == 0) break;
        text.append(piece, length);
        if (text.size() > kMaxBytes) return EFBIG;
    }
    *p_text = std::move(text);
    return 0;
}

}  // namespace tv_browser
