// vestra log check and log render.
#include <string>

#include "basicutil/logging/LoggerConfig.h"
#include "basicutil/logging/LoggerFormat.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/timevalue/Timeval.h"
#include "main/vestra_details.h"

namespace vestra::tool {

using namespace basicutil;

namespace {

// A configuration as a program would read it: the file and its "-local" companion, or standard
// input for "-". Every problem is diagnosed, warnings marked as such; the status is 1 when any
// is an error. With `print`, the keys in effect go to standard output, each after the file and
// line it came from.
int logCheckCommand(const std::string& path, const std::string& program, bool print) {
    LogConfiguration configuration;
    if (path == "-") {
        std::string text;
        if (!forEachChunk(path, [&text](std::string_view chunk) { text.append(chunk); })) return kNegative;
        configuration.parseText(StrSegment(text), "standard input", StrSegment(program));
    } else {
        configuration.read(path.c_str(), StrSegment(program));
    }
    configuration.verify();
    bool errors = false;
    for (const DeferredLogConf& problem : configuration.problems()) {
        const bool error = problem.level >= LOG_ERROR;
        errors = errors || error;
        diagnose(std::string(error ? "" : "warning: ") + std::string(problem.describe().view()));
    }
    if (print) {
        Str lines;
        for (const LogConfigEntry& e : configuration.entries()) {
            appendf(lines, "%s:%u: %s=%s\n", e.file.view(), e.line, e.key.view(), e.value.view());
        }
        out().write(lines);
    }
    return errors ? kNegative : kOk;
}

int logRenderCommand(const std::string& pattern, bool json, const std::string& levelName,
                     const std::string& channel, const std::string& message) {
    LogLevel level = LOG_INFO;
    if (!parseLogLevel(StrSegment(levelName), level)) {
        diagnose("'" + levelName + "': not a level (DEBUG INFO NOTICE WARN ERROR CRIT ALERT FATAL EMERG)");
        return kUsage;
    }
    const LogFormat format(pattern.c_str());
    if (!format.problem().empty()) {
        diagnose("bad pattern: " + std::string(format.problem().view()));
        return kUsage;
    }
    LogEvent event;
    event.component = StrSegment(channel);
    event.level = level;
    event.time = Timeval::now();
    event.message = StrSegment(message);
    Str line;
    format.render(line, event, json ? LogSerialization::JSON : LogSerialization::TEXT, 0, nullptr);
    out().write(line);
    return kOk;
}

}  // namespace

void addLogCommands(CLI::App& app, Context& context) {
    static std::string path, program, pattern = "%d %p %c [%t] %m%n", level = "INFO", channel = "vestra",
                                      message;
    static bool json = false, print = false;

    CLI::App* log =
        app.add_subcommand("log",
                           "Log configuration files and log lines: check CONFIG | render MESSAGE.\n"
                           "Example: vestra log check /etc/app/log.cfg");
    log->require_subcommand(1);

    CLI::App* check = log->add_subcommand(
        "check",
        "Report every problem of a configuration file (and of its -local companion) with its\n"
        "file:line: lines that do not parse, keys given twice, bad patterns, appenders named but\n"
        "not defined, and files that cannot be opened for appending; exit 1 if any is an error.\n"
        "Example: vestra log check --program vestra-helper --print /etc/app/log.cfg");
    check->add_option("CONFIG", path, "the configuration file, or - for standard input")->required();
    check->add_option("--program", program, "the program whose [program] sections apply");
    check->add_flag("--print", print, "print the keys in effect, each after the file:line it came from");
    check->callback([&context] { context.status = logCheckCommand(path, program, print); });

    CLI::App* render =
        log->add_subcommand("render",
                            "One line exactly as an appender would write it.\n"
                            "Example: vestra log render --level WARN --channel Disk 'low on space'");
    render->add_flag("--json", json, "the one-line JSON form");
    render->add_option("--pattern", pattern, "the line pattern")->capture_default_str();
    render->add_option("--level", level, "the level")->capture_default_str();
    render->add_option("--channel", channel, "the channel")->capture_default_str();
    render->add_option("MESSAGE", message, "the message")->required();
    render->callback(
        [&context] { context.status = logRenderCommand(pattern, json, level, channel, message); });
}

}  // namespace vestra::tool
