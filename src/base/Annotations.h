#pragma once
// The words with which a declaration tells Clang's thread-safety analysis which lock guards what.
// Other compilers see nothing.
//
//     kx_critical_section lock_;
//     std::vector<int> waiting_ GUARDED_BY(lock_);
//     void flush() REQUIRES(lock_);
//     void add(int) EXCLUDES(lock_);

#if defined(__clang__)
#define VORRIM_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VORRIM_THREAD_ANNOTATION(x)
#endif

// On a class: it is a lock, or a scope that holds one.
#define CAPABILITY(name) VORRIM_THREAD_ANNOTATION(capability(name))
#define SCOPED_CAPABILITY VORRIM_THREAD_ANNOTATION(scoped_lockable)

// On a field: which lock to hold for it, or for what it points to.
#define GUARDED_BY(lock) VORRIM_THREAD_ANNOTATION(guarded_by(lock))
#define PT_GUARDED_BY(lock) VORRIM_THREAD_ANNOTATION(pt_guarded_by(lock))

// On an operation: what the caller holds already, or must not hold.
#define REQUIRES(...) VORRIM_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define REQUIRES_SHARED(...) VORRIM_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define EXCLUDES(...) VORRIM_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))

// On an operation: what it takes and what it gives back.
#define ACQUIRE(...) VORRIM_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) VORRIM_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) VORRIM_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) VORRIM_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RELEASE_SHARED(...) VORRIM_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define RELEASE_GENERIC(...) VORRIM_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))

#define RETURN_CAPABILITY(lock) VORRIM_THREAD_ANNOTATION(lock_returned(lock))

// On an operation that the analysis cannot follow; the reason stands beside it.
#define NO_THREAD_SAFETY_ANALYSIS VORRIM_THREAD_ANNOTATION(no_thread_safety_analysis)
