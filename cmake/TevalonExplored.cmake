# What explores a client's own modules; see docs/explore-your-module.md.

# tevalon_explore(TARGET): compiles a target of the caller's for the schedule explorer, instrumented
# for the thread sanitizer. It is to be linked without that one's runtime, with tevalon::testkit.
function(tevalon_explore target)
    target_compile_options(${target} PRIVATE -fsanitize=thread -g -fno-omit-frame-pointer
        # The sanitizer's own runtime does not know fences; the explorer does.
        $<$<CXX_COMPILER_ID:GNU>:-Wno-tsan>)
endfunction()

# tevalon_add_explored_program(NAME SOURCES FILE... [LIBRARIES TARGET...]): a program of scenarios.
# The sources are compiled for the explorer. Libraries that were not are explored by what they call
# of the C library alone; --no-races then keeps the program from reporting races that are none.
function(tevalon_add_explored_program name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES")
    add_executable(${name} ${arg_SOURCES})
    tevalon_explore(${name})
    target_link_libraries(${name} PRIVATE tevalon::testkit ${arg_LIBRARIES})
    # The C++ library and others call what the explorer has replaced.
    set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON)
endfunction()

# tevalon_add_explored_test(NAME SOURCES FILE... [LIBRARIES TARGET...] [ARGUMENTS ARGUMENT...])
# The same, and a test of that name.
function(tevalon_add_explored_test name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LIBRARIES;ARGUMENTS")
    tevalon_add_explored_program(${name} SOURCES ${arg_SOURCES} LIBRARIES ${arg_LIBRARIES})
    add_test(NAME ${name} COMMAND ${name} ${arg_ARGUMENTS})
endfunction()
