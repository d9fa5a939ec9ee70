# Debian packages by `cpack -G DEB`, one for each component of the installation: libvireo3, libvireo-dev and vireo-doc, and
# of the toolkit libvireo-app3 and libvireo-app-dev. Build with the preset "package": it installs below /usr, where Debian wants it.

set(VIREO_DEBIAN_RELEASE 1)
set(VIREO_DEBIAN_runtime libvireo${PROJECT_VERSION_MAJOR})
set(VIREO_DEBIAN_development libvireo-dev)
set(VIREO_DEBIAN_docs vireo-doc)
set(VIREO_DEBIAN_COMPONENTS runtime development docs)
if(VIREO_BUILD_APP)
    set(VIREO_DEBIAN_app-runtime libvireo-app${PROJECT_VERSION_MAJOR})
    set(VIREO_DEBIAN_app-development libvireo-app-dev)
    list(APPEND VIREO_DEBIAN_COMPONENTS app-runtime app-development)
endif()

# Debian wants in each package who has written it and what has changed.
string(TIMESTAMP VIREO_DEBIAN_DATE "%a, %d %b %Y 00:00:00 +0000" UTC)
set(VIREO_DEBIAN_MAINTAINER "Vireo authors <vireo@example.org>")
file(CONFIGURE OUTPUT "${PROJECT_BINARY_DIR}/packaging/changelog.Debian" @ONLY NEWLINE_STYLE UNIX CONTENT
"vireo (@PROJECT_VERSION@-@VIREO_DEBIAN_RELEASE@) unstable; urgency=medium

  * Built from the source of Vireo @PROJECT_VERSION@, revision @VIREO_VERSION_REVISION@.

 -- @VIREO_DEBIAN_MAINTAINER@  @VIREO_DEBIAN_DATE@
")
find_program(GZIP_PROGRAM gzip REQUIRED)
foreach(TEXT "${PROJECT_BINARY_DIR}/packaging/changelog.Debian" "${PROJECT_SOURCE_DIR}/CHANGELOG.md")
    get_filename_component(NAME "${TEXT}" NAME)
    string(REPLACE "CHANGELOG.md" "changelog" NAME "${NAME}")
    set(COMPRESSED "${PROJECT_BINARY_DIR}/packaging/${NAME}.gz")
    execute_process(COMMAND "${GZIP_PROGRAM}" -9nc "${TEXT}" OUTPUT_FILE "${COMPRESSED}" COMMAND_ERROR_IS_FATAL ANY)
    list(APPEND VIREO_DEBIAN_TEXTS "${COMPRESSED}")
endforeach()
foreach(COMPONENT IN LISTS VIREO_DEBIAN_COMPONENTS)
    install(
        FILES "${PROJECT_SOURCE_DIR}/packaging/debian/copyright" ${VIREO_DEBIAN_TEXTS}
        DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/doc/${VIREO_DEBIAN_${COMPONENT}}"
        COMPONENT ${COMPONENT})
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME vireo)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
# Each package's description has its own first line.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "${VIREO_DEBIAN_MAINTAINER}")
set(CPACK_PACKAGE_VENDOR "Vireo authors")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL ${VIREO_DEBIAN_COMPONENTS})
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_APP-RUNTIME_DEPENDS runtime)
set(CPACK_COMPONENT_APP-DEVELOPMENT_DEPENDS app-runtime development)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                                WORLD_EXECUTE)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SOURCE vireo)
set(CPACK_DEBIAN_PACKAGE_RELEASE ${VIREO_DEBIAN_RELEASE})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${VIREO_DEBIAN_runtime})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/debian/triggers")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "embeddable HTTP/1.1 server library with WebSocket support
Vireo lets an application serve HTTP and WebSockets from inside its own
process, on threads of its own, through body streams with back-pressure.

This package contains the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${VIREO_DEBIAN_development})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# What vireo.pc requires.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libmicrohttpd-dev (>= ${VIREO_ENGINE_VERSION}), libssl-dev, zlib1g-dev")
if(VIREO_TLS)
    string(APPEND CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS ", libgnutls28-dev")
endif()
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS ${VIREO_DEBIAN_docs})
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "development files of the Vireo HTTP server library
Vireo lets an application serve HTTP and WebSockets from inside its own
process, on threads of its own, through body streams with back-pressure.

This package contains the headers and the files for CMake and pkg-config.")

set(CPACK_DEBIAN_APP-RUNTIME_PACKAGE_NAME "${VIREO_DEBIAN_app-runtime}")
set(CPACK_DEBIAN_APP-RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_APP-RUNTIME_PACKAGE_SHLIBDEPS ON)
# Where the core is, whose package is not installed where this one is made.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/src")
set(CPACK_DEBIAN_APP-RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_SOURCE_DIR}/packaging/debian/triggers")
set(CPACK_DEBIAN_APP-RUNTIME_DESCRIPTION
    "toolkit of the Vireo HTTP server library
Vireo's toolkit serves routes on workers: bodies, forms, files, compression,
server-sent events, WebSockets, sessions, and an orderly start and stop.

This package contains the shared library.")

set(CPACK_DEBIAN_APP-DEVELOPMENT_PACKAGE_NAME "${VIREO_DEBIAN_app-development}")
set(CPACK_DEBIAN_APP-DEVELOPMENT_PACKAGE_SECTION libdevel)
# What vireo/app/Json.h includes.
set(CPACK_DEBIAN_APP-DEVELOPMENT_PACKAGE_SUGGESTS "nlohmann-json3-dev, ${VIREO_DEBIAN_docs}")
set(CPACK_DEBIAN_APP-DEVELOPMENT_DESCRIPTION
    "development files of the Vireo HTTP server library's toolkit
Vireo's toolkit serves routes on workers: bodies, forms, files, compression,
server-sent events, WebSockets, sessions, and an orderly start and stop.

This package contains the headers and the files for CMake and pkg-config.")

set(CPACK_DEBIAN_DOCS_PACKAGE_NAME ${VIREO_DEBIAN_docs})
set(CPACK_DEBIAN_DOCS_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCS_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCS_DESCRIPTION
    "documentation of the Vireo HTTP server library
Vireo lets an application serve HTTP and WebSockets from inside its own
process, on threads of its own, through body streams with back-pressure.

This package contains the API reference and the guides.")
include(CPack)
