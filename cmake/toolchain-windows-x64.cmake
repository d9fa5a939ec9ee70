# Builds for 64-bit Windows with mingw-w64's compiler for POSIX threads, the only one of the two that has std::thread.
#
# VIREO_WINDOWS_ROOT is a directory with include/, lib/, bin/ and share/ of what Windows does not come with: the engine,
# and the header-only libraries of the examples. tools/windows-root.sh makes one. Nothing else of this machine is
# looked into, so that no header of it gets into the build.

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR AMD64)

set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VIREO_WINDOWS_ROOT)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
if(VIREO_WINDOWS_ROOT)
    list(PREPEND CMAKE_FIND_ROOT_PATH "${VIREO_WINDOWS_ROOT}")
endif()
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# zlib comes with the compiler's libraries, and becomes part of what links it: no further DLL has to be shipped.
set(ZLIB_USE_STATIC_LIBS ON)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Wine runs the tests; and lists them, but not before they are run, so that a build needs no Wine.
set(CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE PRE_TEST)
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../tools/windows-run.sh")
