// Mutexes, conditions and read-write locks over the POSIX ones.
//
// Every call's result is checked: a failure goes to fatalThreadError (ThreadFatalError.h) under
// the call's own name ("pthread_mutex_lock", "pthread_rwlock_wrlock", ...), which ends the
// process unless failures were switched off. The mutex and the read-write lock are constant
// initialised, so they may be globals used before main and during teardown. Both meet the
// standard Lockable requirements (the read-write lock also SharedLockable):
//
//   PthreadMutexImpl mutex;
//   std::lock_guard<PthreadMutexImpl> hold(mutex);
//
//   PthreadRWLock table_lock;
//   { ScopedReader reading(table_lock); ... }   // or std::shared_lock
//   { ScopedWriter writing(table_lock); ... }   // or std::unique_lock
#pragma once

#include <pthread.h>

#include "basicutil/timevalue/Timeval.h"

namespace basicutil {

// A mutex (not recursive), usable as a constant-initialised global.
class PthreadMutexImpl {
  public:
    constexpr PthreadMutexImpl() noexcept = default;
    ~PthreadMutexImpl();
    PthreadMutexImpl(const PthreadMutexImpl&) = delete;
    PthreadMutexImpl& operator=(const PthreadMutexImpl&) = delete;

    void lock() noexcept;                    // waits for the mutex
    [[nodiscard]] bool try_lock() noexcept;  // false when another thread holds it
    void unlock() noexcept;                  // by the thread that holds it

    // The POSIX mutex, for calls this class does not wrap.
    pthread_mutex_t* native() noexcept { return &_mutex; }

  private:
    pthread_mutex_t _mutex = PTHREAD_MUTEX_INITIALIZER;
};

// A condition on the clock that the process chose for waits (ThreadClockChoice.h), so that
// deadlines from Timespec::deadlineAfterMs never move with the wall clock. Creation failures
// raise ThreadException.
class PthreadCondition {
  public:
    PthreadCondition();
    ~PthreadCondition();
    PthreadCondition(const PthreadCondition&) = delete;
    PthreadCondition& operator=(const PthreadCondition&) = delete;

    // The caller holds `mutex`; wake-ups may be spurious, so wait in a loop on the predicate.
    void wait(PthreadMutexImpl& mutex) noexcept;
    // False once the deadline has passed.
    [[nodiscard]] bool waitUntil(PthreadMutexImpl& mutex, const Timespec& deadline) noexcept;
    void signal() noexcept;     // wakes one waiter
    void broadcast() noexcept;  // wakes every waiter

    // The POSIX condition, for calls this class does not wrap.
    pthread_cond_t* native() noexcept { return &_condition; }

  private:
    pthread_cond_t _condition;
};

// Many readers or one writer. Whether a waiting writer holds back new readers is the
// platform's choice; code must not depend on it.
class PthreadRWLock {
  public:
    constexpr PthreadRWLock() noexcept = default;
    ~PthreadRWLock();
    PthreadRWLock(const PthreadRWLock&) = delete;
    PthreadRWLock& operator=(const PthreadRWLock&) = delete;

    void lock() noexcept;                           // as the writer
    [[nodiscard]] bool try_lock() noexcept;         // as the writer; false when held
    void unlock() noexcept;                         // either kind of hold
    void lock_shared() noexcept;                    // as a reader
    [[nodiscard]] bool try_lock_shared() noexcept;  // as a reader; false when a writer holds it
    void unlock_shared() noexcept { unlock(); }     // a reader's hold

  private:
    pthread_rwlock_t _lock = PTHREAD_RWLOCK_INITIALIZER;
};

// Holds a PthreadRWLock as the writer for a scope.
class [[nodiscard]] ScopedWriter {
  public:
    // Waits for `lock` as the writer; released when the scope ends.
    explicit ScopedWriter(PthreadRWLock& lock) noexcept : _lock(lock) { _lock.lock(); }
    ~ScopedWriter() { _lock.unlock(); }
    ScopedWriter(const ScopedWriter&) = delete;
    ScopedWriter& operator=(const ScopedWriter&) = delete;

  private:
    PthreadRWLock& _lock;
};

// Holds a PthreadRWLock as a reader for a scope.
class [[nodiscard]] ScopedReader {
  public:
    // Waits for `lock` as a reader; released when the scope ends.
    explicit ScopedReader(PthreadRWLock& lock) noexcept : _lock(lock) { _lock.lock_shared(); }
    ~ScopedReader() { _lock.unlock_shared(); }
    ScopedReader(const ScopedReader&) = delete;
    ScopedReader& operator=(const ScopedReader&) = delete;

  private:
    PthreadRWLock& _lock;
};

}  // namespace basicutil
