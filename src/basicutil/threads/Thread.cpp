#include "basicutil/threads/Thread.h"

#include <semaphore.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <mutex>

#include "basicutil/log/Logger.h"
#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/platform/StartupOrder.h"
#include "basicutil/runtime/ThreadClockChoice.h"
#include "basicutil/runtime/ThreadFatalError.h"
#include "basicutil/threads/MutexByte.h"
#include "basicutil/threads/Thread_details.h"
#include "libzero/create-crash-dump.h"

namespace basicutil {

// The value of a thread-specific key, as the Thread it names.
#define THREAD_SPECIFIC_POINTER_GET(key) static_cast<Thread*>(pthread_getspecific(key))

namespace {

// --- Process-wide state ---------------------------------------------------------------------

constinit Thread* GLOBAL_THREAD_LIST_ROOT = nullptr;
constinit pthread_key_t activeThreads{};  // each thread's own Thread object
constinit std::atomic<bool> active_threads_key_created{false};
constinit std::atomic<bool> main_thread_created{false};
constinit std::atomic<bool> crash_alternate_stacks{true};  // Thread::setCrashAlternateStacks
constinit std::atomic<pthread_t> main_thread_handle{};     // stored before main_thread_created is set
constinit std::atomic<bool> have_already_started_threads{false};
constinit std::atomic<unsigned> thread_count{0};
constinit std::atomic<pid_t> main_thread_process_id{0};

// The signal-context hand-over. Requests are served one at a time (signal_callers). Each one
// writes its target and its actor (IN_SIGNAL_RUNNING), then publishes one word: a sequence
// number and a state. A handler acts only on the target thread, and only if it moves that very
// word from PENDING to RUNNING, so a stray SIGUSR1, early or late, runs nothing. A target that
// leaves its frame with its request still PENDING cancels it. Whoever ends a request (DONE or
// CANCELLED) posts the semaphore once: sem_post, unlike a condition variable, is safe in a
// signal handler.
//
// IN_SIGNAL_RUNNING is IN_SIGNAL_COMPLETE between requests and null while no main thread exists
// (its handler is then not expected to run).
class SignalRunComplete final : public Thread::InSignalContextActor {
    void run() override {}
} signal_run_complete;
Thread::InSignalContextActor* const IN_SIGNAL_COMPLETE = &signal_run_complete;
constinit std::atomic<Thread::InSignalContextActor*> IN_SIGNAL_RUNNING{nullptr};

enum SignalRequestState : std::uint64_t {
    REQUEST_PENDING = 1,
    REQUEST_RUNNING = 2,
    REQUEST_DONE = 3,
    REQUEST_CANCELLED = 4,
};
constexpr unsigned kStateBits = 3;
static_assert(REQUEST_CANCELLED < (1u << kStateBits));
constexpr std::uint64_t requestWord(std::uint64_t sequence, SignalRequestState state) {
    return sequence << kStateBits | state;
}
constexpr std::uint64_t stateOf(std::uint64_t word) {
    return word & ((1u << kStateBits) - 1);
}
constexpr std::uint64_t withState(std::uint64_t word, SignalRequestState state) {
    return (word & ~std::uint64_t{(1u << kStateBits) - 1}) | state;
}
constinit std::atomic<std::uint64_t> signal_request{0};  // sequence 0: none yet
constinit std::atomic<pthread_t> signal_target{};
static_assert(std::atomic<std::uint64_t>::is_always_lock_free && std::atomic<pthread_t>::is_always_lock_free,
              "the signal handler reads them");

using thread_details::throwThreadException;

FatalThreadContext fatalContext() noexcept;

struct ThreadGlobals {
    LoggerSimple log{"Thread", 0, 60, 100};
    pthread_mutex_t mutex;
    pthread_mutex_t signal_callers;
    sem_t signal_done;

    ThreadGlobals() {
        installFatalThreadContextProvider(&fatalContext);  // the channel exists from here on
        recordStartupEvent("+basicutil/Thread");
        if (int rc = pthread_mutex_init(&mutex, nullptr)) throwThreadException("pthread_mutex_init", rc);
        if (int rc = pthread_mutex_init(&signal_callers, nullptr))
            throwThreadException("pthread_mutex_init", rc);
        if (sem_init(&signal_done, 0, 0) != 0) throwThreadException("sem_init", errno);
        if (int rc = pthread_key_create(&activeThreads, nullptr))
            throwThreadException("pthread_key_create", rc);
        active_threads_key_created.store(true);
    }
    ~ThreadGlobals() {
        active_threads_key_created.store(false);
        checkThreadCall(pthread_key_delete(activeThreads), "pthread_key_delete");
        if (sem_destroy(&signal_done) != 0) checkThreadCall(errno, "sem_destroy");
        checkThreadCall(pthread_mutex_destroy(&signal_callers), "pthread_mutex_destroy");
        checkThreadCall(pthread_mutex_destroy(&mutex), "pthread_mutex_destroy");
        recordStartupEvent("-basicutil/Thread");
        installFatalThreadContextProvider(nullptr);  // the channel goes next
    }
};
ThreadGlobals globals VESTRA_STARTUP(STARTUP_THREAD);

FatalThreadContext fatalContext() noexcept {
    return {Thread::threadsActive(), Thread::currentThreadName(), &globals.log};
}

}  // namespace

Logger& threadChannel() noexcept {
    return globals.log;
}

void thread_details::throwThreadException(const char* call, int errnum, const std::string& creating) {
    std::string message;
    errno = errnum;
    appendPrintf(PrintfOutput(message), "%s: about to throw a ThreadException: %s: %m; %u threads active",
                 PrintfFormat::argumentList(Thread::currentThreadName(), call, Thread::threadsActive()),
                 PrintfFormatAtom::OPTION_ERRNO);
    if (!creating.empty()) appendf(message, ". Trying to create %s", creating);
    threadChannel().log(LOG_ERROR, message);
    throw ThreadException(message);
}

// Waits and elapsed times share one clock: the condition follows the process's clock choice.
void thread_details::initClockedCondition(pthread_cond_t& condition) {
    if (!useMonotonicClock()) {
        if (int rc = pthread_cond_init(&condition, nullptr)) throwThreadException("pthread_cond_init", rc);
        return;
    }
    pthread_condattr_t attributes;
    if (int rc = pthread_condattr_init(&attributes)) throwThreadException("pthread_condattr_init", rc);
    int rc = pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
    const char* failed = "pthread_condattr_setclock";
    if (rc == 0) {
        rc = pthread_cond_init(&condition, &attributes);
        failed = "pthread_cond_init";
    }
    checkThreadCall(pthread_condattr_destroy(&attributes), "pthread_condattr_destroy");
    if (rc != 0) throwThreadException(failed, rc);
}

ThreadScratch::ThreadScratch() = default;

ThreadScratch::~ThreadScratch() {
    VESTRA_ASSERT_TEXT(wait.waitingOn == nullptr, "pts._u.s.waitingOn == nullptr");
}

namespace {

// Holds the process-wide mutex for a scope.
class ProcessLock {
  public:
    ProcessLock() { checkThreadCall(pthread_mutex_lock(&globals.mutex), "pthread_mutex_lock"); }
    ~ProcessLock() { checkThreadCall(pthread_mutex_unlock(&globals.mutex), "pthread_mutex_unlock"); }
    ProcessLock(const ProcessLock&) = delete;
    ProcessLock& operator=(const ProcessLock&) = delete;
};

Thread* currentThreadObject() noexcept {
    return active_threads_key_created.load() ? THREAD_SPECIFIC_POINTER_GET(activeThreads) : nullptr;
}

// An attribute that cannot be set is logged and creation goes on.
void warnIfFailed(int rc, const char* message) {
    if (rc == 0) return;
    std::string text;
    errno = rc;
    appendPrintf(PrintfOutput(text), message, {}, PrintfFormatAtom::OPTION_ERRNO);
    threadChannel().log(LOG_WARN, text);
}

// Ends a request: its requester wakes once for it.
void finishSignalRequest(std::uint64_t word, SignalRequestState state) noexcept {
    signal_request.store(withState(word, state));
    if (sem_post(&globals.signal_done) != 0) std::abort();  // the requester would wait forever
}

void sigusr1_handler(int) {
    const int savedErrno = errno;
    VESTRA_ASSERT(IN_SIGNAL_RUNNING != nullptr);
    if (thread_details::g_dropSignals.load() > 0) {  // a test: this signal is as good as lost
        thread_details::g_dropSignals.fetch_sub(1);
        errno = savedErrno;
        return;
    }
    std::uint64_t word = signal_request.load();
    // The target read here belongs to this word: the next request cannot write its own before
    // this one has left PENDING, and then the exchange below fails.
    if (stateOf(word) == REQUEST_PENDING && pthread_equal(signal_target.load(), pthread_self()) != 0 &&
        signal_request.compare_exchange_strong(word, withState(word, REQUEST_RUNNING))) {
        IN_SIGNAL_RUNNING.load()->run();
        finishSignalRequest(word, REQUEST_DONE);
    }
    errno = savedErrno;
}

// Called with the process-wide mutex held by a thread leaving its frame: a request that it has
// not begun to serve will never be served.
void cancelSignalRequestTo(pthread_t thread) noexcept {
    std::uint64_t word = signal_request.load();
    if (stateOf(word) == REQUEST_PENDING && pthread_equal(signal_target.load(), thread) != 0 &&
        signal_request.compare_exchange_strong(word, withState(word, REQUEST_CANCELLED)))
        finishSignalRequest(word, REQUEST_CANCELLED);
}

}  // namespace

// --- Creation -------------------------------------------------------------------------------

ThreadAttributes ThreadAttributes::defaults() noexcept {
    return {platform::kSchedOther, 0, kDefaultStackBytes};
}

Thread::Thread(CreateTag, const ThreadAttributes& attributes, std::string name)
    : _name(std::move(name)), _priority(attributes.priority), _policy(attributes.policy) {
    thread_count.fetch_add(1);
    std::erase(_name, ' ');
    VESTRA_ASSERT(main_thread_created && "Thread created before main thread!");
    try {
        thread_details::initClockedCondition(_start_condition);
    } catch (...) {
        thread_count.fetch_sub(1);
        throw;
    }

    const Thread* creator = currentThreadObject();
    const bool defaultAttributes = _policy == platform::kSchedOther &&
                                   attributes.stackBytes == ThreadAttributes::kDefaultStackBytes &&
                                   (creator == nullptr || creator->_policy == platform::kSchedOther);
    _in_frame.store(true);  // the frame will run and clear it, whatever happens to the object
    int rc;
    if (defaultAttributes) {
        rc = pthread_create(&_handle, nullptr, &Thread::threadFrame, this);
    } else {
        pthread_attr_t attr;
        checkThreadCall(pthread_attr_init(&attr), "pthread_attr_init");
        warnIfFailed(pthread_attr_setstacksize(&attr, attributes.stackBytes),
                     "cannot override thread stack size: pthread_attr_setstacksize(): %m");
        warnIfFailed(pthread_attr_setinheritsched(&attr, PTHREAD_EXPLICIT_SCHED),
                     "cannot override thread inherit sched: pthread_attr_setinheritsched(): %m");
        warnIfFailed(pthread_attr_setschedpolicy(&attr, _policy),
                     "cannot override thread scheduling policy: pthread_attr_setschedpolicy(): %m");
        sched_param param{};
        param.sched_priority = _priority;
        warnIfFailed(pthread_attr_setschedparam(&attr, &param),
                     "cannot override thread scheduling parameter: pthread_attr_setschedparam(): %m");
        rc = pthread_create(&_handle, &attr, &Thread::threadFrame, this);
        checkThreadCall(pthread_attr_destroy(&attr), "pthread_attr_destroy");
    }
    if (rc != 0) {
        _in_frame.store(false);
        checkThreadCall(pthread_cond_destroy(&_start_condition), "pthread_cond_destroy");
        thread_count.fetch_sub(1);
        throwThreadException("pthread_create", rc, _name);
    }
    _has_posix_thread = true;
}

Thread::Thread(MainThreadTag) : _name("MainThread"), _policy(platform::kSchedOther) {
    VESTRA_ASSERT(!main_thread_created && "Main Thread created twice!");
    thread_count.fetch_add(1);
    try {
        thread_details::initClockedCondition(_start_condition);
    } catch (...) {
        thread_count.fetch_sub(1);
        throw;
    }
}

// --- The thread frame -------------------------------------------------------------------------

void* Thread::threadFrame(void* arg) {
    Thread* const instance = static_cast<Thread*>(arg);
    ThreadScratch scratch;
    instance->_scratchp.store(perThreadScratch(&scratch));
    if (crash_alternate_stacks.load()) instance->enterCrashReporting();

    // A name the platform refuses is worth a warning, never the process.
    if (int rc = platform::setThreadName(pthread_self(), instance->_name.c_str())) {
        std::string text;
        errno = rc;
        appendPrintf(PrintfOutput(text), "cannot name thread %s: pthread_setname_np(): %m",
                     PrintfFormat::argumentList(instance->_name), PrintfFormatAtom::OPTION_ERRNO);
        threadChannel().log(LOG_WARN, text);
    }
    instance->_thread_id.store(platform::currentThreadId());
    VESTRA_ASSERT(THREAD_SPECIFIC_POINTER_GET(activeThreads) == nullptr);
    checkThreadCall(pthread_setspecific(activeThreads, instance), "pthread_setspecific");

    {
        // Runs also when the body ends the thread with pthread_exit (a forced unwind).
        struct FrameExit {
            Thread* thread;
            bool listed = false;
            ~FrameExit() { thread->leaveFrame(listed); }
        } frameExit{instance};
        if (instance->waitForGo()) {
            // Not the links themselves: a newer thread's insertion rewrites them under the mutex.
            frameExit.listed = instance->_listed;
            instance->callMainAndDiscardTerminateException();
        }
    }

    VESTRA_ASSERT(instance->_scratchp == perThreadScratch(&scratch));
    {
        ProcessLock lock;  // dutyCycleEstimate reads the area under it
        instance->_scratchp.store(nullptr);
    }
    checkThreadCall(pthread_setspecific(activeThreads, nullptr), "pthread_setspecific");
    instance->leaveCrashReporting();
    return nullptr;
}

// Alternate stacks of threads that ended, kept for the next ones: mapping, guarding and unmapping
// a stack cost more than a thread's own start (unmapping flushes every processor's TLB).
struct AlternateStackCache {
    static constexpr std::size_t kKept = 64;
    PthreadMutexImpl lock;
    platform::AlternateStack stacks[kKept];
    std::size_t count = 0;

    bool take(platform::AlternateStack& out) noexcept {
        std::lock_guard<PthreadMutexImpl> hold(lock);
        if (count == 0) return false;
        out = stacks[--count];
        return true;
    }
    bool keep(const platform::AlternateStack& stack) noexcept {
        std::lock_guard<PthreadMutexImpl> hold(lock);
        if (count == kKept) return false;
        stacks[count++] = stack;
        return true;
    }
};
AlternateStackCache& alternateStackCache() noexcept {
    // Never destroyed: a thread may end after the static objects' destructors have run.
    static AlternateStackCache* const cache = new AlternateStackCache;
    return *cache;
}

// The crash signals reach this thread, on a stack of their own. A stack that cannot be mapped
// leaves the thread without one (a stack overflow then ends it without a log), said once.
void Thread::enterCrashReporting() noexcept {
    sigset_t faults;
    sigemptyset(&faults);
    for (int signo : platform::kCrashSignals) sigaddset(&faults, signo);
    checkThreadCall(pthread_sigmask(SIG_UNBLOCK, &faults, nullptr), "pthread_sigmask");
    if (platform::AlternateStack kept; alternateStackCache().take(kept)) {
        if (platform::useAlternateStack(kept) == 0) {
            _alternate_stack = kept;
            return;
        }
        if (const int rc = platform::unmapAlternateStack(kept)) fatalThreadError("munmap", rc);
    }
    if (const int rc = platform::mapAlternateStack(_alternate_stack)) {
        std::string text;
        errno = rc;
        appendPrintf(PrintfOutput(text), "thread %s has no alternate signal stack: %m",
                     PrintfFormat::argumentList(_name), PrintfFormatAtom::OPTION_ERRNO);
        threadChannel().log(LOG_WARN, text);
    }
}

void Thread::leaveCrashReporting() noexcept {
    if (_alternate_stack.mapping == nullptr) return;
    if (const int rc = platform::stopUsingAlternateStack(_alternate_stack))
        fatalThreadError("sigaltstack", rc);
    if (!alternateStackCache().keep(_alternate_stack)) {
        if (const int rc = platform::unmapAlternateStack(_alternate_stack)) fatalThreadError("munmap", rc);
    }
    _alternate_stack = platform::AlternateStack{};
}

void Thread::setCrashAlternateStacks(bool on) noexcept {
    crash_alternate_stacks.store(on);
}

// Parks until go(); false when the object is being torn down instead.
bool Thread::waitForGo() {
    ProcessLock lock;
    while (!_ready_to_run.load()) {
        checkThreadCall(pthread_cond_wait(&_start_condition, &globals.mutex), "pthread_cond_wait");
    }
    VESTRA_ASSERT_TEXT(_ready_to_run.load(), "thr->_ready_to_run.load()");
    if (_did_join.load() == ALREADY_DESTRUCTING) return false;
    if (_listed) addToGlobalThreadList();
    return true;
}

// Off the list, and out of reach of signal-context requests.
void Thread::leaveFrame(bool listed) {
    ProcessLock lock;
    if (listed) removeFromGlobalThreadList();
    _in_frame.store(false);
    cancelSignalRequestTo(pthread_self());
}

void Thread::callMainAndDiscardTerminateException() {
    VESTRA_ASSERT(!currentIsMainThread());
    try {
        main();
    } catch (const TerminateException& e) {
        runCleanups();
        threadChannel().log(LOG_INFO, std::string("caught Thread::TerminateException: ") + e.what());
    } catch (...) {
        runCleanups();
        throw;  // on to the terminate handler
    }
}

void Thread::runCleanups() noexcept {
    std::vector<std::unique_ptr<CleanupObject>> doomed;
    doomed.swap(_cleanups);
    doomed.clear();
}

// --- The process-wide list (callers hold the mutex, or take it) ----------------------------------

void Thread::addToGlobalThreadList() {
    VESTRA_ASSERT(_global_thread_list_prevp == nullptr);
    VESTRA_ASSERT(_global_thread_list_next == nullptr);
    Thread* const n = GLOBAL_THREAD_LIST_ROOT;
    _global_thread_list_prevp = &GLOBAL_THREAD_LIST_ROOT;
    _global_thread_list_next = n;
    GLOBAL_THREAD_LIST_ROOT = this;
    if (n != nullptr) {
        VESTRA_ASSERT(n->_global_thread_list_prevp == &GLOBAL_THREAD_LIST_ROOT);
        n->_global_thread_list_prevp = &_global_thread_list_next;
    }
}

void Thread::removeFromGlobalThreadList() {
    VESTRA_ASSERT(_global_thread_list_prevp != nullptr);
    VESTRA_ASSERT(*_global_thread_list_prevp == this);
    *_global_thread_list_prevp = _global_thread_list_next;
    if (Thread* const n = _global_thread_list_next) {
        VESTRA_ASSERT(n->_global_thread_list_prevp == &_global_thread_list_next);
        n->_global_thread_list_prevp = _global_thread_list_prevp;
    }
    _global_thread_list_prevp = nullptr;
    _global_thread_list_next = nullptr;
}

void Thread::excludeFromGlobalThreadList() {
    ProcessLock lock;
    VESTRA_ASSERT(!_ready_to_run.load());
    _listed = false;
}

void Thread::writeCrashState(::crash_dump* out) const noexcept {
    crash_dump_text(out, "Thread: \"");
    crash_dump_bytes(out, _name.data(), _name.size());
    crash_dump_text(out, "\", did_join=");
    crash_dump_dec(out, _did_join.load());
    if (_ready_to_run.load()) crash_dump_text(out, ", ready_to_run");
    if (main_thread_created.load() && pthread_equal(_handle, main_thread_handle.load()) != 0)
        crash_dump_text(out, ", main_thread");
    crash_dump_text(out, ", token=");
    crash_dump_udec(out, _thread_id.load(), 0);
    const FatalThreadErrorRecord fatal = fatalThreadErrorRecord();
    if (std::string_view(fatal.call) != "none") {
        crash_dump_text(out, "; Dying on fatal thread error: ");
        crash_dump_text(out, fatal.call);
        crash_dump_text(out, ", error ");
        crash_dump_dec(out, fatal.error);
        crash_dump_text(out, ", in ");
        crash_dump_text(out, fatal.threadName);
    }
}

// A thread asleep in a byte lock: the lock and its state. Read while the thread may wake: the
// pointer is read once, and the byte it names outlives any sleeper on it.
void Thread::writeCrashLockState(::crash_dump* out) const noexcept {
    const ThreadScratch* scratch = _scratchp.load();
    if (scratch == nullptr) return;
    const MutexByte* byte = scratch->wait.waitingOn;
    if (byte == nullptr) return;
    char state[MutexByte::kStateTextBytes];
    MutexByte::stateText(byte->get(std::memory_order_relaxed), state);
    crash_dump_text(out, "    asleep in byte lock 0x");
    crash_dump_hex(out, reinterpret_cast<std::uintptr_t>(byte), 0);
    crash_dump_text(out, ": ");
    crash_dump_text(out, state);
    crash_dump_char(out, '\n');
}

unsigned Thread::writeCrashStates(::crash_dump* out, unsigned waitMilliseconds,
                                  void (*afterEach)(::crash_dump*, const Thread&, void*),
                                  void* arg) noexcept {
    if (!active_threads_key_created.load()) {
        // Before the list's statics are made, or after they are gone (a crash in an exit handler):
        // its lock is no lock, and its entries are gone.
        crash_dump_text(out, "(no thread list: the process is starting or ending)\n");
        return 0;
    }
    // Tried, never waited for: the thread holding it may be the one that crashed, or be stopped.
    bool locked = false;
    for (unsigned waited = 0;; ++waited) {
        if (pthread_mutex_trylock(&globals.mutex) == 0) {
            locked = true;
            break;
        }
        if (waited >= waitMilliseconds) break;
        struct timespec millisecond = {0, 1000000};
        nanosleep(&millisecond, nullptr);  // an early wake only shortens the wait
    }
    if (!locked) crash_dump_text(out, "(the thread list's lock is held: the list is read as it is)\n");
    unsigned count = 0;
    for (const Thread* t = GLOBAL_THREAD_LIST_ROOT; t != nullptr && count < 100000;
         t = t->_global_thread_list_next) {
        t->writeCrashState(out);
        crash_dump_char(out, '\n');
        t->writeCrashLockState(out);
        if (afterEach != nullptr) afterEach(out, *t, arg);
        ++count;
    }
    if (locked) static_cast<void>(pthread_mutex_unlock(&globals.mutex));  // ours: it cannot fail
    return count;
}

void Thread::iterateEachRunning(iterate_running_threads_callback& callback) {
    ProcessLock lock;
    for (Thread* t = GLOBAL_THREAD_LIST_ROOT; t != nullptr; t = t->_global_thread_list_next)
        callback.visit(*t);
}

// --- Start and join -------------------------------------------------------------------------

void Thread::go() {
    ProcessLock lock;
    VESTRA_ASSERT(!_ready_to_run.load());
    _ready_to_run.store(true);
    have_already_started_threads.store(true);
    checkThreadCall(pthread_cond_broadcast(&_start_condition), "pthread_cond_broadcast");
}

void Thread::join() {
    {
        ProcessLock lock;
        VESTRA_ASSERT(_did_join.load() == DID_NOT_JOIN);
        VESTRA_ASSERT(_ready_to_run.load());  // never released by go(): it would wait for ever
        _did_join.store(JOINED);
    }
    checkThreadCall(pthread_join(_handle, nullptr), "pthread_join");
}

void Thread::joinEvenIfUnstarted() {
    bool unstarted = false;
    {
        ProcessLock lock;
        VESTRA_ASSERT(_did_join.load() == DID_NOT_JOIN);
        if (!_ready_to_run.load()) {
            unstarted = true;
            _ready_to_run.store(true);
            _did_join.store(ALREADY_DESTRUCTING);
            checkThreadCall(pthread_cond_broadcast(&_start_condition), "pthread_cond_broadcast");
        } else {
            _did_join.store(JOINED);
        }
    }
    checkThreadCall(pthread_join(_handle, nullptr), "pthread_join");
    if (unstarted) {
        ProcessLock lock;
        VESTRA_ASSERT(_did_join.load() == ALREADY_DESTRUCTING);
        _did_join.store(JOINED);
    }
}

Thread::~Thread() {
    if (!_cleanups.empty()) {
        if (main_thread_created) VESTRA_ASSERT(currentIsMainThread());  // left-overs die on the main thread
        runCleanups();
    }
    bool reap = false;
    {
        ProcessLock lock;
        if (_did_join.load() != JOINED) {
            // A thread released by go() must have been joined before its object goes away.
            VESTRA_ASSERT(_did_join.load() == DID_NOT_JOIN);
            VESTRA_ASSERT(!_ready_to_run.load());
            _ready_to_run.store(true);
            _did_join.store(ALREADY_DESTRUCTING);
            checkThreadCall(pthread_cond_broadcast(&_start_condition), "pthread_cond_broadcast");
            reap = _has_posix_thread;
        }
    }
    // The parked thread still reads this object on its way out: wait for it.
    if (reap) checkThreadCall(pthread_join(_handle, nullptr), "pthread_join");
    checkThreadCall(pthread_cond_destroy(&_start_condition), "pthread_cond_destroy");
    thread_count.fetch_sub(1);
}

// --- The main thread --------------------------------------------------------------------------

MainThread::MainThread() : Thread(MainThreadTag{}) {
    _handle = pthread_self();
    main_thread_handle.store(_handle);
    main_thread_created.store(true);
    _in_frame.store(true);  // it stands for the calling thread, which is running
    _scratch = std::make_unique<ThreadScratch>();
    _scratchp.store(_scratch.get());
    _thread_id.store(platform::currentThreadId());
    VESTRA_ASSERT(THREAD_SPECIFIC_POINTER_GET(activeThreads) == nullptr);
    checkThreadCall(pthread_setspecific(activeThreads, this), "pthread_setspecific");

    struct sigaction action {};
    action.sa_handler = &sigusr1_handler;
    action.sa_flags = SA_RESTART;  // interrupted reads (fgets) resume instead of failing
    if (sigemptyset(&action.sa_mask) != 0) fatalThreadError("sigemptyset", errno);
    IN_SIGNAL_RUNNING.store(IN_SIGNAL_COMPLETE);  // idle, before the handler can run
    if (sigaction(SIGUSR1, &action, nullptr) != 0) fatalThreadError("sigaction", errno);
    main_thread_process_id.store(getpid());
}

MainThread::~MainThread() {
    VESTRA_ASSERT(THREAD_SPECIFIC_POINTER_GET(activeThreads) == this);
    leaveFrame(false);  // the calling thread is the one it stands for
    {
        ProcessLock lock;  // dutyCycleEstimate reads the area under it
        _scratchp.store(nullptr);
    }
    _scratch.reset();
    checkThreadCall(pthread_setspecific(activeThreads, nullptr), "pthread_setspecific");
    main_thread_created.store(false);
    // Back to "no main thread" only when no request is under way (one would be a misuse: every
    // other Thread must be gone before the main thread's object).
    Thread::InSignalContextActor* idle = IN_SIGNAL_COMPLETE;
    IN_SIGNAL_RUNNING.compare_exchange_strong(idle, nullptr);
}

void EmptyMainThread::main() {
    std::abort();
}

// --- Questions about the caller ---------------------------------------------------------------

void Thread::assertNotMultithreadedYet() {
    VESTRA_ASSERT(!have_already_started_threads);
}

bool Thread::mainThreadCreated() noexcept {
    return main_thread_created.load();
}

bool Thread::haveAlreadyStartedThreads() noexcept {
    return have_already_started_threads.load();
}

Thread* Thread::current() noexcept {
    return currentThreadObject();
}

bool Thread::dutyCycleEstimate(double& estimate) const {
    ProcessLock lock;  // keeps the area from going away
    ThreadScratch* scratch = _scratchp.load();
    if (scratch == nullptr) return false;
    DutyCycleEstimate& dc = scratch->dutyCycle;
    std::lock_guard<PthreadMutexImpl> hold(dc.lock());
    if (!dc.claimed()) return false;
    estimate = dc.estimateAt(Timespec::monotonicNow());
    return true;
}

bool Thread::currentIsMainThread() noexcept {
    return main_thread_created.load() && pthread_equal(pthread_self(), main_thread_handle.load()) != 0;
}

bool Thread::isCurrent() const noexcept {
    return (_has_posix_thread || currentIsMainThread()) && pthread_equal(pthread_self(), _handle) != 0;
}

const char* Thread::currentThreadName() noexcept {
    if (const Thread* t = currentThreadObject()) return t->_name.c_str();
    return currentIsMainThread() ? "MainThread" : "Unknown Thread";
}

unsigned Thread::threadsActive() noexcept {
    return thread_count.load();
}

// --- Signal context -------------------------------------------------------------------------

namespace {
constexpr long kResendMs = 100;  // a request still pending this long is signalled again
}  // namespace

std::atomic<int> thread_details::g_dropSignals{0};

bool Thread::runInUnixSignalContext(InSignalContextActor* actor) {
    VESTRA_ASSERT(actor != nullptr);
    VESTRA_ASSERT(!isCurrent());
    VESTRA_ASSERT(actor != IN_SIGNAL_COMPLETE);
    checkThreadCall(pthread_mutex_lock(&globals.signal_callers), "pthread_mutex_lock");
    bool sent = false;
    {
        // Under the mutex a thread cannot leave its frame: once it is seen inside, the request
        // ends either served or cancelled by the thread's way out.
        ProcessLock lock;
        if (_in_frame.load()) {
            const std::uint64_t word =
                requestWord((signal_request.load() >> kStateBits) + 1, REQUEST_PENDING);
            signal_target.store(_handle);
            IN_SIGNAL_RUNNING.store(actor);
            signal_request.store(word);
            const int rc = pthread_kill(_handle, SIGUSR1);
            checkThreadCall(rc, "pthread_kill");
            // A failure that is not fatal withdraws the request, unless a stray SIGUSR1 has
            // already begun to serve it: then its end is awaited like any other.
            std::uint64_t pending = word;
            sent = rc == 0 ||
                   !signal_request.compare_exchange_strong(pending, withState(word, REQUEST_CANCELLED));
        }
    }
    bool ran = false;
    if (sent) {
        // A signal can go missing for a while (a sanitizer's runtime holds back one that comes as
        // the target enters a blocking call, and may never hand it over): while the request is
        // still pending after kResendMs, it is sent again. A second SIGUSR1 finds the request
        // taken or ended and runs nothing.
        for (;;) {
            struct timespec deadline {};
            if (clock_gettime(CLOCK_REALTIME, &deadline) != 0) fatalThreadError("clock_gettime", errno);
            deadline.tv_nsec += kResendMs * 1000000L;
            deadline.tv_sec += deadline.tv_nsec / 1000000000L;
            deadline.tv_nsec %= 1000000000L;
            if (sem_timedwait(&globals.signal_done, &deadline) == 0) break;
            if (errno == EINTR) continue;
            if (errno != ETIMEDOUT) fatalThreadError("sem_timedwait", errno);
            ProcessLock lock;  // the target stays in its frame while it is signalled
            if (stateOf(signal_request.load()) == REQUEST_PENDING && _in_frame.load())
                checkThreadCall(pthread_kill(_handle, SIGUSR1), "pthread_kill");
        }
        ran = stateOf(signal_request.load()) == REQUEST_DONE;
        IN_SIGNAL_RUNNING.store(IN_SIGNAL_COMPLETE);
    }
    checkThreadCall(pthread_mutex_unlock(&globals.signal_callers), "pthread_mutex_unlock");
    return ran;
}

// --- State dump -----------------------------------------------------------------------------

void Thread::dumpState(std::string& out) const {
    appendf(out, "Thread: \"%s\", did_join=%d", _name, _did_join.load());
    if (_ready_to_run.load()) out += ", ready_to_run";
    if (main_thread_created.load() && pthread_equal(_handle, main_thread_handle.load()) != 0)
        out += ", main_thread";
    appendf(out, ", token=%llu", static_cast<unsigned long long>(_thread_id.load()));
    // Every thread's dump carries it: the crash log shows it whichever thread is read first.
    const FatalThreadErrorRecord fatal = fatalThreadErrorRecord();
    if (std::string_view(fatal.call) != "none")
        appendf(out, "; Dying on fatal thread error: %s, error %d, in %s", fatal.call, fatal.error,
                fatal.threadName);
}

}  // namespace basicutil
