#pragma once

// Clang's thread-safety attributes under short names. A lock that carries them is checked at
// compile time (-Wthread-safety): a guarded field can only be touched with its lock held.

#define TEMBRA_CAPABILITY(name) __attribute__((capability(name)))
#define TEMBRA_SCOPED_CAPABILITY __attribute__((scoped_lockable))
#define TEMBRA_GUARDED_BY(lock) __attribute__((guarded_by(lock)))
#define TEMBRA_REQUIRES(...) __attribute__((requires_capability(__VA_ARGS__)))
#define TEMBRA_EXCLUDES(...) __attribute__((locks_excluded(__VA_ARGS__)))
#define TEMBRA_ACQUIRE(...) __attribute__((acquire_capability(__VA_ARGS__)))
#define TEMBRA_RELEASE(...) __attribute__((release_capability(__VA_ARGS__)))
#define TEMBRA_TRY_ACQUIRE(...) __attribute__((try_acquire_capability(__VA_ARGS__)))
#define TEMBRA_NO_THREAD_SAFETY_ANALYSIS __attribute__((no_thread_safety_analysis))
