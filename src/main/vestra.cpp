// vestra: the library's behaviour at hand from a shell.
//
//   vestra printf '%5.2f|%-4s|\n' 3.14159 ab
//   vestra date -z Europe/Paris -d @1700000000.25 +%FT%T.%3Q%:z
//   vestra hexdump file.bin          vestra utf8 validate notes.txt
//
// Output goes to standard output, diagnostics to standard error after "vestra: ". Exit status: 0
// on success, 1 when the answer is negative or the input is bad, 2 on a usage error.
#include <CLI/CLI.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <string>

#include "basicutil/File.h"
#include "basicutil/Platform.h"
#include "basicutil/Thread.h"
#include "basicutil/Version.h"
#include "main/vestra_details.h"

namespace vestra::tool {

namespace {

constexpr std::size_t kBlock = 64 * 1024;

// Writes all of it to a descriptor; false on failure (errno set).
bool writeAll(int fd, const char* p, std::size_t n) {
    while (n > 0) {
        const ssize_t w = ::write(fd, p, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        p += w;
        n -= static_cast<std::size_t>(w);
    }
    return true;
}

}  // namespace

Output& out() {
    static Output output;
    return output;
}

void Output::write(std::string_view text) {
    _buffer.append(text);
    if (_buffer.size() >= kBlock) static_cast<void>(flush());
}

bool Output::flush() {
    if (!_failed && !_buffer.empty() && !writeAll(1, _buffer.data(), _buffer.size())) {
        _failed = true;
        char text[128];
        diagnose(std::string("writing standard output: ") +
                 basicutil::platform::errorText(errno, text, sizeof text));
    }
    _buffer.clear();
    return !_failed;
}

Output::~Output() {
    static_cast<void>(flush());
}

void diagnose(std::string_view text) {
    std::string line = "vestra: ";
    line.append(text);
    line.push_back('\n');
    static_cast<void>(writeAll(2, line.data(), line.size()));
}

int finish(int status) {
    return out().flush() ? status : (status == kOk ? kNegative : status);
}

bool forEachChunk(const std::string& path, const std::function<void(std::string_view)>& chunk) {
    basicutil::FileDescriptor fd;
    if (path == "-") {
        fd = basicutil::FileDescriptor(0, "standard input");
    } else if (basicutil::FileStatus st = fd.open(path, O_RDONLY); !st) {
        diagnose(st.text().view());
        return false;
    }
    std::string buffer(kBlock, '\0');
    bool ok = true;
    for (;;) {
        std::size_t got = 0;
        if (basicutil::FileStatus st = fd.readSome(buffer.data(), buffer.size(), got); !st) {
            diagnose(st.text().view());
            ok = false;
            break;
        }
        if (got == 0) break;
        chunk(std::string_view(buffer.data(), got));
    }
    if (path == "-") static_cast<void>(fd.release());  // standard input stays open
    return ok;
}

bool forEachLine(const std::string& path, const std::function<void(std::string_view)>& line) {
    std::string pending;
    const bool ok = forEachChunk(path, [&](std::string_view chunk) {
        std::size_t start = 0;
        for (std::size_t nl; (nl = chunk.find('\n', start)) != std::string_view::npos; start = nl + 1) {
            if (pending.empty()) {
                line(chunk.substr(start, nl + 1 - start));
            } else {
                pending.append(chunk.substr(start, nl + 1 - start));
                line(pending);
                pending.clear();
            }
        }
        pending.append(chunk.substr(start));
    });
    if (ok && !pending.empty()) line(pending);
    return ok;
}

namespace {

int run(int argc, char** argv) {
    CLI::App app{
        "vestra: the library's formats, zones, logs, dumps, text and patterns from a shell.\n"
        "Example: vestra printf '%5.2f|%-4s|\\n' 3.14159 ab",
        "vestra"};
    app.set_version_flag("--version", std::string("vestra ") + basicutil::libraryVersion());
    app.require_subcommand(1);
    app.fallthrough(false);
    Context context;
    addTextCommands(app, context);
    addTimeCommands(app, context);
    addLogCommands(app, context);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        // --help and --version (of the tool or of a subcommand) end the parse this way too.
        if (e.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
            std::ostringstream help;
            app.exit(e, help, help);
            out().write(help.str());
            return kOk;
        }
        diagnose(std::string(e.what()) + " (see: vestra --help)");
        return kUsage;
    }
    return context.status;
}

}  // namespace

}  // namespace vestra::tool

int main(int argc, char** argv) {
    // The process's own thread is a Thread like any other: %t in a rendered line names it.
    basicutil::EmptyMainThread mainThread;
    const int status = vestra::tool::run(argc, argv);
    return vestra::tool::finish(status);
}
