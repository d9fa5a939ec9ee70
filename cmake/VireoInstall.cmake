# Installation: the components "runtime", "development" and "docs", the package configuration for find_package(Vireo),
# and a relocatable vireo.pc.

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
    PATTERN "*.h")

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
    PATTERN "*.svg")
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
