// The last lines the channels logged, kept in memory for the crash log. Every channel writes each
// line it logs (past the level check and the similar-message count, whether or not it has an
// appender) into one process-wide ring of kRecentLogLines entries; a crash handler reads them
// back, oldest first, without a lock or an allocation.
//
// An entry keeps the time, the level, the logging thread's system id, the channel's name (up to
// kRecentLogChannelBytes) and as much of the message as the entry's kRecentLogTextBytes leave
// after the name: a longer message is cut, never inside a UTF-8 sequence, and its full length is
// kept. 64 entries of 256 bytes (40 of them the entry's own): 16 KiB, the lines of the last
// moments before a crash, not a log.
//
// Writers never wait for each other: each takes the next entry with one atomic add, stamps it as
// being written, copies, and stamps it done (about 16 ns a line). A reader copies an entry and
// checks its stamp before and after; an entry being written at that moment (a thread stopped by
// the crash in the middle of its copy) is counted, never shown torn. A writer that finds its
// entry still being written by one a whole ring behind takes the next entry instead.
#pragma once

#include <cstddef>
#include <cstdint>

#include "basicutil/text/Str.h"
#include "basicutil/timevalue/Timeval.h"

namespace basicutil {

inline constexpr std::size_t kRecentLogLines = 64;         // entries in the ring
inline constexpr std::size_t kRecentLogTextBytes = 216;    // channel name and message, per entry
inline constexpr std::size_t kRecentLogChannelBytes = 48;  // of the name, at most

// One line as the ring kept it.
struct RecentLogLine {
    std::uint64_t sequence = 0;           // 1 for the process's first line, counting up
    Timeval time;                         // when it was logged
    std::uint64_t threadId = 0;           // the logging thread's system id
    int level = 0;                        // LogLevel
    std::size_t channelLength = 0;        // bytes of the name kept
    std::size_t messageLength = 0;        // bytes of the message kept
    std::size_t fullLength = 0;           // bytes the message had (up to 2^32 - 1)
    char text[kRecentLogTextBytes] = {};  // the name, then the message

    // The channel's name as kept.
    StrSegment channel() const noexcept { return StrSegment(text, channelLength); }
    // The message as kept: its first messageLength bytes.
    StrSegment message() const noexcept { return StrSegment(text + channelLength, messageLength); }
    // Whether the message was cut.
    bool cut() const noexcept { return messageLength < fullLength; }
};

// Keeps one line. Channels call it; a caller with lines of its own to keep (a program's own
// output) may too. Never allocates, never blocks.
void keepRecentLogLine(StrSegment channel, int level, Timeval time, StrSegment message) noexcept;

// Calls `visit` with each kept line, oldest first, from one copy on the caller's stack. Returns
// how many entries were being written as they were read, and so not shown. Safe in a signal
// handler; lines kept meanwhile may or may not be shown.
std::size_t forEachRecentLogLine(void (*visit)(const RecentLogLine& line, void* arg), void* arg) noexcept;

}  // namespace basicutil
