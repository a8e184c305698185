#include "basicutil/LoggerConfig.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "basicutil/Logger_details.h"
#include "basicutil/PrintfFormat.h"
#include "basicutil/StrParse.h"

namespace basicutil {

namespace {

using logger_details::withErrno;

constexpr std::uint64_t kMaxConfigBytes = 1 << 20;

// The whole file; false with errno set.
bool readAll(const char* path, Str& out) {
    const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    out.clear();
    char chunk[8192];
    bool ok = true;
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            ok = false;
            break;
        }
        if (n == 0) break;
        if (out.size() + static_cast<size_type>(n) > kMaxConfigBytes) {
            errno = EFBIG;
            ok = false;
            break;
        }
        out.append(chunk, static_cast<size_type>(n));
    }
    const int saved = errno;
    if (::close(fd) != 0 && ok) return false;
    errno = saved;
    return ok;
}

StrSegment trimmed(StrSegment s) noexcept {
    const char* b = s.begin();
    const char* e = s.end();
    while (b < e && (*b == ' ' || *b == '\t')) ++b;
    while (e > b && (e[-1] == ' ' || e[-1] == '\t' || e[-1] == '\r')) --e;
    return {b, static_cast<size_type>(e - b)};
}

bool startsWith(StrSegment s, std::string_view prefix) noexcept {
    return s.view().substr(0, prefix.size()) == prefix;
}

// Decimal digits with an optional KB, MB or GB (powers of 1024).
bool sizeValue(StrSegment text, std::uint64_t& value) noexcept {
    std::string_view v = text.view();
    std::uint64_t scale = 1;
    for (const auto& [suffix, factor] : {std::pair<std::string_view, std::uint64_t>{"KB", 1024},
                                         {"MB", 1024 * 1024},
                                         {"GB", 1024 * 1024 * 1024}}) {
        if (v.size() > suffix.size() && v.substr(v.size() - suffix.size()) == suffix) {
            scale = factor;
            v.remove_suffix(suffix.size());
            break;
        }
    }
    if (v.empty() || v.size() > 19) return false;
    std::uint64_t n = 0;
    for (char c : v) {
        if (c < '0' || c > '9') return false;
        n = n * 10 + static_cast<std::uint64_t>(c - '0');
    }
    if (n > UINT64_MAX / scale) return false;
    value = n * scale;
    return true;
}

// Set up for channels made after a configuration was applied.
struct Applied {
    std::mutex mutex;
    std::vector<std::shared_ptr<LogAppender>> rootAppenders;
    bool hasLevel = false;
    LogLevel level = LOG_DEBUG;
};

Applied& applied() {
    static Applied instance;
    return instance;
}

}  // namespace

Str DeferredLogConf::describe() const {
    switch (error_type) {
        case PARSE_ERROR:
            return strprintf("%s:%u: Parse error at \"%s\"", file.c_str(), line, text.c_str());
        case UNTERMINATED_COMMENT:
            return strprintf("%s:%u: Unterminated XML comment started", file.c_str(), line);
        case OPEN_FAILED: {
            errno = error;
            return withErrno("Couldn't open log file configuration \"%s\": %m", file.c_str());
        }
        case INVALID_SERIALIZATION:
            return strprintf("%s:%u: Invalid serialization='%s'", file.c_str(), line, text.c_str());
        case INVALID_ESCAPE:
            return strprintf("%s:%u: Invalid escape='%s'", file.c_str(), line, text.c_str());
        default:
            return strprintf("I know not this DeferredLogConf::error_type=%d you speak of.", error_type);
    }
}

void LogConfiguration::problem(int type, const Str& file, unsigned line, StrSegment text) {
    DeferredLogConf record;
    record.error_type = type;
    record.file = file;
    record.line = line;
    record.text = Str(text);
    _problems.push_back(std::move(record));
}

bool LogConfiguration::category(StrSegment value, Category& into, const Str& file, unsigned line) {
    std::string_view rest = value.view();
    const std::size_t comma = rest.find(',');
    const StrSegment level = trimmed(rest.substr(0, comma));
    LogLevel parsed = LOG_DEBUG;
    if (!level.empty() && !parseLogLevel(level, parsed)) {
        problem(DeferredLogConf::PARSE_ERROR, file, line, level);
        return false;
    }
    Category result;
    result.hasLevel = !level.empty();
    result.level = parsed;
    while (comma != std::string_view::npos && !rest.empty()) {
        const std::size_t at = rest.find(',');
        if (at == std::string_view::npos) break;
        rest.remove_prefix(at + 1);
        const StrSegment name = trimmed(rest.substr(0, rest.find(',')));
        if (!name.empty()) result.appenders.emplace_back(name);
    }
    into = std::move(result);
    return true;
}

void LogConfiguration::setKey(StrSegment key, StrSegment value, const Str& file, unsigned line) {
    const std::string_view k = key.view();
    const Str whole = strprintf("%s=%s", k, value.view());
    if (k == "rootCategory") {
        category(value, _root, file, line);
        return;
    }
    if (k == "rootAppender") {
        if (value.empty()) {
            problem(DeferredLogConf::PARSE_ERROR, file, line, whole);
        } else {
            _rootAppenders.emplace_back(value);
        }
        return;
    }
    if (startsWith(key, "category.") && k.size() > 9) {
        Category parsed;
        if (category(value, parsed, file, line)) _categories[Str(k.substr(9))] = std::move(parsed);
        return;
    }
    const std::size_t dot = k.find('.', 9);
    if (!startsWith(key, "appender.") || dot == std::string_view::npos || dot == 9 || dot + 1 == k.size()) {
        problem(DeferredLogConf::PARSE_ERROR, file, line, whole);
        return;
    }
    const Str name(k.substr(9, dot - 9));
    const std::string_view sub = k.substr(dot + 1);
    LogAppenderSettings& s = _appenders[name].settings;
    s.name = name;
    std::uint64_t number = 0;
    bool flag = false;
    if (sub == "fileName") {
        s.hasFileName = !value.empty();
        s.fileName = Str(value);
    } else if (sub == "maxFileSize" || sub == "maxBackupIndex" || sub == "maxMessageSize" ||
               sub == "bufferSize") {
        if (!sizeValue(value, number)) {
            problem(DeferredLogConf::PARSE_ERROR, file, line, whole);
            return;
        }
        (sub == "maxFileSize"      ? s.maxFileSize
         : sub == "maxBackupIndex" ? s.maxBackupIndex
         : sub == "maxMessageSize" ? s.maxMessageSize
                                   : s.bufferSize) = number;
        if (sub == "bufferSize" && number == 0)
            s.bufferSize = LogAppenderSettings{}.bufferSize;  // 0: not set
    } else if (sub == "layout") {
        if (value.view() != "BasicLayout" && value.view() != "SimpleLayout" &&
            value.view() != "PatternLayout") {
            problem(DeferredLogConf::PARSE_ERROR, file, line, whole);
            return;
        }
        _appenders[name].layout = Str(value);
    } else if (sub == "layout.ConversionPattern") {
        _appenders[name].pattern = Str(value);
    } else if (sub == "serialization") {
        if (value.view() != "JSON") {
            problem(DeferredLogConf::INVALID_SERIALIZATION, file, line, value);
            return;
        }
        s.serialization = 2;
    } else if (sub == "buffered") {
        if (!parseBool(value, flag)) {
            problem(DeferredLogConf::PARSE_ERROR, file, line, whole);
            return;
        }
        s.buffered = flag;
    } else if (sub == "escape") {
        if (value.view() == "none") {
            s.escape = LogEscape::NONE;
        } else if (value.view() == "c") {
            s.escape = LogEscape::C;
        } else {
            problem(DeferredLogConf::INVALID_ESCAPE, file, line, value);
        }
    } else {
        problem(DeferredLogConf::PARSE_ERROR, file, line, whole);
    }
}

bool LogConfiguration::parse_one_log_cfg_file(const char* path, StrSegment program) {
    const Str file(path);
    Str text;
    if (!readAll(path, text)) {
        DeferredLogConf record;
        record.error_type = DeferredLogConf::OPEN_FAILED;
        record.file = file;
        record.error = errno;
        _problems.push_back(std::move(record));
        return false;
    }
    bool inComment = false;
    unsigned commentStart = 0;
    bool sectionApplies = true;
    unsigned lineNumber = 0;
    std::string_view rest = text.view();
    while (!rest.empty()) {
        const std::size_t newline = rest.find('\n');
        std::string_view raw = rest.substr(0, newline);
        rest.remove_prefix(newline == std::string_view::npos ? rest.size() : newline + 1);
        ++lineNumber;
        // XML comments out, across lines too.
        Str kept;
        while (!raw.empty()) {
            if (inComment) {
                const std::size_t close = raw.find("-->");
                if (close == std::string_view::npos) {
                    raw = {};
                } else {
                    raw.remove_prefix(close + 3);
                    inComment = false;
                }
            } else {
                const std::size_t open = raw.find("<!--");
                kept.append(raw.substr(0, open));
                if (open == std::string_view::npos) break;
                raw.remove_prefix(open + 4);
                inComment = true;
                commentStart = lineNumber;
            }
        }
        const StrSegment line = trimmed(kept);
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') {
            const std::size_t close = line.view().find(']');
            if (close == std::string_view::npos || !trimmed(line.view().substr(close + 1)).empty()) {
                problem(DeferredLogConf::PARSE_ERROR, file, lineNumber, line);
                continue;
            }
            sectionApplies = line.view().substr(1, close - 1) == program.view();
            continue;
        }
        if (!sectionApplies) continue;
        const std::size_t equals = line.view().find('=');
        const StrSegment key = trimmed(line.view().substr(0, equals == std::string_view::npos ? 0 : equals));
        if (equals == std::string_view::npos || key.empty()) {
            problem(DeferredLogConf::PARSE_ERROR, file, lineNumber, line);
            continue;
        }
        setKey(key, trimmed(line.view().substr(equals + 1)), file, lineNumber);
    }
    if (inComment) problem(DeferredLogConf::UNTERMINATED_COMMENT, file, commentStart, "");
    return true;
}

void LogConfiguration::read(const char* path, StrSegment program) {
    static_cast<void>(parse_one_log_cfg_file(path, program));
    // "x.cfg" -> "x-local.cfg"; a name without an extension gets "-local" at its end.
    const std::string_view p = path;
    const std::size_t slash = p.rfind('/');
    const std::size_t dot = p.rfind('.');
    const bool hasExtension =
        dot != std::string_view::npos && (slash == std::string_view::npos || dot > slash);
    const Str local =
        hasExtension ? strprintf("%s-local%s", p.substr(0, dot), p.substr(dot)) : strprintf("%s-local", p);
    if (::access(local.c_str(), F_OK) == 0) static_cast<void>(parse_one_log_cfg_file(local.c_str(), program));
}

void LogConfiguration::apply() {
    std::map<Str, std::shared_ptr<LogAppender>> built;
    auto appenderNamed = [&](const Str& name) -> std::shared_ptr<LogAppender> {
        const auto done = built.find(name);
        if (done != built.end()) return done->second;
        const auto keys = _appenders.find(name);
        if (keys == _appenders.end()) {
            problem(DeferredLogConf::PARSE_ERROR, "(configuration)", 0,
                    strprintf("appender %s", name.view()));
            return nullptr;
        }
        LogAppenderSettings settings = keys->second.settings;
        settings.name = name;
        const Str& layout = keys->second.layout;
        if (layout.view() == "BasicLayout") {
            settings.layout = std::make_shared<const LogFormat>("%R %p %c %m%n");
        } else if (layout.view() == "SimpleLayout") {
            settings.layout = std::make_shared<const LogFormat>("%-8p: %m%n");
        } else if (layout.view() == "PatternLayout") {
            settings.layout = std::make_shared<const LogFormat>(keys->second.pattern.c_str());
        }
        auto appender = std::make_shared<LogAppender>(std::move(settings));
        built.emplace(name, appender);
        return appender;
    };
    auto add = [&](std::vector<std::shared_ptr<LogAppender>>& list, const Str& name) {
        auto appender = appenderNamed(name);
        if (appender != nullptr && std::find(list.begin(), list.end(), appender) == list.end())
            list.push_back(appender);
    };
    std::vector<std::shared_ptr<LogAppender>> root;
    for (const Str& name : _root.appenders) add(root, name);
    for (const Str& name : _rootAppenders) add(root, name);

    struct Setup : Logger::iterate_channels_callback {
        LogConfiguration& config;
        const std::vector<std::shared_ptr<LogAppender>>& root;
        decltype(add)& addTo;
        Setup(LogConfiguration& c, const std::vector<std::shared_ptr<LogAppender>>& r, decltype(add)& a)
            : config(c), root(r), addTo(a) {}
        void visit(Logger& logger) override {
            std::vector<std::shared_ptr<LogAppender>> list = root;
            const auto own = config._categories.find(logger.name());
            if (own != config._categories.end()) {
                for (const Str& name : own->second.appenders) addTo(list, name);
                if (own->second.hasLevel) logger.setThreshold(own->second.level);
            } else if (config._root.hasLevel) {
                logger.setThreshold(config._root.level);
            }
            logger.setAppenders(std::move(list));
        }
    } setup(*this, root, add);
    Logger::iterateChannels(setup);
    {
        Applied& state = applied();
        std::lock_guard<std::mutex> lock(state.mutex);
        state.rootAppenders = root;
        state.hasLevel = _root.hasLevel;
        state.level = _root.level;
    }
    Logger::setChannelSetup([](Logger& logger) {
        Applied& state = applied();
        std::lock_guard<std::mutex> lock(state.mutex);
        if (state.hasLevel) logger.setThreshold(state.level);
        logger.setAppenders(state.rootAppenders);
    });
    Logger::initialize();
    for (const DeferredLogConf& record : _problems) loggerChannel().log(LOG_ERROR, record.describe());
}

std::vector<DeferredLogConf> configureLogging(const char* path, StrSegment program) {
    LogConfiguration configuration;
    configuration.read(path, program);
    configuration.apply();
    return configuration.problems();
}

}  // namespace basicutil
