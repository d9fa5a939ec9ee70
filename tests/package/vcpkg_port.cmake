# Runs the vcpkg port with stand-ins for vcpkg's functions. usage: cmake -D WORK=DIRECTORY -P vcpkg_port.cmake
cmake_minimum_required(VERSION 3.25)

get_filename_component(TREE "${CMAKE_CURRENT_LIST_DIR}/../.." ABSOLUTE)
set(PORT_DIR "${TREE}/packaging/vcpkg/vireo")

# ---- The manifest ----

file(READ "${PORT_DIR}/vcpkg.json" MANIFEST)
string(JSON PORT GET "${MANIFEST}" name)
string(JSON VERSION GET "${MANIFEST}" version)
string(JSON APP_NEEDS GET "${MANIFEST}" features app dependencies 0)
if(NOT APP_NEEDS STREQUAL "brotli")
    message(FATAL_ERROR "vcpkg.json's feature app needs ${APP_NEEDS}, and not brotli")
endif()
string(JSON ENGINE GET "${MANIFEST}" dependencies 0 name)
string(JSON ENGINE_VERSION GET "${MANIFEST}" dependencies 0 "version>=")
# 0.9.75 is safe where Debian has mended it, and this does not come from there.
if(NOT ENGINE STREQUAL "libmicrohttpd" OR ENGINE_VERSION VERSION_LESS 0.9.76)
    message(FATAL_ERROR "vcpkg.json needs ${ENGINE} ${ENGINE_VERSION}, and not libmicrohttpd 0.9.76 or newer")
endif()
file(READ "${TREE}/CMakeLists.txt" LISTS)
if(NOT LISTS MATCHES "VERSION ${VERSION}\n")
    message(FATAL_ERROR "vcpkg.json states version ${VERSION}, CMakeLists.txt another one")
endif()

# ---- The port ----

macro(run)
    execute_process(COMMAND ${ARGN} COMMAND_ERROR_IS_FATAL ANY OUTPUT_QUIET)
endmacro()
function(vcpkg_cmake_configure)
    cmake_parse_arguments(PARSE_ARGV 0 ARG "" "SOURCE_PATH" "OPTIONS")
    run("${CMAKE_COMMAND}" -S "${ARG_SOURCE_PATH}" -B "${WORK}/build" -G Ninja -D CMAKE_BUILD_TYPE=Release
        "-DCMAKE_INSTALL_PREFIX=${CURRENT_PACKAGES_DIR}" -D CMAKE_INSTALL_LIBDIR=lib
        "-DCMAKE_CXX_COMPILER_LAUNCHER=$ENV{VIREO_LAUNCHER}" ${ARG_OPTIONS})
endfunction()
function(vcpkg_cmake_install)
    run("${CMAKE_COMMAND}" --build "${WORK}/build" --target install)
endfunction()
function(vcpkg_cmake_config_fixup)
    cmake_parse_arguments(PARSE_ARGV 0 ARG "" "PACKAGE_NAME;CONFIG_PATH" "")
    file(RENAME "${CURRENT_PACKAGES_DIR}/${ARG_CONFIG_PATH}" "${CURRENT_PACKAGES_DIR}/share/${ARG_PACKAGE_NAME}")
endfunction()
function(vcpkg_fixup_pkgconfig)
endfunction()
function(vcpkg_copy_pdbs)
endfunction()

# Builds and installs the port with the linkage and the features given.
function(try_port VCPKG_LIBRARY_LINKAGE)
    set(FEATURES core ${ARGN})
    list(JOIN FEATURES "-" NAME)
    set(CURRENT_PACKAGES_DIR "${WORK}/${VCPKG_LIBRARY_LINKAGE}-${NAME}")
    file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}")
    set(CMAKE_CURRENT_LIST_DIR "${PORT_DIR}")
    include("${PORT_DIR}/portfile.cmake")
    set(FILES include/vireo/HttpServer.h include/vireo/export.h lib/pkgconfig/vireo.pc share/vireo/copyright
              share/Vireo/VireoConfig.cmake)
    set(APP_FILES include/vireo/app.h include/vireo/app/App.h include/vireo/app/export.h lib/pkgconfig/vireo-app.pc
                  share/Vireo/VireoAppTargets.cmake)
    if(VCPKG_LIBRARY_LINKAGE STREQUAL "dynamic")
        list(APPEND FILES lib/libvireo.so)
        list(APPEND APP_FILES lib/libvireo-app.so)
    else()
        list(APPEND FILES lib/libvireo.a share/Vireo/FindMicrohttpd.cmake)
        list(APPEND APP_FILES lib/libvireo-app.a share/Vireo/FindBrotliEncoder.cmake)
    endif()
    foreach(FILE IN LISTS FILES APP_FILES)
        set(IS_DUE TRUE)
        if(FILE IN_LIST APP_FILES AND NOT "app" IN_LIST FEATURES)
            set(IS_DUE FALSE)
        endif()
        set(IS_THERE FALSE)
        if(EXISTS "${CURRENT_PACKAGES_DIR}/${FILE}")
            set(IS_THERE TRUE)
        endif()
        if(NOT IS_THERE STREQUAL IS_DUE)
            message(FATAL_ERROR "the ${VCPKG_LIBRARY_LINKAGE} port ${NAME}: is ${FILE} there? ${IS_THERE}")
        endif()
    endforeach()
endfunction()

try_port(dynamic app)
# The core alone, of what was built for both.
try_port(dynamic)
try_port(static app)
