#include "basicutil/log/LoggerRecentLines.h"

#include <atomic>
#include <cstring>

#include "basicutil/platform/Platform.h"

namespace basicutil {

namespace {

constexpr std::size_t kTextWords = kRecentLogTextBytes / 8;
static_assert(kTextWords * 8 == kRecentLogTextBytes);

// Every field a word of its own, read and written as atomics: a reader in a signal handler may
// look while a writer copies.
struct Entry {
    // 0: never written; 2t + 1: ticket t being written; 2t + 2: ticket t written.
    std::atomic<std::uint64_t> stamp{0};
    std::atomic<std::int64_t> seconds{0};
    std::atomic<std::uint64_t> microsecondsAndLevel{0};  // microseconds, then the level above bit 32
    std::atomic<std::uint64_t> threadId{0};
    std::atomic<std::uint64_t> lengths{0};  // channel, message kept (16 bits each), full (32 bits)
    std::atomic<std::uint64_t> text[kTextWords] = {};
};
static_assert(sizeof(Entry) == 256);

alignas(64) std::atomic<std::uint64_t> g_nextTicket{0};
alignas(64) Entry g_entries[kRecentLogLines];

// The longest head of `text` that fits `room` and does not end inside a UTF-8 sequence.
std::size_t cutToFit(const char* text, std::size_t length, std::size_t room) noexcept {
    if (length <= room) return length;
    std::size_t n = room;
    while (n > 0 && (static_cast<unsigned char>(text[n]) & 0xC0) == 0x80) --n;
    return n;
}

Entry& claimEntry(std::uint64_t& ticket) noexcept {
    for (;;) {
        ticket = g_nextTicket.fetch_add(1, std::memory_order_relaxed);
        Entry& entry = g_entries[ticket % kRecentLogLines];
        std::uint64_t seen = entry.stamp.load(std::memory_order_relaxed);
        // Still being written by a writer a whole ring behind, or already holding a later line
        // (this writer was slow to get here): the next entry, under a later ticket.
        if ((seen & 1) == 0 && seen < 2 * ticket + 1 &&
            entry.stamp.compare_exchange_strong(seen, 2 * ticket + 1, std::memory_order_relaxed))
            return entry;
    }
}

}  // namespace

void keepRecentLogLine(StrSegment channel, int level, Timeval time, StrSegment message) noexcept {
    char text[kRecentLogTextBytes + 8];
    const std::size_t channelLength = cutToFit(channel.data(), channel.size(), kRecentLogChannelBytes);
    const std::size_t messageLength =
        cutToFit(message.data(), message.size(), kRecentLogTextBytes - channelLength);
    std::memcpy(text, channel.data(), channelLength);
    std::memcpy(text + channelLength, message.data(), messageLength);
    const std::size_t used = channelLength + messageLength;
    std::memset(text + used, 0, 8);  // the last word's tail
    const std::uint64_t full = message.size() < UINT32_MAX ? message.size() : UINT32_MAX;
    const std::uint64_t threadId = platform::currentThreadId();

    std::uint64_t ticket = 0;
    Entry& entry = claimEntry(ticket);
    // The stamp's odd value is seen before any of the fields below changes.
    std::atomic_thread_fence(std::memory_order_release);
    entry.seconds.store(time.tv_sec, std::memory_order_relaxed);
    entry.microsecondsAndLevel.store(static_cast<std::uint64_t>(time.tv_usec) |
                                         static_cast<std::uint64_t>(static_cast<std::uint32_t>(level)) << 32,
                                     std::memory_order_relaxed);
    entry.threadId.store(threadId, std::memory_order_relaxed);
    entry.lengths.store(channelLength | messageLength << 16 | full << 32, std::memory_order_relaxed);
    for (std::size_t i = 0; i * 8 < used; ++i) {
        std::uint64_t word;
        std::memcpy(&word, text + i * 8, 8);
        entry.text[i].store(word, std::memory_order_relaxed);
    }
    entry.stamp.store(2 * ticket + 2, std::memory_order_release);
}

std::size_t forEachRecentLogLine(void (*visit)(const RecentLogLine& line, void* arg), void* arg) noexcept {
    // The written entries' stamps, ordered by ticket: oldest first.
    struct Seen {
        std::uint64_t stamp;
        std::size_t index;
    } order[kRecentLogLines];
    std::size_t count = 0, busy = 0;
    for (std::size_t i = 0; i < kRecentLogLines; ++i) {
        const std::uint64_t stamp = g_entries[i].stamp.load(std::memory_order_acquire);
        if (stamp == 0) continue;
        if ((stamp & 1) != 0) {
            ++busy;
            continue;
        }
        std::size_t at = count++;
        for (; at > 0 && order[at - 1].stamp > stamp; --at) order[at] = order[at - 1];
        order[at] = {stamp, i};
    }
    RecentLogLine line;
    for (std::size_t k = 0; k < count; ++k) {
        const Entry& entry = g_entries[order[k].index];
        if (entry.stamp.load(std::memory_order_acquire) != order[k].stamp) {
            ++busy;  // rewritten since the stamps were read
            continue;
        }
        line.time.tv_sec = entry.seconds.load(std::memory_order_relaxed);
        const std::uint64_t microsecondsAndLevel = entry.microsecondsAndLevel.load(std::memory_order_relaxed);
        line.threadId = entry.threadId.load(std::memory_order_relaxed);
        const std::uint64_t lengths = entry.lengths.load(std::memory_order_relaxed);
        std::uint64_t words[kTextWords];
        for (std::size_t i = 0; i < kTextWords; ++i) words[i] = entry.text[i].load(std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_acquire);
        if (entry.stamp.load(std::memory_order_relaxed) != order[k].stamp) {
            ++busy;
            continue;
        }
        line.sequence = order[k].stamp / 2;
        line.time.tv_usec = static_cast<std::int64_t>(microsecondsAndLevel & 0xFFFFFFFFu);
        line.level = static_cast<int>(static_cast<std::int32_t>(microsecondsAndLevel >> 32));
        line.channelLength = lengths & 0xFFFF;
        line.messageLength = lengths >> 16 & 0xFFFF;
        line.fullLength = lengths >> 32;
        std::memcpy(line.text, words, sizeof words);
        visit(line, arg);
    }
    return busy;
}

}  // namespace basicutil
