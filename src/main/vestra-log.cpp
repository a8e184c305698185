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

// vestra log check CONFIG
class LogCheck final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* check = parent.add_subcommand(
            "check",
            "Report every problem of a configuration file (and of its -local companion) with its\n"
            "file:line: lines that do not parse, keys given twice, bad patterns, appenders named but\n"
            "not defined, and files that cannot be opened for appending; exit 1 if any is an error.\n"
            "Example: vestra log check --program vestra-helper --print /etc/app/log.cfg");
        check->add_option("CONFIG", _path, "the configuration file, or - for standard input")->required();
        check->add_option("--program", _program, "the program whose [program] sections apply");
        check->add_flag("--print", _print, "print the keys in effect, each after the file:line it came from");
        return check;
    }
    int run() override { return logCheckCommand(_path, _program, _print); }

  private:
    std::string _path, _program;
    bool _print = false;
};

// vestra log render MESSAGE
class LogRender final : public Command {
  public:
    CLI::App* define(CLI::App& parent) override {
        CLI::App* render =
            parent.add_subcommand("render",
                                  "One line exactly as an appender would write it.\n"
                                  "Example: vestra log render --level WARN --channel Disk 'low on space'");
        render->add_flag("--json", _json, "the one-line JSON form");
        render->add_option("--pattern", _pattern, "the line pattern")->capture_default_str();
        render->add_option("--level", _level, "the level")->capture_default_str();
        render->add_option("--channel", _channel, "the channel")->capture_default_str();
        render->add_option("MESSAGE", _message, "the message")->required();
        return render;
    }
    int run() override { return logRenderCommand(_pattern, _json, _level, _channel, _message); }

  private:
    std::string _pattern = "%d %p %c [%t] %m%n", _level = "INFO", _channel = "vestra", _message;
    bool _json = false;
};

}  // namespace

void addLogCommands(CLI::App& app, Context& context) {
    CLI::App* log =
        app.add_subcommand("log",
                           "Log configuration files and log lines: check CONFIG | render MESSAGE.\n"
                           "Example: vestra log check /etc/app/log.cfg");
    log->require_subcommand(1);
    context.add<LogCheck>(*log);
    context.add<LogRender>(*log);
}

}  // namespace vestra::tool
