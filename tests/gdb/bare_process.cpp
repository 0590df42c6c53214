// A program without the C library, of which gdb knows little: neither what the C library calls it
// nor a build id, and of ours an empty list of what threads do. With WITHOUT_LIST not even that, as
// of a library that was built without recorder and state report.

#include "activity/activity.h"
#include "base/logging/boot_id.h"

namespace tevalon::base {

#ifdef WITHOUT_LIST

std::uint32_t bootID() {
    return 7;
}

#else

namespace activity {
namespace {

[[gnu::used]] Activity* g_first = nullptr;

}  // namespace
}  // namespace activity

[[gnu::used]] activity::Kind g_kind = activity::Kind::Stop;
constexpr int kNowhere = 5;  // Optimisation leaves it without an address.

int nowhere() {
    return kNowhere;
}

#endif

}  // namespace tevalon::base

int main() {
    __builtin_trap();
}
