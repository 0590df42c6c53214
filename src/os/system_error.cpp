#include "os/system_error.h"

namespace tevalon::base {

void throwUnlessOk(int error) {
    if (error != 0) throw std::system_error(error, std::generic_category());
}

}  // namespace tevalon::base
