# The static library, tevalon::base-static: an archive of the shared library's own objects, which are
# position-independent and compiled once. A process links one of the two: each has its own singletons.
add_library(tevalon-base-static STATIC $<TARGET_OBJECTS:tevalon-base>)
add_library(tevalon::base-static ALIAS tevalon-base-static)
target_include_directories(tevalon-base-static INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/pubinc>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/tevalon>)
target_compile_features(tevalon-base-static INTERFACE cxx_std_17)
target_link_libraries(tevalon-base-static
    PUBLIC zor-debug::zor-debug Threads::Threads PRIVATE Uuid::uuid)
if(NOT Atomics_ARE_NATIVE)
    target_link_libraries(tevalon-base-static PRIVATE atomic)
endif()
# A module with the archive within stays mapped once it is loaded, as the shared library does: it has
# threads that outlive every user.
target_link_options(tevalon-base-static INTERFACE LINKER:-z,nodelete)
set_target_properties(tevalon-base-static PROPERTIES
    EXPORT_NAME base-static OUTPUT_NAME tevalon-base LINKER_LANGUAGE CXX)
tevalon_target(tevalon-base-static)
