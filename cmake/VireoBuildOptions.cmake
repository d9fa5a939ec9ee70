# What this project compiles its own code with. Nothing here reaches a target that links Vireo::vireo.

add_library(vireo_build_options INTERFACE)
target_compile_features(vireo_build_options INTERFACE cxx_std_20)

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

# What makes a flaw harder to use, as distributions have it in their own flags. Lengths are looked at only in an optimised
# build, for that takes what the optimiser knows. A sanitizer looks itself, and what MinGW can do it does anyway.
if(VIREO_HARDENING AND MSVC)
    target_compile_options(vireo_build_options INTERFACE /sdl /guard:cf)
    target_link_options(vireo_build_options INTERFACE /guard:cf /CETCOMPAT)
elseif(VIREO_HARDENING AND NOT MINGW AND NOT VIREO_SANITIZE)
    include(CheckCXXCompilerFlag)
    foreach(FLAG -fstack-protector-strong -fstack-clash-protection -fcf-protection)
        string(MAKE_C_IDENTIFIER "VIREO_HAS${FLAG}" HAS_FLAG)
        check_cxx_compiler_flag(${FLAG} ${HAS_FLAG})
        if(${HAS_FLAG})
            target_compile_options(vireo_build_options INTERFACE ${FLAG})
        endif()
    endforeach()
    target_compile_options(vireo_build_options
                           INTERFACE "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
    if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
        target_link_options(vireo_build_options INTERFACE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
    endif()
endif()

set(CMAKE_CXX_EXTENSIONS OFF)
