# An overlay port: it builds the source tree that it stands in.
get_filename_component(SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)

string(COMPARE EQUAL "${VCPKG_LIBRARY_LINKAGE}" "dynamic" VIREO_BUILD_SHARED)
if("app" IN_LIST FEATURES)
    set(APP_OPTIONS -DVIREO_BUILD_APP=ON -DVIREO_BROTLI=ON)
else()
    set(APP_OPTIONS -DVIREO_BUILD_APP=OFF)
endif()

vcpkg_cmake_configure(
    SOURCE_PATH "${SOURCE_PATH}"
    OPTIONS "-DVIREO_BUILD_SHARED=${VIREO_BUILD_SHARED}" -DVIREO_BUILD_TESTS=OFF -DVIREO_BUILD_EXAMPLES=OFF
            -DVIREO_INSTALL=ON -DVIREO_TLS=OFF ${APP_OPTIONS})
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME Vireo CONFIG_PATH lib/cmake/Vireo)
vcpkg_fixup_pkgconfig()
vcpkg_copy_pdbs()

file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share"
     "${CURRENT_PACKAGES_DIR}/share/doc")
file(INSTALL "${SOURCE_PATH}/LICENSE" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}" RENAME copyright)
