# Compiles SOURCE twice: as it stands, which must succeed, and with the macro DEFINE, which must
# fail with a message that matches ERROR. The first makes sure that it is the macro's code, and
# nothing else, that does not compile.
#
# COMPILER, SOURCE, DEFINE, ERROR; FLAGS and INCLUDES are lists joined by "|".

if(NOT COMPILER)
    message(STATUS "Skipped: the compiler of this test is not installed.")
    return()
endif()

string(REPLACE "|" ";" FLAGS "${FLAGS}")
string(REPLACE "|" ";" INCLUDES "${INCLUDES}")
list(TRANSFORM INCLUDES PREPEND -I)
set(command ${COMPILER} -std=c++17 -fsyntax-only -Wall ${FLAGS} ${INCLUDES})

execute_process(COMMAND ${command} ${SOURCE} RESULT_VARIABLE result ERROR_VARIABLE errors)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "Does not compile without ${DEFINE} either:\n${errors}")
endif()

execute_process(COMMAND ${command} -D${DEFINE} ${SOURCE} RESULT_VARIABLE result
                ERROR_VARIABLE errors)
if(result EQUAL 0)
    message(FATAL_ERROR "Compiles with ${DEFINE}, and should not.")
endif()
if(NOT errors MATCHES "${ERROR}")
    message(FATAL_ERROR "Fails with ${DEFINE}, but not with '${ERROR}':\n${errors}")
endif()
