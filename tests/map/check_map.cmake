# Fails unless the map in CONTRIBUTING.md names every public header that is for clients, and every
# source, and nothing that is not there.

cmake_policy(VERSION 3.16)

file(STRINGS ${ROOT}/CONTRIBUTING.md rows REGEX "^\\| `")

set(named_headers)
set(named_sources)
foreach(row IN LISTS rows)
    string(REGEX MATCHALL "`[^`]+`" paths "${row}")
    string(REPLACE "`" "" paths "${paths}")
    foreach(path IN LISTS paths)
        if(path MATCHES "_test\\.cpp$|_misuse\\.cpp$")
            if(NOT EXISTS ${ROOT}/tests/${path})
                message(FATAL_ERROR "The map names a test that is not there: ${path}")
            endif()
        elseif(path MATCHES "\\.cpp$")
            list(APPEND named_sources ${path})
        elseif(path MATCHES "\\.h$")
            list(APPEND named_headers ${path})
        endif()
    endforeach()
endforeach()

# Each of FOUND is named, and each that is named is found.
function(compare what found named)
    foreach(path IN LISTS ${found})
        if(NOT path IN_LIST ${named})
            message(FATAL_ERROR "The map does not name the ${what} ${path}")
        endif()
    endforeach()
    foreach(path IN LISTS ${named})
        if(NOT path IN_LIST ${found})
            message(FATAL_ERROR "The map names a ${what} that is not there: ${path}")
        endif()
    endforeach()
endfunction()

file(GLOB_RECURSE headers RELATIVE ${ROOT}/pubinc/base ${ROOT}/pubinc/base/*.h)
# Umbrellas stand beside their family's folder.
foreach(header IN LISTS headers)
    string(REGEX REPLACE "\\.h$" "" family ${header})
    if(IS_DIRECTORY ${ROOT}/pubinc/base/${family})
        list(REMOVE_ITEM headers ${header})
    endif()
endforeach()
list(FILTER headers EXCLUDE REGEX "internal/")
list(REMOVE_ITEM headers
    export.h  # What the others are declared with.
    # Forward to internal/, for those who included them there.
    synchronization/guarded_mutex.h synchronization/system_error.h)
compare(header headers named_headers)

file(GLOB_RECURSE sources RELATIVE ${ROOT}/src ${ROOT}/src/*.cpp)
list(REMOVE_DUPLICATES named_sources)
compare(source sources named_sources)
