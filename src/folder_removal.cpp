#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "base/logging/blog.h"
#include "base/utils/files.h"
#include "os/folder.h"
#include "os/no_cancellation.h"

namespace tevalon::base {
namespace {

// Not waiting for the writer of a pipe that has taken the folder's place.
constexpr int kOpenFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

/// Null where @p name is no folder, or cannot be opened.
DIR* openFolder(int parent, const char* name) {
    const int descriptor = openat(parent, name, kOpenFlags);
    if (descriptor < 0) return nullptr;
    DIR* const p_folder = fdopendir(descriptor);
    if (p_folder == nullptr) {
        const NoCancellation noCancellation;
        (void)close(descriptor);
    }
    return p_folder;
}

/// Whether both are of one file system; not where that cannot be told. AT_FDCWD goes with any.
bool isOfSameFileSystem(int folder, int parent) {
    struct stat status = {};
    struct stat parents = {};
    if (parent == AT_FDCWD) return true;
    return fstat(folder, &status) == 0 && fstat(parent, &parents) == 0 &&
           status.st_dev == parents.st_dev;
}

std::int32_t removeAt(int parent, const char* name, std::string* p_path);

/// @param p_path  Of the folder, for log lines alone: every call goes by the descriptor.
void empty(DIR* p_folder, std::string* p_path) {
    const std::size_t length = p_path->size();
    const int folder = dirfd(p_folder);
    while (const dirent* p_entry = readdir(p_folder)) {
        if (isSelfOrParent(p_entry->d_name)) continue;
        p_path->append("/").append(p_entry->d_name);
        errno = 0;
        const int error = unlinkat(folder, p_entry->d_name, 0) == 0 ? 0 : errno;
        // Of a folder that may not be deleted, unlinkat() gives EACCES or EPERM instead of EISDIR;
        // what is in it may be deletable all the same.
        if (error == EISDIR || (error != 0 && p_entry->d_type == DT_DIR)) {
            (void)removeAt(folder, p_entry->d_name, p_path);  // It has reported its own failure.
        } else if (error != 0) {
            BLOG_AS("removeFolder", kLogError, "Fail to delete:'%s', error:(%d-'%s').\n\n",
                    p_path->c_str(), error, strerror(error));
        }
        p_path->resize(length);
    }
}

std::int32_t removeAt(int parent, const char* name, std::string* p_path) {
    {
        const std::unique_ptr<DIR, CloseFolder> folder(openFolder(parent, name));
        if (folder == nullptr) {
            BLOG_AS("removeFolder", kLogError, "Fail to opendir('%s').\n\n", p_path->c_str());
            return -2;
        }
        if (isOfSameFileSystem(dirfd(folder.get()), parent)) empty(folder.get(), p_path);
    }
    errno = 0;
    if (unlinkat(parent, name, AT_REMOVEDIR) == 0) return 0;
    const int error = errno;
    BLOG_AS("removeFolder", kLogError, "Fail to delete dir:'%s', error:(%d-'%s').\n\n",
            p_path->c_str(), error, strerror(error));
    return -3;
}

}  // namespace

std::int32_t removeFolder(const char* dirPath) {
    if (dirPath == nullptr) {
        BLOG(kLogError, "dirPath is NULL.\n\n");
        return -1;
    }
    // Behind a link, a slash would have the system follow it.
    std::string path = dirPath;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    const std::string name = path;
    return removeAt(AT_FDCWD, name.c_str(), &path);
}

}  // namespace tevalon::base
