# What tests a client's modules with the test kit; see docs/test-your-module.md.

# tevalon_add_kit_test(NAME SOURCES FILE... LIBRARIES TARGET... [TIMEOUT SECONDS]): a test program,
# with GoogleTest's main(), and its tests. The libraries are tevalon::base or tevalon::base-static,
# and the client's. Each test that takes longer, in real seconds, is ended by ctest.
function(tevalon_add_kit_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "TIMEOUT" "SOURCES;LIBRARIES")
    if(NOT TARGET GTest::gmock_main)
        find_package(GTest 1.11 REQUIRED)
    endif()
    include(GoogleTest)
    add_executable(${name} ${arg_SOURCES})
    # The kit before the libraries whose calls it replaces.
    target_link_libraries(${name} PRIVATE tevalon::kit ${arg_LIBRARIES} GTest::gmock_main)
    # The kit's definitions go on to the debug-output library's, which nobody else may refer to.
    target_link_options(${name} PRIVATE LINKER:--no-as-needed)
    # Shared libraries are to find the program's definitions of the system's functions.
    set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)
    # Found when ctest runs, rather than after each link, where CMake can do that.
    set(discovery NO_PRETTY_TYPES NO_PRETTY_VALUES)
    if(NOT CMAKE_VERSION VERSION_LESS 3.18)
        list(APPEND discovery DISCOVERY_MODE PRE_TEST)
    endif()
    if(arg_TIMEOUT)
        list(APPEND discovery PROPERTIES TIMEOUT ${arg_TIMEOUT})
    endif()
    gtest_discover_tests(${name} ${discovery})
endfunction()
