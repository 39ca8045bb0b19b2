#pragma once

// Names for clang's thread-safety attributes: which mutex guards what, and which functions take and release it. Clang's
// -Wthread-safety checks them; every other compiler sees nothing, and none makes other code for them.
#if defined(__clang__)
#define WY_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define WY_THREAD_SAFETY(attribute)
#endif

/// On a class: its objects are locks.
#define WY_CAPABILITY(name) WY_THREAD_SAFETY(capability(name))
/// On a class: its objects hold a lock from their constructor to their destructor.
#define WY_SCOPED_CAPABILITY WY_THREAD_SAFETY(scoped_lockable)
/// On data: read and written only while that lock is held.
#define WY_GUARDED_BY(lock) WY_THREAD_SAFETY(guarded_by(lock))
/// On a function: called only while that lock is held.
#define WY_REQUIRES(lock) WY_THREAD_SAFETY(requires_capability(lock))
/// On a function: called only while that lock is not held by the caller, since the function takes it.
#define WY_EXCLUDES(lock) WY_THREAD_SAFETY(locks_excluded(lock))
/// On a function: takes that lock, without an argument its own object.
#define WY_ACQUIRE(...) WY_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
/// On a function: releases that lock, without an argument its own object.
#define WY_RELEASE(...) WY_THREAD_SAFETY(release_capability(__VA_ARGS__))
/// On a function: not checked. The reason stands beside it.
#define WY_NO_THREAD_SAFETY_ANALYSIS WY_THREAD_SAFETY(no_thread_safety_analysis)
