# What the atomics of up to 64 bits need: nothing where the processor has them, libatomic where it
# lacks one. Atomics_FOUND and the target Atomics::atomics.
include(CheckCXXSourceCompiles)
include(FindPackageHandleStandardArgs)

set(atomics_source "
#include <atomic>
#include <cstdint>
int main(int argc, char**) {
    static std::atomic<std::uint64_t> word{0};
    static std::atomic<double> number{0};
    number.store(argc);
    return static_cast<int>(word.fetch_add(1) + static_cast<std::uint64_t>(number.load()));
}")
check_cxx_source_compiles("${atomics_source}" Atomics_ARE_NATIVE)
if(NOT Atomics_ARE_NATIVE)
    set(CMAKE_REQUIRED_LIBRARIES atomic)
    check_cxx_source_compiles("${atomics_source}" Atomics_ARE_IN_LIBATOMIC)
    unset(CMAKE_REQUIRED_LIBRARIES)
endif()

if(Atomics_ARE_NATIVE OR Atomics_ARE_IN_LIBATOMIC)
    set(Atomics_USABLE TRUE)
endif()
find_package_handle_standard_args(Atomics REQUIRED_VARS Atomics_USABLE)

if(Atomics_FOUND AND NOT TARGET Atomics::atomics)
    add_library(Atomics::atomics INTERFACE IMPORTED)
    if(NOT Atomics_ARE_NATIVE)
        target_link_libraries(Atomics::atomics INTERFACE atomic)
    endif()
endif()
