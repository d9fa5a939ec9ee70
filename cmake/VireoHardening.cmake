# What makes a flaw in the code harder to use, as distributions have it in their own flags, for the libraries and the
# programs that go with them. Nothing here reaches a target that links Vireo::vireo. Sanitizers look themselves.

add_library(vireo_hardening INTERFACE)
if(NOT VIREO_HARDENING OR VIREO_SANITIZE)
    return()
endif()

include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckLinkerFlag)
include(CheckPIESupported)

# Programs may be loaded anywhere, as libraries are.
check_pie_supported()
set_target_properties(vireo_hardening PROPERTIES INTERFACE_POSITION_INDEPENDENT_CODE ON)

# Of these a builder has chosen himself, a distribution for example, what stands in his flags.
get_property(VIREO_IS_MULTI_CONFIG GLOBAL PROPERTY GENERATOR_IS_MULTI_CONFIG)
if(VIREO_IS_MULTI_CONFIG)
    set(VIREO_CONFIGURATION RELEASE)
else()
    string(TOUPPER "${CMAKE_BUILD_TYPE}" VIREO_CONFIGURATION)
endif()
set(VIREO_CHOSEN_FLAGS "${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_${VIREO_CONFIGURATION}}")
set(VIREO_CHOSEN_LINK_FLAGS "${CMAKE_SHARED_LINKER_FLAGS} ${CMAKE_EXE_LINKER_FLAGS}")

# Compiles with the flag where the compiler knows it, unless CHOSEN, a regular expression, is in the builder's flags.
function(vireo_harden_code FLAG CHOSEN)
    string(MAKE_C_IDENTIFIER "VIREO_HAS${FLAG}" HAS_FLAG)
    check_cxx_compiler_flag("${FLAG}" ${HAS_FLAG})
    if(${HAS_FLAG} AND NOT VIREO_CHOSEN_FLAGS MATCHES "${CHOSEN}")
        target_compile_options(vireo_hardening INTERFACE "${FLAG}")
    endif()
endfunction()

# The same for the linker.
function(vireo_harden_linking FLAG CHOSEN)
    string(MAKE_C_IDENTIFIER "VIREO_HAS_${FLAG}" HAS_FLAG)
    check_linker_flag(CXX "LINKER:${FLAG}" ${HAS_FLAG})
    if(${HAS_FLAG} AND NOT VIREO_CHOSEN_LINK_FLAGS MATCHES "${CHOSEN}")
        target_link_options(vireo_hardening INTERFACE "LINKER:${FLAG}")
    endif()
endfunction()

# Has the C library look at the lengths that it is given. That takes what the optimiser knows, so that without it there
# would be a warning; level 3 takes a newer compiler and a newer C library than 2.
function(vireo_check_lengths)
    set(CMAKE_TRY_COMPILE_CONFIGURATION "${VIREO_CONFIGURATION}")
    foreach(LEVEL 3 2)
        set(IS_POSSIBLE "VIREO_CHECKS_LENGTHS_${LEVEL}_${VIREO_CONFIGURATION}")
        check_cxx_source_compiles(
            "#ifdef _FORTIFY_SOURCE
            #error The builder has chosen.
            #endif
            #define _FORTIFY_SOURCE ${LEVEL}
            #include <cstdlib>
            #if !defined(__USE_FORTIFY_LEVEL) || __USE_FORTIFY_LEVEL != ${LEVEL}
            #error This is not what comes of it.
            #endif
            int main() {}"
            ${IS_POSSIBLE})
        if(${IS_POSSIBLE} AND NOT VIREO_CHOSEN_FLAGS MATCHES "_FORTIFY_SOURCE")
            target_compile_options(vireo_hardening INTERFACE $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=${LEVEL}>)
            break()
        endif()
    endforeach()
endfunction()

if(MSVC)
    target_compile_options(vireo_hardening INTERFACE /sdl /guard:cf)
    target_link_options(vireo_hardening INTERFACE /guard:cf $<$<EQUAL:${CMAKE_SIZEOF_VOID_P},8>:/CETCOMPAT>)
elseif(MINGW)
    vireo_harden_code(-fstack-protector-strong "-f(no-)?stack-protector")
    foreach(FLAG dynamicbase nxcompat high-entropy-va)
        vireo_harden_linking(--${FLAG} "--(disable-)?${FLAG}")
    endforeach()
    # Where the functions are that look at the stack.
    set(VIREO_STACK_LIBRARY ssp)
else()
    vireo_harden_code(-fstack-protector-strong "-f(no-)?stack-protector")
    vireo_harden_code(-fstack-clash-protection "-f(no-)?stack-clash-protection")
    vireo_harden_code(-fcf-protection "-fcf-protection")
    vireo_check_lengths()
    vireo_harden_linking(-z,relro "-z,(no)?relro")
    vireo_harden_linking(-z,now "-z,(now|lazy)")
    vireo_harden_linking(-z,noexecstack "-z,(no)?execstack")
endif()
