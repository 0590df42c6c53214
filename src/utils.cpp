#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>
#include <uuid/uuid.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "base/logging/blog.h"
#include "base/utils/files.h"
#include "base/utils/numbers.h"
#include "base/utils/strings.h"
#include "base/utils/uuid.h"
#include "os/folder.h"

namespace tevalon::base {
namespace {

bool isSign(char c) {
    return c == '+' || c == '-';
}

// Unsigned, where overflow wraps as it is meant to. One copy for all widths: the low bits of a
// value that wraps at 64 bits are those of one that wraps at fewer.
std::int32_t parseDecimal(const std::string& text, unsigned long long* p_value) {
    if (text.empty()) return -1;
    const bool isSigned = isSign(text[0]);
    if (isSigned && text.size() == 1) return -1;

    unsigned long long value = 0;
    for (std::size_t i = isSigned ? 1 : 0; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9') break;
        value = value * 10U + static_cast<unsigned>(text[i] - '0');
    }
    *p_value = text[0] == '-' ? 0 - value : value;
    return 0;
}

template <typename T>
std::int32_t parseDecimalInto(const std::string& text, T* p_value) {
    unsigned long long value = 0;
    if (parseDecimal(text, &value) != 0) return -1;
    *p_value = static_cast<T>(static_cast<std::make_unsigned_t<T>>(value));
    return 0;
}

template <typename Number>
Number readNative(const unsigned char* p_bytes) {
    Number number;
    std::memcpy(&number, p_bytes, sizeof(number));
    return number;
}

}  // namespace

std::string toLowerCase(const std::string& text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

std::int32_t dstoi(const std::string& text, int& value) {
    return parseDecimalInto(text, &value);
}

std::int32_t dstol(const std::string& text, long& value) {
    return parseDecimalInto(text, &value);
}

std::int32_t dstoll(const std::string& text, long long& value) {
    return parseDecimalInto(text, &value);
}

std::int32_t dstoui(const std::string& text, unsigned int& value) {
    return parseDecimalInto(text, &value);
}

std::int32_t dstoul(const std::string& text, unsigned long& value) {
    return parseDecimalInto(text, &value);
}

std::int32_t dstoull(const std::string& text, unsigned long long& value) {
    return parseDecimalInto(text, &value);
}

bool isPathExists(const char* name) {
    if (name == nullptr) return false;
    errno = 0;
    const int result = access(name, F_OK);
    if (result == 0) return true;
    const int error = errno;
    BLOG(kLogError, "filePath:'%s', ret:%d, error:'%s'.\n", name, result, strerror(error));
    return false;
}

bool hasSuffix(const std::string& path, const std::string& suffix) {
    if (path.empty() || suffix.size() == path.size()) return false;
    const std::size_t dot = path.rfind('.');
    if (dot == std::string::npos) return false;
    return path.compare(dot, std::string::npos, suffix) == 0;
}

namespace {

// Of any width: one copy for all eight types.
void convertToHex(unsigned long long value, std::string* p_out, bool upper) {
    const char* p_digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    if (value < 16) {
        p_out->assign(1, p_digits[value]);
        return;
    }
    char digits[2 * sizeof(value)];
    std::size_t count = 0;
    for (; value != 0; value >>= 4) digits[sizeof(digits) - ++count] = p_digits[value & 0xFU];
    p_out->append(digits + sizeof(digits) - count, count);
}

}  // namespace

template <typename T>
std::int32_t convert2HexStr(T value, std::string& out, bool upper) {
    convertToHex(static_cast<std::make_unsigned_t<T>>(value), &out, upper);
    return 0;
}

template std::int32_t convert2HexStr(char, std::string&, bool);
template std::int32_t convert2HexStr(unsigned char, std::string&, bool);
template std::int32_t convert2HexStr(int, std::string&, bool);
template std::int32_t convert2HexStr(unsigned int, std::string&, bool);
template std::int32_t convert2HexStr(long, std::string&, bool);
template std::int32_t convert2HexStr(unsigned long, std::string&, bool);
template std::int32_t convert2HexStr(long long, std::string&, bool);
template std::int32_t convert2HexStr(unsigned long long, std::string&, bool);

std::string generateUUID() {
    constexpr std::size_t kTextSize = 256;
    uuid_t id;
    uuid_generate(id);
    const std::unique_ptr<char, void (*)(void*)> text(static_cast<char*>(std::malloc(kTextSize)),
                                                      std::free);
    if (text == nullptr) {
        BLOG(kLogError, "Fail to allocate buffer.\n");
        return std::string();
    }
    // The first three groups as numbers of this processor, as they have always been shown.
    std::snprintf(text.get(), kTextSize, "%08X-%04X-%04X-%02X%02X%02X%02X%02X%02X%02X%02X",
                  readNative<std::uint32_t>(&id[0]), readNative<std::uint16_t>(&id[4]),
                  readNative<std::uint16_t>(&id[6]), id[8], id[9], id[10], id[11], id[12], id[13],
                  id[14], id[15]);
    return std::string(text.get());
}

std::int32_t rmDir(const char* dirPath) {
    if (dirPath == nullptr) {
        BLOG(kLogError, "dirPath is NULL.\n\n");
        return -1;
    }
    const std::unique_ptr<DIR, CloseFolder> folder(opendir(dirPath));
    if (folder == nullptr) {
        BLOG(kLogError, "Fail to opendir('%s').\n\n", dirPath);
        return -2;
    }
    std::string path = std::string(dirPath) + "/";
    const std::size_t folderLength = path.size();
    while (const dirent* p_entry = readdir(folder.get())) {
        if (isSelfOrParent(p_entry->d_name)) continue;
        path.replace(folderLength, std::string::npos, p_entry->d_name);
        struct stat status = {};
        errno = 0;
        if (stat(path.c_str(), &status) != 0) {
            const int error = errno;
            BLOG(kLogError, "Fail to get stat of path.error:(%d-'%s').\n\n", error,
                 strerror(error));
        } else if (S_ISDIR(status.st_mode)) {
            (void)rmDir(path.c_str());  // It has reported its own failure.
        } else if (!S_ISREG(status.st_mode)) {
            BLOG(kLogDebug, "name:'%s', MODE:%d, ISOTHER.\n\n", path.c_str(),
                 static_cast<int>(status.st_mode));
        } else if (errno = 0; unlink(path.c_str()) != 0) {
            const int error = errno;
            BLOG(kLogError, "Fail to delete:'%s', error:(%d-'%s').\n\n", path.c_str(), error,
                 strerror(error));
        }
    }
    errno = 0;
    if (rmdir(dirPath) == 0) return 0;
    const int error = errno;
    BLOG(kLogError, "Fail to delete dir:'%s', error:(%d-'%s').\n\n", dirPath, error,
         strerror(error));
    return -3;
}

std::int32_t separateStr(const std::string& text, const std::string& delimiters,
                         std::vector<std::string>& out) {
    std::size_t begin = 0;
    std::size_t end = text.find_first_of(delimiters);
    if (end == std::string::npos) return -1;
    // Collected first: the text may be one of those that the output holds.
    std::vector<std::string> pieces;
    for (; end != std::string::npos; end = text.find_first_of(delimiters, begin)) {
        pieces.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    pieces.push_back(text.substr(begin));
    out.insert(out.end(), std::make_move_iterator(pieces.begin()),
               std::make_move_iterator(pieces.end()));
    return 0;
}

}  // namespace tevalon::base
