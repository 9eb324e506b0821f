#pragma once

// Clang's thread-safety attributes under short names; other compilers see nothing.

#if defined(__clang__)
#define CA_ATTRIBUTE(x) __attribute__((x))
#else
#define CA_ATTRIBUTE(x)
#endif

#define CA_CAPABILITY(name) CA_ATTRIBUTE(capability(name))
#define CA_SCOPED_CAPABILITY CA_ATTRIBUTE(scoped_lockable)
#define CA_GUARDED_BY(lock) CA_ATTRIBUTE(guarded_by(lock))
#define CA_REQUIRES(...) CA_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define CA_ACQUIRE(...) CA_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define CA_RELEASE(...) CA_ATTRIBUTE(release_capability(__VA_ARGS__))
#define CA_NO_THREAD_SAFETY_ANALYSIS CA_ATTRIBUTE(no_thread_safety_analysis)
