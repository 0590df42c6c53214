#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "base/logging/blog.h"
#include "base/utils/files.h"
#include "os/folder.h"
#include "os/no_cancellation.h"

namespace tevalon::base {
namespace {

// Not waiting for the writer of a pipe that has taken the folder's place.
constexpr int kOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

/// An open folder and its path, which is for log lines alone: every call goes by the descriptor.
class OpenFolder {
public:
    OpenFolder(int parent, const char* name, std::string path) : m_path(std::move(path)) {
        const int descriptor = openat(parent, name, kOpenFlags);
        if (descriptor < 0) return;
        m_stream.reset(fdopendir(descriptor));
        if (m_stream != nullptr) return;
        const NoCancellation noCancellation;
        (void)close(descriptor);
    }

    bool isOpen() const { return m_stream != nullptr; }
    const std::string& path() const { return m_path; }
    int descriptor() const { return dirfd(m_stream.get()); }
    const dirent* next() { return readdir(m_stream.get()); }

    /// Whether both are of one file system; not where that cannot be told.
    bool isBeside(const OpenFolder& other) const {
        struct stat own = {};
        struct stat others = {};
        return fstat(descriptor(), &own) == 0 && fstat(other.descriptor(), &others) == 0 &&
               own.st_dev == others.st_dev;
    }

private:
    std::string m_path;
    std::unique_ptr<DIR, CloseFolder> m_stream;
};

void reportNotOpened(const std::string& path) {
    BLOG_AS("removeFolder", kLogError, "Fail to opendir('%s').\n\n", path.c_str());
}

/// unlinkat(), which reports failures, but for one: that it is a folder and was to be a file.
/// @return Whether it is a folder.
bool removeEntry(int folder, const char* name, const std::string& path) {
    errno = 0;
    if (unlinkat(folder, name, 0) == 0) return false;
    const int error = errno;
    if (error == EISDIR) return true;
    BLOG_AS("removeFolder", kLogError, "Fail to delete:'%s', error:(%d-'%s').\n\n", path.c_str(),
            error, strerror(error));
    return false;
}

bool removeEmptied(int parent, const char* name, const std::string& path) {
    errno = 0;
    if (unlinkat(parent, name, AT_REMOVEDIR) == 0) return true;
    const int error = errno;
    BLOG_AS("removeFolder", kLogError, "Fail to delete dir:'%s', error:(%d-'%s').\n\n",
            path.c_str(), error, strerror(error));
    return false;
}

void emptyFolder(OpenFolder& folder);

void removeSubfolder(const OpenFolder& parent, const char* name, const std::string& path) {
    {
        OpenFolder folder(parent.descriptor(), name, path);
        if (!folder.isOpen()) {
            reportNotOpened(path);
            return;
        }
        if (folder.isBeside(parent)) emptyFolder(folder);
    }
    (void)removeEmptied(parent.descriptor(), name, path);
}

void emptyFolder(OpenFolder& folder) {
    while (const dirent* p_entry = folder.next()) {
        if (isSelfOrParent(p_entry->d_name)) continue;
        const std::string path = folder.path() + "/" + p_entry->d_name;
        if (removeEntry(folder.descriptor(), p_entry->d_name, path)) {
            removeSubfolder(folder, p_entry->d_name, path);
        }
    }
}

}  // namespace

std::int32_t removeFolder(const char* dirPath) {
    if (dirPath == nullptr) {
        BLOG_AS("removeFolder", kLogError, "dirPath is NULL.\n\n");
        return -1;
    }
    // Behind a link, a slash would have the system follow it.
    std::string path = dirPath;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    {
        OpenFolder folder(AT_FDCWD, path.c_str(), path);
        if (!folder.isOpen()) {
            reportNotOpened(path);
            return -2;
        }
        emptyFolder(folder);
    }
    return removeEmptied(AT_FDCWD, path.c_str(), path) ? 0 : -3;
}

}  // namespace tevalon::base
