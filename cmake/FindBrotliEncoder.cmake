# Finds libbrotlienc and defines BrotliEncoder::BrotliEncoder.

find_path(BrotliEncoder_INCLUDE_DIR brotli/encode.h)
find_library(BrotliEncoder_LIBRARY NAMES brotlienc brotlienc-static)
# What a static one leaves to whoever links it.
find_library(BrotliEncoder_COMMON_LIBRARY NAMES brotlicommon brotlicommon-static)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(BrotliEncoder REQUIRED_VARS BrotliEncoder_LIBRARY BrotliEncoder_INCLUDE_DIR)

if(BrotliEncoder_FOUND AND NOT TARGET BrotliEncoder::BrotliEncoder)
    add_library(BrotliEncoder::BrotliEncoder UNKNOWN IMPORTED)
    set_target_properties(
        BrotliEncoder::BrotliEncoder PROPERTIES IMPORTED_LOCATION "${BrotliEncoder_LIBRARY}"
                                                INTERFACE_INCLUDE_DIRECTORIES "${BrotliEncoder_INCLUDE_DIR}")
    if(BrotliEncoder_LIBRARY MATCHES "\\.(a|lib)$" AND BrotliEncoder_COMMON_LIBRARY)
        set_target_properties(BrotliEncoder::BrotliEncoder PROPERTIES INTERFACE_LINK_LIBRARIES
                                                                      "${BrotliEncoder_COMMON_LIBRARY}")
    endif()
endif()
mark_as_advanced(BrotliEncoder_INCLUDE_DIR BrotliEncoder_LIBRARY BrotliEncoder_COMMON_LIBRARY)
