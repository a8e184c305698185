// Machinery shared by the thread framework and the locks and estimates that live in each
// thread's per-thread state.
#pragma once

#include <atomic>

#include <pthread.h>

#include <string>

#include "basicutil/threads/DutyCycle.h"
#include "basicutil/threads/MutexByte_details.h"

namespace basicutil {

// The per-thread state. A created thread's lives on its own stack for the time of its frame;
// the main thread's belongs to its MainThread object.
struct ThreadScratch {
    ThreadScratch();
    ~ThreadScratch();  // the thread must not be asleep in a lock
    ThreadScratch(const ThreadScratch&) = delete;
    ThreadScratch& operator=(const ThreadScratch&) = delete;

    char text[512] = {};
    mutex_byte_details::WaitEntry wait;
    DutyCycleEstimate dutyCycle{DutyCycleEstimate::kWindowNs};
};

namespace thread_details {

// Creates a condition on the clock that the process chose for waits; raises ThreadException.
void initClockedCondition(pthread_cond_t& condition);

// "<caller>: about to throw a ThreadException: <call>: <strerror>; <n> threads active", and
// ". Trying to create <name>" when `creating` is given; logged and thrown.
[[noreturn]] void throwThreadException(const char* call, int errnum, const std::string& creating = {});

// A test seam: while above zero, each SIGUSR1 that reaches a thread is dropped (and counted down),
// as a signal that went missing would be; runInUnixSignalContext must still be served.
extern std::atomic<int> g_dropSignals;

}  // namespace thread_details
}  // namespace basicutil
