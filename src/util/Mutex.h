#pragma once
// Mutexes and locks that a compiler checks. A member names the mutex that guards it, and a function the mutex that its
// caller holds. `make locks` (clang's thread-safety analysis) refuses code that does otherwise:
//
//   class Counter {
//   public:
//       void add() VORNA_EXCLUDES(mutex)
//       {
//           util::Lock lock(mutex);
//           ++count;
//       }
//
//   private:
//       util::Mutex mutex;
//       int count VORNA_GUARDED_BY(mutex) = 0;
//   };
//
// With g++ the macros are empty and the classes are the standard ones, inline.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <shared_mutex>
#include <utility>

#if defined(__clang__)
#define VORNA_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VORNA_THREAD_ANNOTATION(x)
#endif

// ---- of classes
#define VORNA_CAPABILITY(name) VORNA_THREAD_ANNOTATION(capability(name))
#define VORNA_SCOPED_CAPABILITY VORNA_THREAD_ANNOTATION(scoped_lockable)
// ---- of members: what guards the member, or what the member points to
#define VORNA_GUARDED_BY(mutex) VORNA_THREAD_ANNOTATION(guarded_by(mutex))
#define VORNA_PT_GUARDED_BY(mutex) VORNA_THREAD_ANNOTATION(pt_guarded_by(mutex))
// ---- of a mutex: the order in which it is taken with others
#define VORNA_ACQUIRED_BEFORE(...) VORNA_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define VORNA_ACQUIRED_AFTER(...) VORNA_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
// ---- of functions: what the caller holds, or must not hold
#define VORNA_REQUIRES(...) VORNA_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define VORNA_REQUIRES_SHARED(...) VORNA_THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define VORNA_EXCLUDES(...) VORNA_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
// ---- of functions: what they lock, unlock, or return
#define VORNA_ACQUIRE(...) VORNA_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VORNA_ACQUIRE_SHARED(...) VORNA_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define VORNA_RELEASE(...) VORNA_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define VORNA_RELEASE_SHARED(...) VORNA_THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define VORNA_RELEASE_GENERIC(...) VORNA_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
#define VORNA_TRY_ACQUIRE(...) VORNA_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define VORNA_TRY_ACQUIRE_SHARED(...) VORNA_THREAD_ANNOTATION(try_acquire_shared_capability(__VA_ARGS__))
#define VORNA_ASSERT_HELD(...) VORNA_THREAD_ANNOTATION(assert_capability(__VA_ARGS__))
#define VORNA_RETURN_CAPABILITY(mutex) VORNA_THREAD_ANNOTATION(lock_returned(mutex))
// ---- the exception, with the reason beside it: what the analysis can't follow (lock and unlock in different calls)
#define VORNA_NO_THREAD_SAFETY_ANALYSIS VORNA_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace util {

/// std::mutex. Threads: thread-safe, like all classes of this header.
class VORNA_CAPABILITY("mutex") Mutex {
public:
    void lock() VORNA_ACQUIRE() { mutex.lock(); }
    void unlock() VORNA_RELEASE() { mutex.unlock(); }
    bool try_lock() VORNA_TRY_ACQUIRE(true) { return mutex.try_lock(); }

private:
    friend class ConditionVariable;
    std::mutex mutex;
};

/// std::recursive_mutex: its owner may lock it again. The analysis sees no depth, so lock it once in a function.
class VORNA_CAPABILITY("mutex") RecursiveMutex {
public:
    void lock() VORNA_ACQUIRE() { mutex.lock(); }
    void unlock() VORNA_RELEASE() { mutex.unlock(); }
    bool try_lock() VORNA_TRY_ACQUIRE(true) { return mutex.try_lock(); }

private:
    std::recursive_mutex mutex;
};

/// std::shared_mutex: one writer (util::Lock) or several readers (util::SharedLock).
class VORNA_CAPABILITY("shared mutex") SharedMutex {
public:
    void lock() VORNA_ACQUIRE() { mutex.lock(); }
    void unlock() VORNA_RELEASE() { mutex.unlock(); }
    bool try_lock() VORNA_TRY_ACQUIRE(true) { return mutex.try_lock(); }
    void lock_shared() VORNA_ACQUIRE_SHARED() { mutex.lock_shared(); }
    void unlock_shared() VORNA_RELEASE_SHARED() { mutex.unlock_shared(); }
    bool try_lock_shared() VORNA_TRY_ACQUIRE_SHARED(true) { return mutex.try_lock_shared(); }

private:
    std::shared_mutex mutex;
};

/// Holds a mutex for a scope; unlock() and lock() interrupt that. Threads: one lock belongs to one thread.
template <class M>
class VORNA_SCOPED_CAPABILITY [[nodiscard]] Lock {
public:
    explicit Lock(M& locked) VORNA_ACQUIRE(locked) : mutex(locked) { mutex.lock(); }
    /// Takes over a mutex that the caller has locked, as after a try_lock().
    Lock(M& locked, std::adopt_lock_t) VORNA_REQUIRES(locked) : mutex(locked) {}
    ~Lock() VORNA_RELEASE()
    {
        if (held)
            mutex.unlock();
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

    void unlock() VORNA_RELEASE()
    {
        mutex.unlock();
        held = false;
    }
    void lock() VORNA_ACQUIRE()
    {
        mutex.lock();
        held = true;
    }

private:
    M& mutex;
    bool held = true;
};

/// Holds a mutex for a scope as one of its readers.
template <class M>
class VORNA_SCOPED_CAPABILITY [[nodiscard]] SharedLock {
public:
    explicit SharedLock(M& locked) VORNA_ACQUIRE_SHARED(locked) : mutex(locked) { mutex.lock_shared(); }
    ~SharedLock() VORNA_RELEASE_GENERIC() { mutex.unlock_shared(); }
    SharedLock(const SharedLock&) = delete;
    SharedLock& operator=(const SharedLock&) = delete;

private:
    M& mutex;
};

/// std::condition_variable over a util::Mutex. A wait releases the mutex while it sleeps, and holds it again when it
/// returns. Without a predicate it may return for no reason. A predicate runs with the mutex held; the analysis checks
/// a lambda on its own, so one that reads guarded members is marked: [this]() VORNA_REQUIRES(mutex) { return ready; }
class ConditionVariable {
public:
    void notifyOne() noexcept { condition.notify_one(); }
    void notifyAll() noexcept { condition.notify_all(); }

    void wait(Mutex& mutex) VORNA_REQUIRES(mutex)
    {
        Adopted lock(mutex.mutex);
        condition.wait(lock.lock);
    }
    template <class Predicate>
    void wait(Mutex& mutex, Predicate predicate) VORNA_REQUIRES(mutex)
    {
        Adopted lock(mutex.mutex);
        condition.wait(lock.lock, std::move(predicate));
    }
    template <class Rep, class Period>
    std::cv_status waitFor(Mutex& mutex, std::chrono::duration<Rep, Period> time) VORNA_REQUIRES(mutex)
    {
        Adopted lock(mutex.mutex);
        return condition.wait_for(lock.lock, time);
    }
    /// False when the time was up and the predicate still false.
    template <class Rep, class Period, class Predicate>
    bool waitFor(Mutex& mutex, std::chrono::duration<Rep, Period> time, Predicate predicate) VORNA_REQUIRES(mutex)
    {
        Adopted lock(mutex.mutex);
        return condition.wait_for(lock.lock, time, std::move(predicate));
    }
    template <class Clock, class Duration>
    std::cv_status waitUntil(Mutex& mutex, std::chrono::time_point<Clock, Duration> end) VORNA_REQUIRES(mutex)
    {
        Adopted lock(mutex.mutex);
        return condition.wait_until(lock.lock, end);
    }
    template <class Clock, class Duration, class Predicate>
    bool waitUntil(Mutex& mutex, std::chrono::time_point<Clock, Duration> end, Predicate predicate)
        VORNA_REQUIRES(mutex)
    {
        Adopted lock(mutex.mutex);
        return condition.wait_until(lock.lock, end, std::move(predicate));
    }

private:
    /// The caller's lock in the form that the standard wants; the caller keeps it, also when a predicate throws.
    struct Adopted {
        explicit Adopted(std::mutex& mutex) : lock(mutex, std::adopt_lock) {}
        ~Adopted() { lock.release(); }
        std::unique_lock<std::mutex> lock;
    };
    std::condition_variable condition;
};

} // namespace util
