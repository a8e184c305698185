// What the vestra tool's subcommands share: buffered standard output, streamed input, the
// "vestra: " diagnostics and the exit statuses.
//
// Memory stays bounded whatever the input: input is read in blocks into one buffer, and output
// that does not fit the output buffer goes straight out. Commands that work by lines hand a line
// over where it lies in the block and gather only a line that crosses blocks.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "basicutil/files/File.h"
#include "basicutil/text/Str.h"

namespace vestra::tool {

inline constexpr int kOk = 0;
inline constexpr int kNegative = 1;  // a negative answer or bad input
inline constexpr int kUsage = 2;     // bad usage: arguments, a format, a pattern

// The size of the output buffer, and of the input block: large enough that a read costs little
// beside the copy it makes, small enough to stay in the processor's caches.
inline constexpr std::size_t kBlock = 64 * 1024;
inline constexpr std::size_t kInputBlock = 256 * 1024;

// One subcommand. Its options are members of its own, bound when define() adds it to the
// command line; run() does the work once the line has parsed and gives the exit status.
class Command {
  public:
    virtual ~Command() = default;
    // Adds the subcommand, with its options, under `parent`.
    virtual CLI::App* define(CLI::App& parent) = 0;
    virtual int run() = 0;
};

// The tool's subcommands, and the status of the one that ran.
class Context {
  public:
    int status = kOk;

    // Makes a C (from `args`), defines it under `parent` and has it run when it is chosen.
    template <class C, class... Args>
    C& add(CLI::App& parent, Args&&... args) {
        auto command = std::make_unique<C>(std::forward<Args>(args)...);
        C& made = *command;
        CLI::App* defined = made.define(parent);
        defined->callback([this, &made] { status = made.run(); });
        _commands.push_back(std::move(command));
        return made;
    }

  private:
    std::vector<std::unique_ptr<Command>> _commands;
};

// Standard output in blocks of kBlock: a text that fits is copied into the buffer, a larger one
// is written out directly after what the buffer holds. A write error (a closed pipe, a full
// disk) is reported once; the output is dropped from then on and the exit status becomes 1.
class Output {
  public:
    Output();
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(std::string_view text);
    void write(const basicutil::Str& text) { write(text.view()); }
    void write(const char* text) { write(std::string_view(text)); }
    void write(const std::string& text) { write(std::string_view(text)); }
    // The same, for the printf engine (PrintfOutput): large renderings stream through.
    void append(const char* data, std::size_t length) { write(std::string_view(data, length)); }
    // Room for `n` bytes (at most kBlock) at the buffer's end, to be filled in place and then
    // taken with commit(n).
    char* room(std::size_t n);
    void commit(std::size_t n) noexcept { _used += n; }
    // Writes out what the buffer holds; false once a write has failed.
    bool flush();

  private:
    bool writeOut(const char* data, std::size_t length);

    std::unique_ptr<char[]> _buffer;
    std::size_t _used = 0;
    bool _failed = false;
    basicutil::FileDescriptor _fd;  // standard output, not owned
};
Output& out();

// "vestra: <text>" on standard error.
void diagnose(std::string_view text);

// Flushes standard output and returns the status to exit with.
int finish(int status);

// Calls `chunk` with the bytes of `path` ("-": standard input) in blocks of up to kInputBlock, in
// order. False, with the reason diagnosed, when the file cannot be read.
bool forEachChunk(const std::string& path, const std::function<void(std::string_view)>& chunk);

// vestra printf with the words after "printf": the format, then its arguments, whatever they
// look like (a "--" before the format is skipped). Only "printf --help" is parsed as an option.
int printfArguments(std::vector<std::string> arguments, Context& context);

void addTextCommands(CLI::App& app, Context& context);
void addTimeCommands(CLI::App& app, Context& context);
void addLogCommands(CLI::App& app, Context& context);
void addRandomCommands(CLI::App& app, Context& context);
void addCrashCommands(CLI::App& app, Context& context);
void addTimestampCommands(CLI::App& app, Context& context);

// A count or seed as the commands take one: decimal digits only (no sign, no blanks), within 64
// bits, through the library's field parser.
bool decimalCount(const std::string& text, std::uint64_t& n);

}  // namespace vestra::tool
