// build_id.h: which build of a program or library this is.

#ifndef SRC_DIAGNOSTICS_BUILD_ID_H
#define SRC_DIAGNOSTICS_BUILD_ID_H

#include <cstdint>

#include "record/format.h"

namespace tevalon::base::diagnostics {

/// The GNU build id that the linker has written; zeros where there is none. What is longer is cut.
struct BuildId {
    std::uint8_t bytes[record::kBuildIdBytes];
};

BuildId programBuildId();
BuildId libraryBuildId();

}  // namespace tevalon::base::diagnostics

#endif  // SRC_DIAGNOSTICS_BUILD_ID_H
