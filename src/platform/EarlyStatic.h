// SPDX-License-Identifier: MIT
#pragma once

// VIREO_EARLY_STATIC in front of the definition of a static object lets it live longer than all ordinary ones of the
// program: made before them, destroyed after them. For what cannot be a local static because its declaration is fixed.
// With a compiler that has no such order it is an ordinary one. One definition in a file.
#if defined(_MSC_VER)
#    define VIREO_EARLY_STATIC __pragma(warning(disable : 4073)) __pragma(init_seg(lib))
#elif __has_cpp_attribute(gnu::init_priority)
#    define VIREO_EARLY_STATIC [[gnu::init_priority(101)]]
#else
#    define VIREO_EARLY_STATIC
#endif
