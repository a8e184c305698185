#include "basicutil/logging/LoggerConfig.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

#include "basicutil/files/File.h"
#include "basicutil/logging/Logger_details.h"
#include "basicutil/text/PrintfFormat.h"
#include "basicutil/text/StaticStrSet.h"
#include "basicutil/text/StrParse.h"

namespace basicutil {

namespace {

using logger_details::withErrno;

constexpr std::uint64_t kMaxConfigBytes = 1 << 20;

// The whole file, at most kMaxConfigBytes (more is EFBIG).
Status readAll(const char* path, Str& out) {
    FileDescriptor fd;
    if (Status st = fd.open(path, O_RDONLY); !st) return st;
    out.clear();
    if (Status st = fd.readAll(out, kMaxConfigBytes); !st) return st;
    return fd.close();
}

StrSegment trimmed(StrSegment s) noexcept {
    const char* b = s.begin();
    const char* e = s.end();
    while (b < e && (*b == ' ' || *b == '\t')) ++b;
    while (e > b && (e[-1] == ' ' || e[-1] == '\t' || e[-1] == '\r')) --e;
    return {b, static_cast<size_type>(e - b)};
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

// What a configuration gives each channel: the root's level and appenders, and a category's
// own on top. Shared by the channel setup, which runs for every channel made later too.
struct ChannelSettings {
    bool hasLevel = false;
    LogLevel level = LOG_DEBUG;
    std::vector<std::shared_ptr<LogAppender>> appenders;
};
struct AppliedConfiguration {
    ChannelSettings root;
    std::map<Str, ChannelSettings> categories;  // appenders: the root's, then the category's
};

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
        case APPENDER_PROBLEM:
            return strprintf("%s:%u: %s", file.c_str(), line, text.c_str());
        case UNDEFINED_APPENDER:
            return strprintf("%s:%u: Undefined appender \"%s\"", file.c_str(), line, text.c_str());
        case INVALID_PATTERN:
            return strprintf("%s:%u: Invalid ConversionPattern: %s", file.c_str(), line, text.c_str());
        case DUPLICATE_KEY:
            return strprintf("%s:%u: Key \"%s\" given again (first at line %u); the later value holds",
                             file.c_str(), line, text.c_str(), firstLine);
        default:
            return strprintf("I know not this DeferredLogConf::error_type=%d you speak of.", error_type);
    }
}

void LogConfiguration::problem(int type, const Origin& origin, StrSegment text) {
    DeferredLogConf record;
    record.error_type = type;
    record.file = origin.file;
    record.line = origin.line;
    record.text = Str(text);
    _problems.push_back(std::move(record));
}

void LogConfiguration::record(StrSegment key, StrSegment value, const Origin& origin) {
    if (key.view() != "rootAppender") {
        for (LogConfigEntry& entry : _entries) {
            if (entry.key.view() == key.view()) {
                entry.value = Str(value);
                entry.file = origin.file;
                entry.line = origin.line;
                return;
            }
        }
    }
    _entries.push_back({Str(key), Str(value), origin.file, origin.line});
}

bool LogConfiguration::category(StrSegment value, Category& into, const Origin& origin) {
    std::string_view rest = value.view();
    const std::size_t comma = rest.find(',');
    const StrSegment level = trimmed(rest.substr(0, comma));
    LogLevel parsed = LOG_DEBUG;
    if (!level.empty() && !parseLogLevel(level, parsed)) {
        problem(DeferredLogConf::PARSE_ERROR, origin, level);
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
        if (!name.empty()) result.appenders.push_back({Str(name), origin});
    }
    into = std::move(result);
    return true;
}

namespace {

constexpr std::string_view kCategoryPrefix = "category.";
constexpr std::string_view kAppenderPrefix = "appender.";

// What follows "appender.<name>." in a key, and what the key sets: the set's members are in the
// enum's order, so a member's index is its key.
enum class AppenderKey {
    FILE_NAME,
    MAX_FILE_SIZE,
    MAX_BACKUP_INDEX,
    MAX_MESSAGE_SIZE,
    BUFFER_SIZE,
    LAYOUT,
    CONVERSION_PATTERN,
    SERIALIZATION,
    BUFFERED,
    ESCAPE,
};
constexpr auto kAppenderKeys =
    makeStaticStrSet({"fileName", "maxFileSize", "maxBackupIndex", "maxMessageSize", "bufferSize", "layout",
                      "layout.ConversionPattern", "serialization", "buffered", "escape"});
static_assert(kAppenderKeys.find("escape") == static_cast<std::size_t>(AppenderKey::ESCAPE));

// The layouts an appender may name.
constexpr auto kLayouts = makeStaticStrSet({"BasicLayout", "SimpleLayout", "PatternLayout"});

}  // namespace

void LogConfiguration::setKey(StrSegment key, StrSegment value, const Origin& origin) {
    const std::string_view k = key.view();
    const Str whole = strprintf("%s=%s", k, value.view());
    if (k == "rootCategory") {
        if (category(value, _root, origin)) record(key, value, origin);
        return;
    }
    if (k == "rootAppender") {
        if (value.empty()) {
            problem(DeferredLogConf::PARSE_ERROR, origin, whole);
        } else {
            _rootAppenders.push_back({Str(value), origin});
            record(key, value, origin);
        }
        return;
    }
    if (k.starts_with(kCategoryPrefix) && k.size() > kCategoryPrefix.size()) {
        Category parsed;
        if (category(value, parsed, origin)) {
            _categories[Str(k.substr(kCategoryPrefix.size()))] = std::move(parsed);
            record(key, value, origin);
        }
        return;
    }
    // appender.<name>.<setting>: a key of that shape defines the appender, even when the setting
    // is not one of the table's (that is a parse error of its own).
    const std::size_t nameAt = kAppenderPrefix.size();
    const std::size_t dot = k.find('.', nameAt);
    if (!k.starts_with(kAppenderPrefix) || dot == std::string_view::npos || dot == nameAt ||
        dot + 1 == k.size()) {
        problem(DeferredLogConf::PARSE_ERROR, origin, whole);
        return;
    }
    const Str name(k.substr(nameAt, dot - nameAt));
    const auto [found, fresh] = _appenders.try_emplace(name);
    AppenderKeys& keys = found->second;
    if (fresh) keys.origin = origin;
    const std::size_t settingIndex = kAppenderKeys.find(k.substr(dot + 1));
    if (settingIndex == kAppenderKeys.npos) {
        problem(DeferredLogConf::PARSE_ERROR, origin, whole);
        return;
    }
    const auto setting = static_cast<AppenderKey>(settingIndex);
    LogAppenderSettings& s = keys.settings;
    s.name = name;
    std::uint64_t number = 0;
    bool flag = false;
    switch (setting) {
        case AppenderKey::FILE_NAME:
            s.hasFileName = !value.empty();
            s.fileName = Str(value);
            break;
        case AppenderKey::MAX_FILE_SIZE:
        case AppenderKey::MAX_BACKUP_INDEX:
        case AppenderKey::MAX_MESSAGE_SIZE:
        case AppenderKey::BUFFER_SIZE:
            if (!sizeValue(value, number)) {
                problem(DeferredLogConf::PARSE_ERROR, origin, whole);
                return;
            }
            if (setting == AppenderKey::MAX_FILE_SIZE) s.maxFileSize = number;
            if (setting == AppenderKey::MAX_BACKUP_INDEX) s.maxBackupIndex = number;
            if (setting == AppenderKey::MAX_MESSAGE_SIZE) s.maxMessageSize = number;
            // 0 leaves the buffer size at its default.
            if (setting == AppenderKey::BUFFER_SIZE)
                s.bufferSize = number != 0 ? number : LogAppenderSettings{}.bufferSize;
            break;
        case AppenderKey::LAYOUT:
            if (!kLayouts.contains(value.view())) {
                problem(DeferredLogConf::PARSE_ERROR, origin, whole);
                return;
            }
            keys.layout = Str(value);
            break;
        case AppenderKey::CONVERSION_PATTERN: {
            keys.pattern = Str(value);
            const LogFormat compiled(keys.pattern.c_str());
            if (!compiled.problem().empty())
                problem(DeferredLogConf::INVALID_PATTERN, origin, compiled.problem());
            break;
        }
        case AppenderKey::SERIALIZATION:
            if (value.view() != "JSON") {
                problem(DeferredLogConf::INVALID_SERIALIZATION, origin, value);
                return;
            }
            s.serialization = LogSerialization::JSON;
            break;
        case AppenderKey::BUFFERED:
            if (!parseBool(value, flag)) {
                problem(DeferredLogConf::PARSE_ERROR, origin, whole);
                return;
            }
            s.buffered = flag;
            break;
        case AppenderKey::ESCAPE:
            if (value.view() == "none") {
                s.escape = LogEscape::NONE;
            } else if (value.view() == "c") {
                s.escape = LogEscape::C;
            } else {
                problem(DeferredLogConf::INVALID_ESCAPE, origin, value);
                return;
            }
            break;
    }
    record(key, value, origin);
}

Status LogConfiguration::parse_one_log_cfg_file(const char* path, StrSegment program) {
    Str text;
    if (const Status st = readAll(path, text); !st) {
        DeferredLogConf record;
        record.error_type = DeferredLogConf::OPEN_FAILED;
        record.file = Str(path);
        record.error = st.error();
        Status failed = Status::failure(st.error(), record.describe());
        _problems.push_back(std::move(record));
        return failed;
    }
    parseText(text, path, program);
    return {};
}

void LogConfiguration::parseText(StrSegment text, StrSegment name, StrSegment program) {
    Origin origin{Str(name), 0};
    bool inComment = false;
    unsigned commentStart = 0;
    bool sectionApplies = true;
    Str section;                                    // "" before the first header
    std::map<std::pair<Str, Str>, unsigned> given;  // (section, key): the line it was first given on
    std::string_view rest = text.view();
    while (!rest.empty()) {
        const std::size_t newline = rest.find('\n');
        std::string_view raw = rest.substr(0, newline);
        rest.remove_prefix(newline == std::string_view::npos ? rest.size() : newline + 1);
        ++origin.line;
        // A "#" line is a comment before anything else is looked at.
        const StrSegment whole = trimmed(raw);
        if (!inComment && !whole.empty() && whole[0] == '#') continue;
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
                commentStart = origin.line;
            }
        }
        const StrSegment line = trimmed(kept);
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') {
            const std::size_t close = line.view().find(']');
            if (close == std::string_view::npos || !trimmed(line.view().substr(close + 1)).empty()) {
                problem(DeferredLogConf::PARSE_ERROR, origin, line);
                continue;
            }
            section = Str(line.view().substr(1, close - 1));
            sectionApplies = section.view() == program.view();
            continue;
        }
        if (!sectionApplies) continue;
        const std::size_t equals = line.view().find('=');
        const StrSegment key = trimmed(line.view().substr(0, equals == std::string_view::npos ? 0 : equals));
        if (equals == std::string_view::npos || key.empty()) {
            problem(DeferredLogConf::PARSE_ERROR, origin, line);
            continue;
        }
        if (key.view() != "rootAppender") {
            const auto [first, fresh] = given.try_emplace({section, Str(key)}, origin.line);
            if (!fresh) {
                problem(DeferredLogConf::DUPLICATE_KEY, origin, key);
                _problems.back().firstLine = first->second;
            }
        }
        setKey(key, trimmed(line.view().substr(equals + 1)), origin);
    }
    if (inComment) problem(DeferredLogConf::UNTERMINATED_COMMENT, {origin.file, commentStart}, "");
}

Str LogConfiguration::localCompanion(const char* path) {
    const std::string_view p = path;
    const std::size_t slash = p.rfind('/');
    const std::size_t dot = p.rfind('.');
    const bool hasExtension =
        dot != std::string_view::npos && dot != 0 && (slash == std::string_view::npos || dot > slash + 1);
    return hasExtension ? strprintf("%s-local%s", p.substr(0, dot), p.substr(dot)) : strprintf("%s-local", p);
}

void LogConfiguration::read(const char* path, StrSegment program) {
    static_cast<void>(parse_one_log_cfg_file(path, program));
    const Str local = localCompanion(path);
    if (::access(local.c_str(), F_OK) == 0) static_cast<void>(parse_one_log_cfg_file(local.c_str(), program));
}

std::vector<const LogConfiguration::Reference*> LogConfiguration::references() const {
    std::vector<const Reference*> all;
    for (const Reference& r : _root.appenders) all.push_back(&r);
    for (const Reference& r : _rootAppenders) all.push_back(&r);
    for (const auto& [name, c] : _categories) {
        for (const Reference& r : c.appenders) all.push_back(&r);
    }
    return all;
}

std::shared_ptr<const LogFormat> LogConfiguration::layoutOf(const AppenderKeys& keys) const {
    const std::string_view layout = keys.layout.view();
    if (layout == "BasicLayout") return std::make_shared<const LogFormat>("%R %p %c %m%n");
    if (layout == "SimpleLayout") return std::make_shared<const LogFormat>("%-8p: %m%n");
    if (layout == "PatternLayout") return std::make_shared<const LogFormat>(keys.pattern.c_str());
    return nullptr;  // the default
}

void LogConfiguration::checkLayout(const AppenderKeys& keys) {
    const bool patternLayout = keys.layout.view() == "PatternLayout";
    if (patternLayout && keys.pattern.empty()) {
        problem(DeferredLogConf::INVALID_PATTERN, keys.origin,
                strprintf("appender \"%s\" has PatternLayout and no pattern: its lines are empty",
                          keys.settings.name.view()));
    } else if (!patternLayout && !keys.pattern.empty()) {
        problem(DeferredLogConf::INVALID_PATTERN, keys.origin,
                strprintf("appender \"%s\" has a pattern but not PatternLayout: its pattern is not used",
                          keys.settings.name.view()));
    }
}

void LogConfiguration::verify() {
    std::vector<const AppenderKeys*> used;
    for (const Reference* r : references()) {
        const auto keys = _appenders.find(r->name);
        if (keys == _appenders.end()) {
            problem(DeferredLogConf::UNDEFINED_APPENDER, r->origin, r->name);
        } else if (std::find(used.begin(), used.end(), &keys->second) == used.end()) {
            used.push_back(&keys->second);
        }
    }
    for (const AppenderKeys* keys : used) {
        checkLayout(*keys);
        LogAppenderSettings settings = keys->settings;
        for (const LogAppenderNotice& n : LogAppender::checkSettings(settings)) {
            problem(DeferredLogConf::APPENDER_PROBLEM, keys->origin, n.text);
            _problems.back().level = n.level;
        }
        Str error;
        if (settings.hasFileName && !LogAppender::probeFile(settings.fileName.c_str(), error)) {
            problem(DeferredLogConf::APPENDER_PROBLEM, keys->origin,
                    strprintf("Appender \"%s\": %s", settings.name.view(), error.view()));
        }
    }
}

void LogConfiguration::apply() {
    // What is logged once the channels have their appenders, in the order it was found.
    std::vector<LogAppenderNotice> report;
    for (const DeferredLogConf& p : _problems) report.push_back({p.level, p.describe()});

    std::map<Str, std::shared_ptr<LogAppender>> built;
    auto appenderFor = [&](const Reference& r) -> std::shared_ptr<LogAppender> {
        const auto done = built.find(r.name);
        if (done != built.end()) return done->second;
        const auto keys = _appenders.find(r.name);
        if (keys == _appenders.end()) {
            problem(DeferredLogConf::UNDEFINED_APPENDER, r.origin, r.name);
            report.push_back({LOG_ERROR, _problems.back().describe()});
            return nullptr;
        }
        const std::size_t known = _problems.size();
        checkLayout(keys->second);
        for (std::size_t i = known; i < _problems.size(); ++i)
            report.push_back({LOG_ERROR, _problems[i].describe()});
        LogAppenderSettings settings = keys->second.settings;
        settings.name = r.name;
        settings.layout = layoutOf(keys->second);
        std::vector<LogAppenderNotice> notices;
        auto appender = std::make_shared<LogAppender>(std::move(settings), false, notices);
        for (LogAppenderNotice& n : notices) {
            if (n.level >= LOG_WARN) {
                problem(DeferredLogConf::APPENDER_PROBLEM, keys->second.origin, n.text);
                _problems.back().level = n.level;
            }
            report.push_back(std::move(n));
        }
        built.emplace(r.name, appender);
        return appender;
    };
    auto add = [&](std::vector<std::shared_ptr<LogAppender>>& list, const Reference& r) {
        auto appender = appenderFor(r);
        if (appender != nullptr && std::find(list.begin(), list.end(), appender) == list.end())
            list.push_back(std::move(appender));
    };
    auto state = std::make_shared<AppliedConfiguration>();
    state->root.hasLevel = _root.hasLevel;
    state->root.level = _root.level;
    for (const Reference& r : _root.appenders) add(state->root.appenders, r);
    for (const Reference& r : _rootAppenders) add(state->root.appenders, r);
    for (const auto& [name, own] : _categories) {
        ChannelSettings settings = state->root;
        if (own.hasLevel) {
            settings.hasLevel = true;
            settings.level = own.level;
        }
        for (const Reference& r : own.appenders) add(settings.appenders, r);
        state->categories.emplace(name, std::move(settings));
    }
    Logger::setChannelSetup(
        [state = std::shared_ptr<const AppliedConfiguration>(std::move(state))](Logger& logger) {
            const auto own = state->categories.find(logger.name());
            const ChannelSettings& settings = own != state->categories.end() ? own->second : state->root;
            if (settings.hasLevel) logger.setThreshold(settings.level);
            logger.setAppenders({settings.appenders.begin(), settings.appenders.end()});
        });
    Logger::initialize();
    for (const LogAppenderNotice& n : report) logger_details::reportLogTrouble(n.level, n.text, nullptr);
}

std::vector<DeferredLogConf> configureLogging(const char* path, StrSegment program) {
    LogConfiguration configuration;
    configuration.read(path, program);
    configuration.apply();
    return configuration.problems();
}

}  // namespace basicutil
