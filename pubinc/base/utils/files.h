// files.h: whether a path exists, and two ways to remove a folder with all that is in it.

#ifndef BASE_UTILS_FILES_H
#define BASE_UTILS_FILES_H

#include <cstdint>

#include "base/export.h"

namespace tevalon::base {

/// Whether @p name exists and can be reached; false for null. A path that does not is reported
/// by an error line. Any thread.
TEVALON_BASE_EXPORT bool isPathExists(const char* name);

/// Removes a folder, the regular files in it and its sub-folders, as far as it can; each thing
/// that it cannot remove is reported by an error line. Links are followed: what is in a linked
/// folder is removed, the link is left. So are devices, pipes and sockets.
///
/// Beware of links: one that leads out of the folder takes this function with it, to whatever the
/// process may delete there. A link to a folder that it lies in is followed until the system says
/// that there are too many; of two such links each is followed behind each of the other, twice as
/// often with every level of some forty, which takes longer than anyone lives. Not for folders in
/// which somebody else can make links.
///
/// Returns 0; -1 for null; -2 when the folder cannot be opened; -3 when it cannot be removed in
/// the end, as when something was left in it. Holds one descriptor per level of folders. Any
/// thread.
TEVALON_BASE_EXPORT std::int32_t rmDir(const char* dirPath);

/// Removes a folder with all that is in it, and nothing else, whatever others do there meanwhile.
/// Links are removed, never followed; so are pipes, sockets and devices. Does not enter a folder on
/// which another file system is mounted. Goes by descriptors (openat), so that a folder which is
/// replaced by a link on the way is not left; @p dirPath itself must not be a link, but may lead
/// through some.
///
/// Each thing that it cannot remove is reported by an error line, as by rmDir(), and it goes on
/// with the rest. Returns 0; -1 for null; -2 when the folder cannot be opened; -3 when it cannot be
/// removed in the end. Holds one descriptor per level of folders, and up to half a KiB of the
/// stack. Throws std::bad_alloc. Any thread; two may remove the same folder, then one of them may
/// report what the other has removed.
TEVALON_BASE_EXPORT std::int32_t removeFolder(const char* dirPath);

}  // namespace tevalon::base

#endif  // BASE_UTILS_FILES_H
