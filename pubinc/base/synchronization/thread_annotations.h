// thread_annotations.h: states which lock guards what, for clang's -Wthread-safety.
//
// Other compilers see nothing of it. The macros work on tevalon::base::Mutex and the guards
// beside this header; the standard library's mutex carries no annotations here.

#ifndef BASE_SYNCHRONIZATION_THREAD_ANNOTATIONS_H
#define BASE_SYNCHRONIZATION_THREAD_ANNOTATIONS_H

#if defined(__clang__)
#define TEVALON_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define TEVALON_THREAD_ANNOTATION(x)
#endif

/// On a class: it is a lock.
#define TEVALON_CAPABILITY(name) TEVALON_THREAD_ANNOTATION(capability(name))
/// On a class: it holds a lock from its construction to its destruction.
#define TEVALON_SCOPED_CAPABILITY TEVALON_THREAD_ANNOTATION(scoped_lockable)

/// On a member: read and written only with the named lock held.
#define TEVALON_GUARDED_BY(mutex) TEVALON_THREAD_ANNOTATION(guarded_by(mutex))
/// On a pointer member: what it points to is read and written only with the lock held.
#define TEVALON_PT_GUARDED_BY(mutex) TEVALON_THREAD_ANNOTATION(pt_guarded_by(mutex))

/// On a lock: where both are held, the other one was taken first.
#define TEVALON_ACQUIRED_AFTER(...) TEVALON_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))

/// On a function: to be called with the lock held.
#define TEVALON_REQUIRES(...) TEVALON_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/// On a function: to be called without the lock held, because it takes it.
#define TEVALON_EXCLUDES(...) TEVALON_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
/// On a function: returns with the lock held.
#define TEVALON_ACQUIRE(...) TEVALON_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
/// On a function: returns with the lock held where it returns what is given first.
#define TEVALON_TRY_ACQUIRE(...) TEVALON_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
/// On a function: releases the lock.
#define TEVALON_RELEASE(...) TEVALON_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// On a function: its body is not checked. Say why beside it.
#define TEVALON_NO_THREAD_SAFETY_ANALYSIS TEVALON_THREAD_ANNOTATION(no_thread_safety_analysis)
/// On a guard's constructor: what it locks carries no annotations. The analysis takes a guard
/// without any annotated constructor for one that holds nothing it could release.
#define TEVALON_UNCHECKED_MUTEX TEVALON_NO_THREAD_SAFETY_ANALYSIS

#endif  // BASE_SYNCHRONIZATION_THREAD_ANNOTATIONS_H
