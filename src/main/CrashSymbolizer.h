// Reads a crash log's backtrace back to functions, files and lines, through the modules' debugging
// information (elfutils' libdw), for `vestra crash symbolize LOG`.
//
// A frame line of the log, "  #NN 0x<pc> in <module> +0x<offset> (build id <hex>) <symbol>", names
// the module and the frame's offset from where the module was loaded; that offset is the same
// wherever the module lands, so the module file alone tells what was there. The log comes back
// as it was, with lines under each frame:
//
//   #03 0x000055d0c1e4a1f2 in /usr/bin/server +0x2a1f2 (build id 3f0c...) handle+0x42
//       Server::handle(Request const&) at src/server/Server.cpp:214:17
//       inlined into Server::loop() at src/server/Server.cpp:96:9
//
// innermost first, an inlined function's line being the one it was at and each "inlined into"
// line the call's place in its caller. What cannot be said comes in parentheses on one line: a
// module that cannot be read, a module whose build id is not the log's (the file changed since
// the crash: nothing is read from it), a module without line information (the symbol alone).
// Separate debugging files are found as the system's debugger finds them (by build id under
// /usr/lib/debug, or beside the module). Every frame but the first is a return address, so its
// lines are those of the call, one byte before it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace vestra::tool {

// One frame line of a crash log, as read back.
struct CrashFrame {
    unsigned index = 0;        // NN
    std::uint64_t pc = 0;      // the address in the crashed process
    std::string module;        // the module's path; empty when the log names none
    std::uint64_t offset = 0;  // pc less the module's load address
    std::string buildId;       // lower-case hex; empty when the log gives none
};

// Reads `line` (without its newline) as a frame line; false for any other line.
[[nodiscard]] bool parseCrashFrame(std::string_view line, CrashFrame& frame);

// A session over one or more logs: each module is opened once.
class CrashSymbolizer {
  public:
    CrashSymbolizer();
    ~CrashSymbolizer();
    CrashSymbolizer(const CrashSymbolizer&) = delete;
    CrashSymbolizer& operator=(const CrashSymbolizer&) = delete;

    // The lines to put under a frame (each indented six spaces and ending in a newline).
    std::string describe(const CrashFrame& frame);
    // The whole log with every frame's lines under it; other lines as they were.
    std::string symbolize(std::string_view log);

  private:
    struct Session;
    std::unique_ptr<Session> _session;
};

}  // namespace vestra::tool
