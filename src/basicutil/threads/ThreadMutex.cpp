#include "basicutil/threads/ThreadMutex.h"

#include <cerrno>

#include "basicutil/runtime/ThreadFatalError.h"
#include "basicutil/threads/Thread_details.h"

namespace basicutil {

PthreadMutexImpl::~PthreadMutexImpl() {
    checkThreadCall(pthread_mutex_destroy(&_mutex), "pthread_mutex_destroy");
}

void PthreadMutexImpl::lock() noexcept {
    checkThreadCall(pthread_mutex_lock(&_mutex), "pthread_mutex_lock");
}

bool PthreadMutexImpl::try_lock() noexcept {
    const int rc = pthread_mutex_trylock(&_mutex);
    if (rc == EBUSY) return false;
    checkThreadCall(rc, "pthread_mutex_trylock");
    return rc == 0;
}

void PthreadMutexImpl::unlock() noexcept {
    checkThreadCall(pthread_mutex_unlock(&_mutex), "pthread_mutex_unlock");
}

PthreadCondition::PthreadCondition() {
    thread_details::initClockedCondition(_condition);
}

PthreadCondition::~PthreadCondition() {
    checkThreadCall(pthread_cond_destroy(&_condition), "pthread_cond_destroy");
}

void PthreadCondition::wait(PthreadMutexImpl& mutex) noexcept {
    checkThreadCall(pthread_cond_wait(&_condition, mutex.native()), "pthread_cond_wait");
}

bool PthreadCondition::waitUntil(PthreadMutexImpl& mutex, const Timespec& deadline) noexcept {
    const struct timespec until = deadline.toPlatform();
    const int rc = pthread_cond_timedwait(&_condition, mutex.native(), &until);
    if (rc == ETIMEDOUT) return false;
    checkThreadCall(rc, "pthread_cond_timedwait");
    return true;
}

void PthreadCondition::signal() noexcept {
    checkThreadCall(pthread_cond_signal(&_condition), "pthread_cond_signal");
}

void PthreadCondition::broadcast() noexcept {
    checkThreadCall(pthread_cond_broadcast(&_condition), "pthread_cond_broadcast");
}

PthreadRWLock::~PthreadRWLock() {
    checkThreadCall(pthread_rwlock_destroy(&_lock), "pthread_rwlock_destroy");
}

void PthreadRWLock::lock() noexcept {
    checkThreadCall(pthread_rwlock_wrlock(&_lock), "pthread_rwlock_wrlock");
}

bool PthreadRWLock::try_lock() noexcept {
    const int rc = pthread_rwlock_trywrlock(&_lock);
    if (rc == EBUSY) return false;
    checkThreadCall(rc, "pthread_rwlock_trywrlock");
    return rc == 0;
}

void PthreadRWLock::unlock() noexcept {
    checkThreadCall(pthread_rwlock_unlock(&_lock), "pthread_rwlock_unlock");
}

void PthreadRWLock::lock_shared() noexcept {
    checkThreadCall(pthread_rwlock_rdlock(&_lock), "pthread_rwlock_rdlock");
}

bool PthreadRWLock::try_lock_shared() noexcept {
    const int rc = pthread_rwlock_tryrdlock(&_lock);
    if (rc == EBUSY) return false;
    checkThreadCall(rc, "pthread_rwlock_tryrdlock");
    return rc == 0;
}

}  // namespace basicutil
