# Finds libmicrohttpd and defines Microhttpd::microhttpd.

find_path(Microhttpd_INCLUDE_DIR microhttpd.h)
find_library(Microhttpd_LIBRARY NAMES microhttpd libmicrohttpd libmicrohttpd-dll)

if(Microhttpd_INCLUDE_DIR)
    # The header states its version as 0xAABBCCDD, two decimal digits a byte.
    file(STRINGS "${Microhttpd_INCLUDE_DIR}/microhttpd.h" Microhttpd_VERSION_LINE REGEX "^#define MHD_VERSION 0x[0-9]+")
    if(Microhttpd_VERSION_LINE MATCHES "0x([0-9][0-9])([0-9][0-9])([0-9][0-9])")
        math(EXPR Microhttpd_MAJOR "${CMAKE_MATCH_1}")
        math(EXPR Microhttpd_MINOR "${CMAKE_MATCH_2}")
        math(EXPR Microhttpd_PATCH "${CMAKE_MATCH_3}")
        set(Microhttpd_VERSION "${Microhttpd_MAJOR}.${Microhttpd_MINOR}.${Microhttpd_PATCH}")
    endif()
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(
    Microhttpd
    REQUIRED_VARS Microhttpd_LIBRARY Microhttpd_INCLUDE_DIR
    VERSION_VAR Microhttpd_VERSION)

if(Microhttpd_FOUND AND NOT TARGET Microhttpd::microhttpd)
    add_library(Microhttpd::microhttpd UNKNOWN IMPORTED)
    set_target_properties(
        Microhttpd::microhttpd PROPERTIES IMPORTED_LOCATION "${Microhttpd_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES
                                                                                    "${Microhttpd_INCLUDE_DIR}")
endif()
mark_as_advanced(Microhttpd_INCLUDE_DIR Microhttpd_LIBRARY)
