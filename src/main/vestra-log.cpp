// vestra log check and log render.
#include <string>

#include "basicutil/Logger.h"
#include "basicutil/LoggerConfig.h"
#include "basicutil/Timeval.h"
#include "main/vestra_details.h"

namespace vestra::tool {

using namespace basicutil;

namespace {

int logCheckCommand(const std::string& path, const std::string& program) {
    LogConfiguration configuration;
    const bool opened = configuration.parse_one_log_cfg_file(path.c_str(), StrSegment(program));
    for (const DeferredLogConf& problem : configuration.problems()) diagnose(problem.describe().view());
    if (!opened && configuration.problems().empty()) diagnose("cannot open " + path);
    return opened && configuration.problems().empty() ? kOk : kNegative;
}

int logRenderCommand(const std::string& pattern, bool json, const std::string& levelName,
                     const std::string& channel, const std::string& message) {
    LogLevel level = LOG_INFO;
    if (!parseLogLevel(StrSegment(levelName), level)) {
        diagnose("'" + levelName + "': not a level (DEBUG INFO NOTICE WARN ERROR CRIT ALERT FATAL EMERG)");
        return kUsage;
    }
    const LogFormat format(pattern.c_str());
    LogEvent event;
    event.component = StrSegment(channel);
    event.level = level;
    event.time = Timeval::now();
    event.message = StrSegment(message);
    Str line;
    format.render(line, event, json ? LogFormat::SERIALIZE_JSON : LogFormat::SERIALIZE_TEXT, 0, nullptr);
    out().write(line);
    return kOk;
}

}  // namespace

void addLogCommands(CLI::App& app, Context& context) {
    static std::string path, program, pattern = "%d %p %c [%t] %m%n", level = "INFO", channel = "vestra",
                                      message;
    static bool json = false;

    CLI::App* log =
        app.add_subcommand("log",
                           "Log configuration files and log lines: check CONFIG | render MESSAGE.\n"
                           "Example: vestra log check /etc/app/log.cfg");
    log->require_subcommand(1);

    CLI::App* check = log->add_subcommand(
        "check",
        "Report every problem of a configuration file with its file:line; exit 1 if any.\n"
        "Example: vestra log check /etc/app/log.cfg");
    check->add_option("CONFIG", path, "the configuration file")->required();
    check->add_option("--program", program, "the program whose [program] sections apply");
    check->callback([&context] { context.status = logCheckCommand(path, program); });

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
