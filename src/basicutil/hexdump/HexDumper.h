// The canonical hex dump of a byte buffer, one line at a time to a sink:
//
//   00000000  48 65 6c 6c 6f 20 77 6f  72 6c 64 0a              |Hello world.|
//   0000000c
//
// 16 bytes a line: the offset in 8 hex digits (more past 4 GiB), the bytes in two groups of
// eight, and the bytes as characters (0x20 to 0x7e as themselves, others "."); then a last line
// with the total length. Empty data gives that line alone, "00000000". The same text as
// `hexdump -C -v`. Data that arrives in pieces is dumped line by line as it comes (dumpLines),
// with the length line at the end.
#pragma once

#include <cstddef>
#include <cstdint>

#include "basicutil/log/Logger.h"
#include "basicutil/text/Str.h"
#include "basicutil/text/StrVector.h"
#include "libzero/create-crash-dump.h"

namespace basicutil {

// The dump's engine: a subclass says where lines go.
class HexDumper {
  public:
    virtual ~HexDumper();
    // One finished line, without a line end.
    virtual void line(const char* text, std::size_t length) = 0;

    // Dumps `length` bytes at `data`, line by line, ending with the length line.
    void do_dump(const void* data, std::size_t length);

    // The lines of `length` bytes that stand at `offset` of a longer dump, without the length
    // line: 16 bytes a line, the last line shorter where the bytes end. A dump streamed in
    // pieces gives every piece but the last in multiples of 16 bytes, then lengthLine(total).
    void dumpLines(const void* data, std::size_t length, std::uint64_t offset);
    // The last line: the total length.
    void lengthLine(std::uint64_t length);
};

// The lines, each with "\n", appended to a string.
class HexDumper_to_Str : public HexDumper {
  public:
    explicit HexDumper_to_Str(Str& out) : _out(out) {}  // `out` must outlive the dumper

    void line(const char* text, std::size_t length) override;

  private:
    Str& _out;
};

// One element per line.
class HexDumper_to_StrVector : public HexDumper {
  public:
    explicit HexDumper_to_StrVector(StrVector& out) : _out(out) {}  // `out` must outlive the dumper

    void line(const char* text, std::size_t length) override;

  private:
    StrVector& _out;
};

// One message per line on a channel, at the given level.
class HexDumper_to_Logger : public HexDumper {
  public:
    // `logger` must outlive the dumper.
    HexDumper_to_Logger(Logger& logger, LogLevel level) : _logger(logger), _level(level) {}

    void line(const char* text, std::size_t length) override;

  private:
    Logger& _logger;
    LogLevel _level;
};

// The lines, each with "\n", into a crash log: nothing allocated, so a signal handler may dump.
class HexDumper_to_CrashLog : public HexDumper {
  public:
    explicit HexDumper_to_CrashLog(crash_dump* out) : _out(out) {}  // `out` must outlive the dumper

    void line(const char* text, std::size_t length) override;

  private:
    crash_dump* _out;
};

}  // namespace basicutil
