// vestra: the library's behaviour at hand from a shell.
//
//   vestra printf '%5.2f|%-4s|\n' 3.14159 ab
//   vestra date -z Europe/Paris -d @1700000000.25 +%FT%T.%3Q%:z
//   vestra hexdump file.bin          vestra utf8 validate notes.txt
//
// Output goes to standard output, diagnostics to standard error after "vestra: ". Exit status: 0
// on success, 1 when the answer is negative or the input is bad, 2 on a usage error (arguments,
// a format or a pattern that cannot be used), when a limit stopped a match, or when memory ran out.
#include <CLI/CLI.hpp>

#include <fcntl.h>

#include <cstring>
#include <new>
#include <sstream>
#include <string>

#include "basicutil/files/File.h"
#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/platform/Version.h"
#include "basicutil/text/BasicConversions.h"
#include "basicutil/text/StaticStrSet.h"
#include "basicutil/threads/Thread.h"
#include "main/vestra_details.h"

namespace vestra::tool {

Output& out() {
    static Output output;
    return output;
}

Output::Output() : _buffer(new char[kBlock]), _fd(1, "standard output") {}

Output::~Output() {
    static_cast<void>(flush());
    static_cast<void>(_fd.release());  // standard output stays open
}

bool Output::writeOut(const char* data, std::size_t length) {
    if (_failed || length == 0) return !_failed;
    if (const basicutil::Status st = _fd.write(data, length); !st) {
        _failed = true;
        char text[128];
        diagnose(std::string("writing standard output: ") +
                 basicutil::platform::errorText(st.error(), text, sizeof text));
    }
    return !_failed;
}

void Output::write(std::string_view text) {
    if (text.size() <= kBlock - _used) {
        std::memcpy(_buffer.get() + _used, text.data(), text.size());
        _used += text.size();
        return;
    }
    static_cast<void>(flush());
    if (text.size() < kBlock) {
        std::memcpy(_buffer.get(), text.data(), text.size());
        _used = text.size();
    } else {
        static_cast<void>(writeOut(text.data(), text.size()));
    }
}

char* Output::room(std::size_t n) {
    VESTRA_ASSERT(n <= kBlock);
    if (n > kBlock - _used) static_cast<void>(flush());
    return _buffer.get() + _used;
}

bool Output::flush() {
    const bool ok = writeOut(_buffer.get(), _used);
    _used = 0;
    return ok;
}

void diagnose(std::string_view text) {
    std::string line = "vestra: ";
    line.append(text);
    line.push_back('\n');
    basicutil::FileDescriptor standardError(2, "standard error");
    static_cast<void>(standardError.write(line.data(), line.size()));  // nowhere left to report it
    static_cast<void>(standardError.release());
}

bool decimalCount(const std::string& text, std::uint64_t& n) {
    const bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
    return digits && basicutil::parse_unsigned_val(text.data(), text.data() + text.size(), n, UINT64_MAX);
}

int finish(int status) {
    return out().flush() ? status : (status == kOk ? kNegative : status);
}

bool forEachChunk(const std::string& path, const std::function<void(std::string_view)>& chunk) {
    basicutil::FileDescriptor fd;
    if (path == "-") {
        fd = basicutil::FileDescriptor(0, "standard input");
    } else if (basicutil::Status st = fd.open(path, O_RDONLY); !st) {
        diagnose(st.text().view());
        return false;
    }
    const std::unique_ptr<char[]> buffer(new char[kInputBlock]);
    bool ok = true;
    for (;;) {
        std::size_t got = 0;
        if (basicutil::Status st = fd.readSome(buffer.get(), kInputBlock, got); !st) {
            diagnose(st.text().view());
            ok = false;
            break;
        }
        if (got == 0) break;
        chunk(std::string_view(buffer.get(), got));
    }
    if (path == "-") static_cast<void>(fd.release());  // standard input stays open
    return ok;
}

namespace {

// The subcommands chosen, as the user typed them ("vestra utf8"), for "see: ... --help".
std::string chosenCommand(const CLI::App& app) {
    std::string name = app.get_name();
    const CLI::App* at = &app;
    for (;;) {
        const std::vector<const CLI::App*> chosen =
            at->get_subcommands([](const CLI::App* s) { return s->parsed(); });
        if (chosen.empty()) break;
        at = chosen.front();
        name += " " + at->get_name();
    }
    return name;
}

int run(int argc, char** argv) {
    CLI::App app{
        "vestra: the library's formats, zones, logs, dumps, text and patterns from a shell.\n"
        "Exit status: 0 success, 1 a negative answer or bad input, 2 bad usage (arguments, a format,\n"
        "a pattern), a limit hit, or memory exhausted.\n"
        "Example: vestra printf '%5.2f|%-4s|\\n' 3.14159 ab",
        "vestra"};
    app.set_version_flag("--version", std::string("vestra ") + basicutil::libraryVersion());
    app.require_subcommand(1);
    app.fallthrough(false);
    Context context;
    addTextCommands(app, context);
    addTimeCommands(app, context);
    addLogCommands(app, context);
    addRandomCommands(app, context);
    addCrashCommands(app, context);
    addTimestampCommands(app, context);
    // The subcommands' names, as a set: a word that is none of them is refused before CLI11
    // would take it for a positional argument.
    std::vector<std::string> names;
    for (const CLI::App* s : app.get_subcommands([](const CLI::App*) { return true; }))
        names.push_back(s->get_name());
    basicutil::StaticStrSet subcommands;
    const basicutil::Status built = basicutil::StaticStrSet::build(
        std::vector<std::string_view>(names.begin(), names.end()), subcommands);
    VESTRA_ASSERT(built.ok());  // CLI11 refuses two subcommands of one name
    if (argc >= 2 && argv[1][0] != '-' && !subcommands.contains(argv[1])) {
        diagnose(std::string("unknown subcommand '") + argv[1] + "' (see: vestra --help)");
        return kUsage;
    }
    // printf's words are its format and arguments, whatever they look like ("-x", "-inf").
    if (argc >= 3 && std::string_view(argv[1]) == "printf" && std::string_view(argv[2]) != "--help" &&
        std::string_view(argv[2]) != "-h") {
        return printfArguments(std::vector<std::string>(argv + 2, argv + argc), context);
    }
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
        diagnose(std::string(e.what()) + " (see: " + chosenCommand(app) + " --help)");
        return kUsage;
    }
    return context.status;
}

}  // namespace

}  // namespace vestra::tool

int main(int argc, char** argv) {
    // The process's own thread is a Thread like any other: %t in a rendered line names it.
    basicutil::EmptyMainThread mainThread;
    try {
        const int status = vestra::tool::run(argc, argv);
        return vestra::tool::finish(status);
    } catch (const std::bad_alloc&) {
        vestra::tool::diagnose("memory exhausted");
        return vestra::tool::kUsage;
    }
}
