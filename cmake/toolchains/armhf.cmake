# 32-bit ARM with hard float, as Debian's cross compiler builds it. Libraries beside the C and C++
# runtimes come from Debian's armhf packages, unpacked below TEVALON_ARMHF_PACKAGES; programs run
# under user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(TEVALON_ARMHF_PACKAGES ${CMAKE_CURRENT_LIST_DIR}/../../build/armhf-packages CACHE PATH
    "Folder with the unpacked armhf packages")
get_filename_component(TEVALON_ARMHF_PACKAGES ${TEVALON_ARMHF_PACKAGES} ABSOLUTE)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TEVALON_ARMHF_PACKAGES)

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_OBJCOPY arm-linux-gnueabihf-objcopy)
set(CMAKE_STRIP arm-linux-gnueabihf-strip)

# Headers and libraries of the packages and of the compiler, and no other: an armhf C library that
# is installed on the machine would be another one than the compiler's.
set(CMAKE_FIND_ROOT_PATH ${TEVALON_ARMHF_PACKAGES} /usr/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

set(ENV{PKG_CONFIG_LIBDIR} ${TEVALON_ARMHF_PACKAGES}/usr/lib/arm-linux-gnueabihf/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${TEVALON_ARMHF_PACKAGES})

# Some packages keep the headers that differ by architecture apart.
foreach(language IN ITEMS C CXX)
    set(CMAKE_${language}_FLAGS_INIT
        "-isystem ${TEVALON_ARMHF_PACKAGES}/usr/include/arm-linux-gnueabihf")
endforeach()

# The loader and the runtimes are the compiler's own, wherever an armhf C library is installed.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/arm-linux-gnueabihf)
