# libuuid, which brings no CMake package of its own: Uuid_FOUND and the target Uuid::uuid.
find_path(Uuid_INCLUDE_DIR uuid/uuid.h)
find_library(Uuid_LIBRARY uuid)
mark_as_advanced(Uuid_INCLUDE_DIR Uuid_LIBRARY)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Uuid REQUIRED_VARS Uuid_LIBRARY Uuid_INCLUDE_DIR)

if(Uuid_FOUND AND NOT TARGET Uuid::uuid)
    add_library(Uuid::uuid UNKNOWN IMPORTED)
    set_target_properties(Uuid::uuid PROPERTIES
        IMPORTED_LOCATION ${Uuid_LIBRARY}
        INTERFACE_INCLUDE_DIRECTORIES ${Uuid_INCLUDE_DIR})
endif()
