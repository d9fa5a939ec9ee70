# What this project compiles its own code with. Nothing here reaches a target that links Vireo::vireo.

add_library(vireo_build_options INTERFACE)
target_compile_features(vireo_build_options INTERFACE cxx_std_20)

if(WIN32)
    # <windows.h> comes in with the engine's header as well.
    target_compile_definitions(vireo_build_options INTERFACE NOMINMAX)
endif()
if(MSVC)
    target_compile_options(vireo_build_options INTERFACE /W4 /permissive- /utf-8 /Zc:__cplusplus)
    if(VIREO_WARNINGS_AS_ERRORS)
        target_compile_options(vireo_build_options INTERFACE /WX)
    endif()
else()
    target_compile_options(
        vireo_build_options
        INTERFACE -Wall
                  -Wextra
                  -Wpedantic
                  -Wshadow
                  -Wconversion
                  -Wsign-conversion
                  -Wcast-align
                  -Wcast-qual
                  -Wformat-security
                  -Wnon-virtual-dtor
                  -Woverloaded-virtual
                  -Wnull-dereference
                  -Wold-style-cast
                  -Wimplicit-fallthrough
                  -Wextra-semi
                  -Wundef)
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        target_compile_options(vireo_build_options INTERFACE -Wthread-safety)
    endif()
    if(VIREO_WARNINGS_AS_ERRORS)
        target_compile_options(vireo_build_options INTERFACE -Werror)
    endif()
    if(VIREO_SANITIZE)
        target_compile_options(vireo_build_options INTERFACE -fsanitize=${VIREO_SANITIZE} -fno-omit-frame-pointer
                                                             -fno-sanitize-recover=all)
        target_link_options(vireo_build_options INTERFACE -fsanitize=${VIREO_SANITIZE})
    endif()
endif()

set(CMAKE_CXX_EXTENSIONS OFF)
