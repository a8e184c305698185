// What the vestra tool's subcommands share: buffered standard output, streamed input, the
// "vestra: " diagnostics and the exit statuses.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <string_view>

#include "basicutil/Str.h"

namespace vestra::tool {

inline constexpr int kOk = 0;
inline constexpr int kNegative = 1;  // a negative answer or bad input
inline constexpr int kUsage = 2;

// Set by the subcommand that ran.
struct Context {
    int status = kOk;
};

// Standard output, written in large blocks; a write error (a closed pipe, a full disk) is
// reported once and turns the exit status to 1.
class Output {
  public:
    void write(std::string_view text);
    void write(const basicutil::Str& text) { write(text.view()); }
    void write(const char* text) { write(std::string_view(text)); }
    void write(const std::string& text) { write(std::string_view(text)); }
    bool flush();
    ~Output();

  private:
    std::string _buffer;
    bool _failed = false;
};
Output& out();

// "vestra: <text>" on standard error.
void diagnose(std::string_view text);

// Flushes standard output and returns the status to exit with.
int finish(int status);

// Calls `chunk` with the bytes of `path` ("-": standard input) in blocks of up to 64 KiB, in
// order. False, with the reason diagnosed, when the file cannot be read.
bool forEachChunk(const std::string& path, const std::function<void(std::string_view)>& chunk);
// The same, one line at a time with its "\n" (a last line may lack it).
bool forEachLine(const std::string& path, const std::function<void(std::string_view)>& line);

void addTextCommands(CLI::App& app, Context& context);
void addTimeCommands(CLI::App& app, Context& context);
void addLogCommands(CLI::App& app, Context& context);

}  // namespace vestra::tool
