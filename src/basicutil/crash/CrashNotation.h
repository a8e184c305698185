// What a thread is doing, said as it goes, for the crash log: a scoped object pushes a short text
// onto the calling thread's notation stack and pops it when it goes out of scope.
//
//   void load(const Str& path) {
//       CrashNotation note("loading zone file %s", path);   // formatted with the library's printf
//       ...
//       { CrashNotation inner("parsing transitions"); ... }
//   }
//
// A crash log prints each thread's notations innermost first, under the thread's state.
//
// Cost and limits: each thread keeps its stack in a slot of a process-wide table, claimed on its
// first notation and given back when it ends (kMaxThreads slots; a thread that finds none notes
// nothing). A stack holds kMaxDepth notations of kMaxBytes bytes each: a longer text is cut (never
// inside a UTF-8 sequence), and deeper notations are counted, not kept. Pushing copies the text
// (or formats it straight into the slot) and pops with one store: nothing is allocated. Reading
// another thread's stack while it changes can show a text half replaced, never memory outside
// the slot: the crash log says what it can.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "basicutil/text/PrintfFormat.h"

struct crash_dump;  // libzero/create-crash-dump.h

namespace basicutil {

namespace crash_notation_details {

inline constexpr std::size_t kMaxThreads = 1024;
inline constexpr std::size_t kMaxDepth = 16;
inline constexpr std::size_t kMaxBytes = 120;

// One thread's notations.
struct Stack {
    std::atomic<std::uint64_t> threadId{0};  // the owner's system id; 0 while the slot is free
    std::atomic<std::uint32_t> depth{0};     // notations pushed, including those not kept
    std::uint8_t lengths[kMaxDepth] = {};
    char texts[kMaxDepth][kMaxBytes] = {};
};

// The calling thread's stack once claimed (a thread-local pointer read inline: the push's fast path).
inline thread_local Stack* t_current = nullptr;
// Claims one for the calling thread; null when every slot is taken.
Stack* claimStack() noexcept;
// The calling thread's stack, claimed on first use; null when every slot is taken.
inline Stack* currentStack() noexcept {
    Stack* const stack = t_current;
    return stack != nullptr ? stack : claimStack();
}

// A text cut to fit a slot, in the slot; returns its length.
std::size_t storeText(char (&slot)[kMaxBytes], const char* text, std::size_t length) noexcept;

// What PrintfOutput writes into: a buffer, the rest dropped at its end.
struct SlotWriter {
    char* out;
    std::size_t capacity;
    std::size_t used = 0;
    void append(const char* p, std::size_t n) noexcept;
};

}  // namespace crash_notation_details

// One notation, from construction to the end of its scope.
class CrashNotation {
  public:
    static constexpr std::size_t kMaxDepth = crash_notation_details::kMaxDepth;  // kept per thread
    static constexpr std::size_t kMaxBytes = crash_notation_details::kMaxBytes;  // kept per notation

    // The text as it is.
    explicit CrashNotation(std::string_view text) noexcept {
        if (Slot slot = push(); slot.text != nullptr) {
            finish(slot, crash_notation_details::storeText(*slot.text, text.data(), text.size()));
        }
    }
    // The arguments formatted by `format` (the library's printf), at least one of them.
    template <typename First, typename... Rest>
    CrashNotation(std::string_view format, const First& first, const Rest&... rest) noexcept {
        if (Slot slot = push(); slot.text != nullptr) {
            char formatted[kMaxBytes + 4];  // a character past the end shows where to cut
            crash_notation_details::SlotWriter writer{formatted, sizeof formatted};
            appendPrintf(PrintfOutput(writer), StrSegment(format),
                         PrintfFormat::argumentList(first, rest...));
            finish(slot, crash_notation_details::storeText(*slot.text, formatted, writer.used));
        }
    }
    ~CrashNotation() {
        if (_stack != nullptr)
            _stack->depth.store(_stack->depth.load(std::memory_order_relaxed) - 1, std::memory_order_release);
    }
    CrashNotation(const CrashNotation&) = delete;
    CrashNotation& operator=(const CrashNotation&) = delete;

  private:
    struct Slot {
        char (*text)[kMaxBytes] = nullptr;  // null: nothing to write (no stack, or too deep)
        std::uint32_t depth = 0;
    };
    // Claims the next level; the caller writes the text, then finish() publishes it.
    Slot push() noexcept {
        _stack = crash_notation_details::currentStack();
        if (_stack == nullptr) return {};
        const std::uint32_t depth = _stack->depth.load(std::memory_order_relaxed);
        if (depth >= kMaxDepth) {
            _stack->depth.store(depth + 1, std::memory_order_release);
            return {};
        }
        return {&_stack->texts[depth], depth};
    }
    void finish(const Slot& slot, std::size_t length) noexcept {
        _stack->lengths[slot.depth] = static_cast<std::uint8_t>(length);
        _stack->depth.store(slot.depth + 1, std::memory_order_release);
    }

    crash_notation_details::Stack* _stack = nullptr;
};

// Writes the notations of the thread with system id `threadId`, innermost first, each line
// starting with `indent`; nothing when it has none. Safe in a signal handler.
void writeCrashNotations(crash_dump* out, std::uint64_t threadId, const char* indent) noexcept;
// Calls `visit` with the id of every thread that has a notation stack.
void forEachNotedThread(void (*visit)(std::uint64_t threadId, void* arg), void* arg) noexcept;

}  // namespace basicutil
