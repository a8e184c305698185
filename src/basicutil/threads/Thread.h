// Threads with a strict life cycle.
//
// Constructing a Thread creates the operating-system thread at once, parked. go() releases it to
// run main() inside a frame that installs its per-thread state; it is then joined exactly once,
// by join() or by joinEvenIfUnstarted() (which destructors use). A thread destroyed before go()
// wakes, returns without running main(), and is reaped by the destructor.
//
// The program's own main thread is represented by a MainThread, which must exist before any
// other Thread. Running threads sit on one process-wide list (unless excluded) that crash
// reporting walks. One process-wide mutex guards that list and every start and join transition.
// A failing POSIX thread call ends the process through fatalThreadError (ThreadFatalError.h).
#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "basicutil/platform/Platform.h"
#include "basicutil/platform/PlatformCrash.h"
#include "basicutil/text/BaseException.h"
#include "basicutil/text/PrintfFormat.h"

struct crash_dump;  // libzero/create-crash-dump.h

namespace basicutil {

class Logger;

// The "Thread" channel: thread life-cycle warnings and the fatal-error line.
Logger& threadChannel() noexcept;

// Raised when a thread cannot be created.
class ThreadException : public BaseException {
  public:
    // BaseException's constructor: the message.
    using BaseException::BaseException;
    // "ThreadException".
    const char* typeName() const noexcept override { return "ThreadException"; }
};

// How a thread is created. The defaults create with the process's default attributes.
struct ThreadAttributes {
    static constexpr std::size_t kDefaultStackBytes = 2097152;  // 2 MiB
    int policy = platform::kSchedOther;           // the platform's own number: 0 on Linux, 2 on FreeBSD
    int priority = 0;                             // within the policy
    std::size_t stackBytes = kDefaultStackBytes;  // the new thread's stack
    static ThreadAttributes defaults() noexcept;  // the process's default attributes
};

// The per-thread state (Thread_details.h): scratch text, the wait entry of the byte locks, the
// duty-cycle estimate.
struct ThreadScratch;

// A thread of the process, made by deriving and giving it a body (main). It is created stopped
// and released by go(); every Thread is listed process-wide (for the crash log) until its body
// ends, unless excluded. The caller joins it, or the destructor does.
class Thread {
  public:
    // Where joining stands: not yet, joined, or the destructor is joining.
    enum DidJoin : std::int32_t { DID_NOT_JOIN = 0, JOINED = 1, ALREADY_DESTRUCTING = 2 };

    // Thrown by a thread's body to end itself; the frame catches and logs it.
    class TerminateException : public BaseException {
      public:
        // BaseException's constructor: the message.
        using BaseException::BaseException;
        // "Thread::TerminateException".
        const char* typeName() const noexcept override { return "Thread::TerminateException"; }
    };

    // An action that runInUnixSignalContext makes another thread run in its SIGUSR1 handler. It
    // must restrict itself to what is safe there.
    class InSignalContextActor {
      public:
        virtual ~InSignalContextActor() = default;
        virtual void run() = 0;  // the action, in the signal handler
    };

    // Owned by a thread and deleted if its body ends by an exception.
    class CleanupObject {
      public:
        virtual ~CleanupObject() = default;
    };

    // Visitor of iterateEachRunning; called with the process-wide mutex held.
    class iterate_running_threads_callback {
      public:
        virtual ~iterate_running_threads_callback() = default;
        virtual void visit(Thread& thread) = 0;  // once per listed thread
    };

    // The name is printf-style (blanks are removed after formatting).
    template <typename... Args>
    explicit Thread(std::string_view nameFormat, const Args&... args)
        : Thread(CreateTag{}, ThreadAttributes::defaults(), formatName(nameFormat, args...)) {}
    template <typename... Args>
    Thread(const ThreadAttributes& attributes, std::string_view nameFormat, const Args&... args)
        : Thread(CreateTag{}, attributes, formatName(nameFormat, args...)) {}

    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;
    virtual ~Thread();

    // Appends this thread's state for the crash log.
    virtual void dumpState(std::string& out) const;
    // The body.
    virtual void main() = 0;

    void go();                           // once
    void join();                         // at most once, and only after go()
    void joinEvenIfUnstarted();          // once, whether or not go() was called
    void excludeFromGlobalThreadList();  // before go()

    // Makes this thread (never the caller) run `actor` inside its SIGUSR1 handler and waits for
    // it. True when the actor ran; false, with the actor not run, when the thread is not inside
    // its frame: its body has ended (joined or not), or it left its frame before it could serve
    // the request. Requests from several threads are served one at a time. A SIGUSR1 that is not
    // a request's own (sent by anyone else, or arriving late) runs nothing.
    [[nodiscard]] bool runInUnixSignalContext(InSignalContextActor* actor);

    // Calls `callback` for every listed thread, under the process-wide mutex.
    static void iterateEachRunning(iterate_running_threads_callback& callback);

    // For crash reporting. Each thread that enters its frame gets an alternate signal stack with a
    // guard page (one an ended thread left, else a new mapping), in place of any it had, and puts
    // the earlier one back when it leaves (up to 64 stacks are kept for later threads, the rest
    // unmapped), and unblocks the crash signals: so threads started before the crash handler's
    // set-up have theirs too. On from the start; false stops it for threads that enter later.
    static void setCrashAlternateStacks(bool on) noexcept;
    // Writes every listed thread's state, as dumpState words it, into `out`, one line each,
    // without allocating: for a signal handler. The process-wide mutex is tried for about
    // `waitMilliseconds`; a thread that holds it (the crash may have come in the middle) does not
    // stop the walk, which then reads the list as it is and says so. `afterEach`, when given, is
    // called after each thread's line (with `arg`). Returns the threads written.
    static unsigned writeCrashStates(::crash_dump* out, unsigned waitMilliseconds,
                                     void (*afterEach)(::crash_dump*, const Thread&, void*) = nullptr,
                                     void* arg = nullptr) noexcept;
    // This thread's state as dumpState words it, into `out`, without allocating.
    void writeCrashState(::crash_dump* out) const noexcept;
    // "    asleep in byte lock 0x<address>: <state>" and a line end, when this thread sleeps in one.
    void writeCrashLockState(::crash_dump* out) const noexcept;
    // Asserts that no Thread has been released yet (for set-up that must happen before).
    static void assertNotMultithreadedYet();
    // Whether the caller is the thread whose MainThread object exists.
    static bool currentIsMainThread() noexcept;
    // Whether a MainThread has been constructed.
    static bool mainThreadCreated() noexcept;
    // Whether any Thread has been released by go(): before that no lock can be contended.
    static bool haveAlreadyStartedThreads() noexcept;
    // The calling thread's Thread object, or nullptr for a thread that none owns.
    static Thread* current() noexcept;
    // The calling thread's name: its Thread's name, "MainThread", or "Unknown Thread".
    static const char* currentThreadName() noexcept;
    // Thread objects alive in the process, the main thread's included.
    static unsigned threadsActive() noexcept;

    bool isCurrent() const noexcept;  // whether the caller is this thread
    // The per-thread state while the thread runs (the main thread's while its MainThread
    // exists), else nullptr. Only the thread itself may use it.
    ThreadScratch* scratchArea() const noexcept { return _scratchp.load(); }
    // The thread's duty-cycle estimate now, when a ScopedDutyCycleClaimThread on that thread has
    // claimed it; false (and `estimate` untouched) when it is not claimed or the thread is not
    // running.
    [[nodiscard]] bool dutyCycleEstimate(double& estimate) const;

    const std::string& name() const noexcept { return _name; }             // as formatted
    std::uint64_t threadId() const noexcept { return _thread_id.load(); }  // the system's id; 0 until it runs
    int policy() const noexcept { return _policy; }                        // the scheduling policy

  protected:
    // Objects deleted when the body ends by an exception (or, left over, with the object).
    void addCleanup(std::unique_ptr<CleanupObject> object) { _cleanups.push_back(std::move(object)); }

  private:
    friend class MainThread;
    struct MainThreadTag {};
    Thread(MainThreadTag);
    struct CreateTag {};
    Thread(CreateTag, const ThreadAttributes& attributes, std::string name);
    template <typename... Args>
    static std::string formatName(std::string_view format, const Args&... args) {
        std::string name;
        appendf(name, format, args...);
        return name;
    }

    static void* threadFrame(void* arg);
    bool waitForGo();
    void leaveFrame(bool listed);
    void callMainAndDiscardTerminateException();
    void addToGlobalThreadList();
    void removeFromGlobalThreadList();
    void runCleanups() noexcept;
    void enterCrashReporting() noexcept;
    void leaveCrashReporting() noexcept;
    static ThreadScratch* perThreadScratch(ThreadScratch* scratch) noexcept { return scratch; }

    std::atomic<std::int32_t> _did_join{DID_NOT_JOIN};
    pthread_t _handle{};
    std::string _name;
    std::atomic<std::uint64_t> _thread_id{0};
    std::atomic<bool> _ready_to_run{false};
    bool _listed = true;
    Thread** _global_thread_list_prevp = nullptr;
    Thread* _global_thread_list_next = nullptr;
    pthread_cond_t _start_condition;
    std::vector<std::unique_ptr<CleanupObject>> _cleanups;
    std::atomic<ThreadScratch*> _scratchp{nullptr};
    int _priority = 0;
    int _policy;
    bool _has_posix_thread = false;
    // From creation (or, for the main thread, construction) until the frame ends; changed and
    // read by requests under the process-wide mutex.
    std::atomic<bool> _in_frame{false};
    // Mapped while in the frame when crash reporting asked for it.
    platform::AlternateStack _alternate_stack;
};

// The thread that runs the program's main. Construct it first, in main, before any other Thread.
class MainThread : public Thread {
  public:
    MainThread();
    ~MainThread() override;

  private:
    std::unique_ptr<ThreadScratch> _scratch;  // the calling thread's per-thread state
};

// A MainThread with no body of its own: its main() aborts.
class EmptyMainThread : public MainThread {
  public:
    void main() override;
};

// A thread whose body is a stored function; an empty function raises std::bad_function_call.
class ThreadFunction : public Thread {
  public:
    // Thread's constructors, with the body first.
    template <typename... Args>
    ThreadFunction(std::function<void()> body, std::string_view nameFormat, const Args&... args)
        : Thread(nameFormat, args...), _body(std::move(body)) {}
    template <typename... Args>
    ThreadFunction(std::function<void()> body, const ThreadAttributes& attributes,
                   std::string_view nameFormat, const Args&... args)
        : Thread(attributes, nameFormat, args...), _body(std::move(body)) {}

    void main() override { _body(); }  // calls the function

  private:
    std::function<void()> _body;
};

}  // namespace basicutil
