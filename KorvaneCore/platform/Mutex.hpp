#pragma once

#include <mutex>

// Clang's thread-safety analysis: what a mutex guards is annotated, and a breach does not compile.
#if defined(__clang__)
#define KR_CAPABILITY(x) __attribute__((capability(x)))
#define KR_SCOPED_CAPABILITY __attribute__((scoped_lockable))
#define KR_GUARDED_BY(x) __attribute__((guarded_by(x)))
#define KR_REQUIRES(...) __attribute__((requires_capability(__VA_ARGS__)))
#define KR_EXCLUDES(...) __attribute__((locks_excluded(__VA_ARGS__)))
#define KR_ACQUIRE(...) __attribute__((acquire_capability(__VA_ARGS__)))
#define KR_RELEASE(...) __attribute__((release_capability(__VA_ARGS__)))
#else
#define KR_CAPABILITY(x)
#define KR_SCOPED_CAPABILITY
#define KR_GUARDED_BY(x)
#define KR_REQUIRES(...)
#define KR_EXCLUDES(...)
#define KR_ACQUIRE(...)
#define KR_RELEASE(...)
#endif

namespace Korvane {

class KR_CAPABILITY("mutex") Mutex {
public:
    void lock() KR_ACQUIRE() { mutex_.lock(); }

    void unlock() KR_RELEASE() { mutex_.unlock(); }

private:
    std::mutex mutex_;
};

class KR_SCOPED_CAPABILITY MutexLock {
public:
    explicit MutexLock(Mutex& mutex) KR_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }

    ~MutexLock() KR_RELEASE() { mutex_.unlock(); }

    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    Mutex& mutex_;
};

} // namespace Korvane
