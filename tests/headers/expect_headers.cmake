# Fails unless the headers below DIRECTORY are exactly HEADERS, a list joined by "|".

string(REPLACE "|" ";" HEADERS "${HEADERS}")
file(GLOB_RECURSE found RELATIVE ${DIRECTORY} ${DIRECTORY}/*)

set(missing ${found})
list(REMOVE_ITEM missing ${HEADERS})
set(gone ${HEADERS})
list(REMOVE_ITEM gone ${found})
if(missing)
    message(FATAL_ERROR "Not compiled alone: ${missing}")
endif()
if(gone)
    message(FATAL_ERROR "Listed, but not there: ${gone}")
endif()
