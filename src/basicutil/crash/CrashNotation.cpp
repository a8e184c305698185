#include "basicutil/crash/CrashNotation.h"

#include <pthread.h>

#include <cstring>

#include "basicutil/platform/Platform.h"
#include "libzero/create-crash-dump.h"

namespace basicutil {

namespace crash_notation_details {

namespace {

Stack g_stacks[kMaxThreads];
thread_local bool t_noRoom = false;  // every slot was taken at this thread's first notation

// Gives a thread's slot back when it ends (a thread-specific value's destructor: no allocation).
void releaseStack(void* stack) {
    static_cast<Stack*>(stack)->depth.store(0, std::memory_order_relaxed);
    static_cast<Stack*>(stack)->threadId.store(0, std::memory_order_release);
}

// A fork's child has one thread, the forking one, under an id of its own: its stack follows it,
// and the parent's other threads' stacks, which no thread of the child owns, are freed.
void keepOnlyForkingThread() noexcept {
    for (Stack& stack : g_stacks) {
        if (&stack == t_current) {
            stack.threadId.store(platform::rereadThreadId(), std::memory_order_release);
        } else if (stack.threadId.load(std::memory_order_relaxed) != 0) {
            releaseStack(&stack);
        }
    }
}

pthread_key_t stackKey() noexcept {
    static const pthread_key_t key = [] {
        // Failing, a forked child shows its parent's threads' notations, and none of its own.
        if (pthread_atfork(nullptr, nullptr, keepOnlyForkingThread) != 0) {
        }
        pthread_key_t k{};
        // Without the key a slot would never be given back: the table is then used up sooner.
        if (pthread_key_create(&k, releaseStack) != 0) return pthread_key_t{};
        return k;
    }();
    return key;
}

}  // namespace

Stack* claimStack() noexcept {
    if (t_noRoom) return nullptr;
    const std::uint64_t me = platform::currentThreadId();
    for (Stack& stack : g_stacks) {
        std::uint64_t free = 0;
        if (stack.threadId.load(std::memory_order_relaxed) == 0 &&
            stack.threadId.compare_exchange_strong(free, me, std::memory_order_acq_rel)) {
            stack.depth.store(0, std::memory_order_relaxed);
            // Failing, the slot is not given back at the thread's end; the notations still work.
            if (pthread_setspecific(stackKey(), &stack) != 0) {
            }
            t_current = &stack;
            return t_current;
        }
    }
    t_noRoom = true;
    return nullptr;
}

std::size_t storeText(char (&slot)[kMaxBytes], const char* text, std::size_t length) noexcept {
    std::size_t n = length;
    if (n > kMaxBytes) {
        n = kMaxBytes;
        // Never inside a UTF-8 sequence: back to the start of the one the cut falls in.
        while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80) --n;
    }
    std::memcpy(slot, text, n);
    return n;
}

void SlotWriter::append(const char* p, std::size_t n) noexcept {
    if (n > capacity - used) n = capacity - used;
    std::memcpy(out + used, p, n);
    used += n;
}

}  // namespace crash_notation_details

using namespace crash_notation_details;

void writeCrashNotations(crash_dump* out, std::uint64_t threadId, const char* indent) noexcept {
    if (threadId == 0) return;
    for (const Stack& stack : g_stacks) {
        if (stack.threadId.load(std::memory_order_acquire) != threadId) continue;
        const std::uint32_t depth = stack.depth.load(std::memory_order_acquire);
        if (depth > kMaxDepth) {
            crash_dump_text(out, indent);
            crash_dump_text(out, "(");
            crash_dump_udec(out, depth - kMaxDepth, 0);
            crash_dump_text(out, " deeper notations not kept)\n");
        }
        for (std::uint32_t level = depth < kMaxDepth ? depth : kMaxDepth; level > 0; --level) {
            std::size_t length = stack.lengths[level - 1];
            if (length > kMaxBytes) length = kMaxBytes;
            crash_dump_text(out, indent);
            crash_dump_bytes(out, stack.texts[level - 1], length);
            crash_dump_char(out, '\n');
        }
        return;
    }
}

void forEachNotedThread(void (*visit)(std::uint64_t threadId, void* arg), void* arg) noexcept {
    for (const Stack& stack : g_stacks) {
        const std::uint64_t id = stack.threadId.load(std::memory_order_acquire);
        if (id != 0 && stack.depth.load(std::memory_order_acquire) != 0) visit(id, arg);
    }
}

}  // namespace basicutil
