# Bundles the script of the page; run when something that it is made of has changed.
#
#   cmake -DSOURCE=FOLDER -DWORK=FOLDER -DNPM=PROGRAM -DESBUILD=PROGRAM [-DREQUIRED=ON] -P make_page.cmake
#
# Makes WORK/page.js, with the licences of what is in it at its beginning and in page.licences. Where
# that cannot be done, says so, and leaves neither; unless it is required that is no failure: all else
# works without it.
cmake_policy(VERSION 3.16)

function(give_up why)
    file(REMOVE ${WORK}/page.js ${WORK}/page.licences)
    if(REQUIRED)
        message(FATAL_ERROR "The script of tevalon-trace's page cannot be made: ${why}")
    endif()
    message(WARNING "tevalon-trace --html will not work, for its script cannot be made: ${why}")
    file(WRITE ${WORK}/done "")
endfunction()

if(NOT NPM OR NOT ESBUILD)
    give_up("npm or esbuild is missing: apt-get install npm esbuild")
    return()
endif()

file(REMOVE_RECURSE ${WORK}/bundle)
file(GLOB sources ${SOURCE}/*.js ${SOURCE}/package.json ${SOURCE}/package-lock.json ${SOURCE}/.npmrc)
file(COPY ${sources} DESTINATION ${WORK}/bundle)
execute_process(
    COMMAND ${NPM} ci --ignore-scripts --fetch-retries=1 --fetch-timeout=30000
    WORKING_DIRECTORY ${WORK}/bundle
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output TIMEOUT 180)
if(NOT result EQUAL 0)
    give_up("npm ci failed (${result}):\n${output}")
    return()
endif()

# Whatever is bundled is delivered, so its licence is too.
file(GLOB packages LIST_DIRECTORIES true ${WORK}/bundle/node_modules/*)
set(licences "")
foreach(package IN LISTS packages)
    get_filename_component(name ${package} NAME)
    if(NOT IS_DIRECTORY ${package} OR name MATCHES "^[.]")
        continue()
    endif()
    file(GLOB files ${package}/LICENSE ${package}/LICENSE.* ${package}/LICENCE ${package}/license)
    if(NOT files)
        give_up("${name} has no licence")
        return()
    endif()
    list(GET files 0 licence)
    file(READ ${licence} text)
    string(STRIP "${text}" text)
    string(APPEND licences "${name}\n\n${text}\n\n")
endforeach()
string(REPLACE "*/" "* /" comment "${licences}")

execute_process(
    COMMAND ${ESBUILD} main.js --bundle --minify --format=iife --charset=ascii
        --target=chrome100,firefox113,safari16 --log-level=warning --outfile=bundled.js
    WORKING_DIRECTORY ${WORK}/bundle
    RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
    give_up("esbuild failed (${result}):\n${output}")
    return()
endif()
file(READ ${WORK}/bundle/bundled.js script)
file(WRITE ${WORK}/page.licences "${licences}")
file(WRITE ${WORK}/page.js "/* This script has these within:\n\n${comment}*/\n${script}")
file(REMOVE_RECURSE ${WORK}/bundle)
file(WRITE ${WORK}/done "")
