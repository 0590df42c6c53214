# sdk.cmake: a set's SDK, as a toolchain for CMake.
#
#     -DCMAKE_TOOLCHAIN_FILE=.../sdk.cmake -DTEVALON_SDK=FOLDER -DTEVALON_SDK_TARGET=TRIPLE
#
# FOLDER has bin/TRIPLE-gcc and its kin, and the set's headers and libraries below sysroot/.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

set(TEVALON_SDK "" CACHE PATH "The SDK's folder")
set(TEVALON_SDK_TARGET "" CACHE STRING "What its compilers' names begin with")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES TEVALON_SDK TEVALON_SDK_TARGET)

set(CMAKE_SYSROOT ${TEVALON_SDK}/sysroot)
set(CMAKE_C_COMPILER ${TEVALON_SDK}/bin/${TEVALON_SDK_TARGET}-gcc)
set(CMAKE_CXX_COMPILER ${TEVALON_SDK}/bin/${TEVALON_SDK_TARGET}-g++)

# Programs are this machine's; everything else is the set's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
