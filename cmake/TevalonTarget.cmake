# What every target of this project is built with, and no target of a user's: warnings as errors
# where the developer asked for them, and sanitizers.
function(tevalon_target target)
    set_target_properties(${target} PROPERTIES
        C_STANDARD 11 C_STANDARD_REQUIRED ON C_EXTENSIONS OFF
        CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON CXX_EXTENSIONS OFF)
    # On 32-bit systems too, folders are read whose entries have 64-bit numbers.
    target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)
    if(TEVALON_BASE_STRICT)
        target_compile_options(${target} PRIVATE
            -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wformat=2 -Wundef -Werror
            $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast>
            # What it notes of ARM changed in a compiler older than any that builds this.
            $<$<COMPILE_LANG_AND_ID:CXX,GNU>:-Wno-psabi>
            $<$<COMPILE_LANG_AND_ID:CXX,Clang>:-Wthread-safety -Wctad-maybe-unsupported>)
    endif()
    # Not what the explorer runs: it would find the counters; see explore/counted_runs.cpp.
    get_target_property(options ${target} COMPILE_OPTIONS)
    if(TEVALON_BASE_COVERAGE AND NOT options MATCHES "-fsanitize=thread")
        # The counters lie in a shared mapping of a file: processes that are killed count too. They
        # are changed atomically, for some counts are differences of others.
        target_compile_options(${target} PRIVATE
            -fprofile-instr-generate=${PROJECT_BINARY_DIR}/profiles/%m%c.profraw
            -fcoverage-mapping -fprofile-update=atomic "SHELL:-mllvm -runtime-counter-relocation")
        target_link_options(${target} PRIVATE -fprofile-instr-generate)
        get_target_property(type ${target} TYPE)
        if(type MATCHES "EXECUTABLE|SHARED_LIBRARY|MODULE_LIBRARY")
            target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/coverage/count_first.c)
        endif()
    endif()
    if(TEVALON_BASE_SANITIZE)
        # The libraries fast enough to run; the tests, which are most of the code, fast to build.
        get_target_property(type ${target} TYPE)
        if(type STREQUAL "EXECUTABLE")
            set(optimisation -O0)
        else()
            set(optimisation -O1)
        endif()
        target_compile_options(${target} PRIVATE
            -fsanitize=${TEVALON_BASE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer
            ${optimisation} -g1)
        # Instrumented, the standard library's regular expressions draw false alarms from GCC 12.
        target_compile_options(${target} PRIVATE
            $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
        target_link_options(${target} PRIVATE -fsanitize=${TEVALON_BASE_SANITIZE})
        if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND TEVALON_BASE_SANITIZE MATCHES "address"
                AND NOT TEVALON_BASE_SANITIZE MATCHES "fuzzer")
            tevalon_shared_sanitizer(${target})
        endif()
    endif()
endfunction()

# Clang's address sanitizer as GCC's is: a shared library, which the functions that the tests stand
# in for are passed on to, and a macro that says so.
function(tevalon_shared_sanitizer target)
    if(NOT DEFINED TEVALON_SANITIZER_FOLDER)
        execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-runtime-dir
            OUTPUT_VARIABLE folder OUTPUT_STRIP_TRAILING_WHITESPACE)
        set(TEVALON_SANITIZER_FOLDER ${folder} CACHE INTERNAL "Where the sanitizers' libraries are")
    endif()
    target_compile_definitions(${target} PRIVATE __SANITIZE_ADDRESS__=1)
    target_link_options(${target} PRIVATE
        -shared-libasan LINKER:-rpath,${TEVALON_SANITIZER_FOLDER})
endfunction()

# How our shared libraries are linked. Their threads and their threads' clean-up may outlive every
# user of theirs, so the code stays mapped once it is loaded; nothing is writable that need not be.
# A run path is the newer kind, which LD_LIBRARY_PATH is searched before.
function(tevalon_shared_library target)
    target_link_options(${target} PRIVATE
        LINKER:--as-needed LINKER:-Bsymbolic-functions LINKER:--enable-new-dtags
        LINKER:-z,nodelete LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack LINKER:-z,text)
    # Calls of our own exported functions need not go through the linker's tables.
    target_compile_options(${target} PRIVATE -fno-semantic-interposition
        $<$<CONFIG:MinSizeRel>:-ffunction-sections;-fdata-sections>)
    target_link_options(${target} PRIVATE $<$<CONFIG:MinSizeRel>:LINKER:--gc-sections>
        $<$<CONFIG:MinSizeRel>:LINKER:-Map=$<TARGET_FILE:${target}>.map>)
    if(NOT TEVALON_BASE_SANITIZE)
        target_link_options(${target} PRIVATE LINKER:--no-undefined)
    endif()
endfunction()
