// SPDX-License-Identifier: MIT
#pragma once

// Clang's thread-safety attributes; other compilers see nothing. `./dev lint` compiles with -Wthread-safety, so a
// member that is touched without the mutex named here is a build failure.
#if defined(__clang__)
#    define QL_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#    define QL_THREAD_ATTRIBUTE(x)
#endif

#define QL_CAPABILITY(name) QL_THREAD_ATTRIBUTE(capability(name))
#define QL_SCOPED_CAPABILITY QL_THREAD_ATTRIBUTE(scoped_lockable)
#define QL_GUARDED_BY(mutex) QL_THREAD_ATTRIBUTE(guarded_by(mutex))
#define QL_PT_GUARDED_BY(mutex) QL_THREAD_ATTRIBUTE(pt_guarded_by(mutex))
#define QL_REQUIRES(...) QL_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define QL_EXCLUDES(...) QL_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define QL_ACQUIRE(...) QL_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define QL_RELEASE(...) QL_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define QL_RETURN_CAPABILITY(x) QL_THREAD_ATTRIBUTE(lock_returned(x))
#define QL_NO_THREAD_SAFETY_ANALYSIS QL_THREAD_ATTRIBUTE(no_thread_safety_analysis)
