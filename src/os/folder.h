// folder.h: what is needed of the system's folder streams.

#ifndef SRC_OS_FOLDER_H
#define SRC_OS_FOLDER_H

#include <dirent.h>

#include <cstring>

#include "os/no_cancellation.h"

namespace tevalon::base {

struct CloseFolder {
    // Cancelled in a destructor, the process would end.
    void operator()(DIR* p_folder) const {
        const NoCancellation noCancellation;
        (void)closedir(p_folder);
    }
};

inline bool isSelfOrParent(const char* p_name) {
    return std::strcmp(p_name, ".") == 0 || std::strcmp(p_name, "..") == 0;
}

}  // namespace tevalon::base

#endif  // SRC_OS_FOLDER_H
