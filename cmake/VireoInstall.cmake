# Installation: the components "runtime", "development" and "docs", and "app-runtime" and "app-development" of the
# toolkit; the package configuration for find_package(Vireo), and relocatable vireo.pc and vireo-app.pc.

include(CMakePackageConfigHelpers)

set(VIREO_CMAKE_DIR "${CMAKE_INSTALL_LIBDIR}/cmake/Vireo")

install(
    TARGETS vireo
    EXPORT VireoTargets
    RUNTIME COMPONENT runtime
    LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE COMPONENT development)
install(
    EXPORT VireoTargets
    NAMESPACE Vireo::
    DESTINATION "${VIREO_CMAKE_DIR}"
    COMPONENT development)
install(
    DIRECTORY "${PROJECT_SOURCE_DIR}/include/vireo" "${PROJECT_BINARY_DIR}/include/vireo"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
    COMPONENT development
    FILES_MATCHING
    PATTERN "*.h"
    REGEX "/vireo/app(\\.h|/.*)?$" EXCLUDE)

if(VIREO_BUILD_APP)
    if(CMAKE_SYSTEM_NAME STREQUAL "Linux" AND NOT VIREO_DEBIAN_PACKAGES)
        # It finds the core beside itself, wherever the tree stands.
        set_target_properties(vireo_app PROPERTIES INSTALL_RPATH "$ORIGIN")
    endif()
    install(
        TARGETS vireo_app
        EXPORT VireoAppTargets
        RUNTIME COMPONENT app-runtime
        LIBRARY COMPONENT app-runtime NAMELINK_COMPONENT app-development
        ARCHIVE COMPONENT app-development)
    install(
        EXPORT VireoAppTargets
        NAMESPACE Vireo::
        DESTINATION "${VIREO_CMAKE_DIR}"
        COMPONENT app-development)
    if(VIREO_BROTLI AND NOT VIREO_BUILD_SHARED)
        install(
            FILES "${CMAKE_CURRENT_LIST_DIR}/FindBrotliEncoder.cmake"
            DESTINATION "${VIREO_CMAKE_DIR}"
            COMPONENT app-development)
    endif()
    install(
        FILES "${PROJECT_SOURCE_DIR}/include/vireo/app.h"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/vireo"
        COMPONENT app-development)
    install(
        DIRECTORY "${PROJECT_SOURCE_DIR}/include/vireo/app" "${PROJECT_BINARY_DIR}/include/vireo/app"
        DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/vireo"
        COMPONENT app-development
        FILES_MATCHING
        PATTERN "*.h")
endif()

# ---- find_package(Vireo) ----

configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/VireoConfig.cmake.in"
                              "${PROJECT_BINARY_DIR}/cmake/VireoConfig.cmake" INSTALL_DESTINATION "${VIREO_CMAKE_DIR}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/cmake/VireoConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(
    FILES "${PROJECT_BINARY_DIR}/cmake/VireoConfig.cmake" "${PROJECT_BINARY_DIR}/cmake/VireoConfigVersion.cmake"
    DESTINATION "${VIREO_CMAKE_DIR}"
    COMPONENT development)
if(NOT VIREO_BUILD_SHARED)
    install(
        FILES "${CMAKE_CURRENT_LIST_DIR}/FindMicrohttpd.cmake"
        DESTINATION "${VIREO_CMAKE_DIR}"
        COMPONENT development)
endif()

# ---- pkg-config ----

# Told from the place of the file itself, so that an installed tree can be moved.
file(RELATIVE_PATH VIREO_PC_PREFIX "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" VIREO_PC_PREFIX "${VIREO_PC_PREFIX}")
file(RELATIVE_PATH VIREO_PC_LIBDIR "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_LIBDIR}")
file(RELATIVE_PATH VIREO_PC_INCLUDEDIR "${CMAKE_INSTALL_PREFIX}" "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
get_target_property(VIREO_PC_LIBRARY vireo OUTPUT_NAME)
if(NOT VIREO_PC_LIBRARY)
    set(VIREO_PC_LIBRARY vireo)
endif()
set(VIREO_PC_REQUIRES "libmicrohttpd >= ${VIREO_ENGINE_VERSION}, zlib")
if(WIN32)
    set(VIREO_PC_SYSTEM_LIBRARIES "-lws2_32 -lbcrypt")
    if(VIREO_STACK_LIBRARY)
        string(APPEND VIREO_PC_SYSTEM_LIBRARIES " -l${VIREO_STACK_LIBRARY}")
    endif()
else()
    string(APPEND VIREO_PC_REQUIRES ", libcrypto")
    set(VIREO_PC_SYSTEM_LIBRARIES "-pthread")
endif()
if(VIREO_TLS)
    string(APPEND VIREO_PC_REQUIRES ", gnutls")
endif()
# What a shared library has linked already, a static one leaves to whoever links it.
if(VIREO_BUILD_SHARED)
    set(VIREO_PC_REQUIRES "Requires.private: ${VIREO_PC_REQUIRES}")
    set(VIREO_PC_LIBS "-l${VIREO_PC_LIBRARY}")
else()
    set(VIREO_PC_REQUIRES "Requires: ${VIREO_PC_REQUIRES}")
    set(VIREO_PC_LIBS "-l${VIREO_PC_LIBRARY} ${VIREO_PC_SYSTEM_LIBRARIES}")
    set(VIREO_PC_DEFINITIONS " -DVIREO_STATIC")
endif()
configure_file("${CMAKE_CURRENT_LIST_DIR}/vireo.pc.in" "${PROJECT_BINARY_DIR}/vireo.pc" @ONLY)
install(
    FILES "${PROJECT_BINARY_DIR}/vireo.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    COMPONENT development)
if(VIREO_BUILD_APP)
    get_target_property(VIREO_PC_APP_LIBRARY vireo_app OUTPUT_NAME)
    set(VIREO_PC_APP_REQUIRES "vireo = ${PROJECT_VERSION}")
    if(NOT VIREO_BUILD_SHARED AND VIREO_BROTLI)
        string(APPEND VIREO_PC_APP_REQUIRES ", libbrotlienc")
    endif()
    configure_file("${CMAKE_CURRENT_LIST_DIR}/vireo-app.pc.in" "${PROJECT_BINARY_DIR}/vireo-app.pc" @ONLY)
    install(
        FILES "${PROJECT_BINARY_DIR}/vireo-app.pc"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
        COMPONENT app-development)
endif()

# ---- Documents ----

install(
    FILES "${PROJECT_SOURCE_DIR}/README.md" "${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${PROJECT_SOURCE_DIR}/SECURITY.md"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}"
    COMPONENT docs)
install(
    DIRECTORY "${PROJECT_SOURCE_DIR}/docs"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}"
    COMPONENT docs
    FILES_MATCHING
    PATTERN "*.md"
    PATTERN "*.svg"
    PATTERN site EXCLUDE)
# A service's, with few rights and a socket that outlives restarts, to be copied and changed.
install(
    FILES "${PROJECT_SOURCE_DIR}/examples/tutorial/step7/plants.service"
          "${PROJECT_SOURCE_DIR}/examples/tutorial/step7/plants.socket"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}/examples"
    COMPONENT docs)
# Debian's packages carry it as their "copyright".
if(NOT VIREO_DEBIAN_PACKAGES)
    install(
        FILES "${PROJECT_SOURCE_DIR}/LICENSE"
        DESTINATION "${CMAKE_INSTALL_DOCDIR}"
        COMPONENT docs)
endif()
# The site, if the target "docs" has built it.
install(
    DIRECTORY "${PROJECT_BINARY_DIR}/docs/html"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}"
    COMPONENT docs
    OPTIONAL)
