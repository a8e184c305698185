// Log configuration files.
//
//   # Lines starting with "#" are comments, <!-- so are these -->, also across lines.
//   rootCategory=INFO, A1            the level of every channel, and where all their lines go
//   category.Thread=DEBUG, A2        one channel's level, and where its lines also go
//   rootAppender=A3                  one more appender for every channel
//   appender.A1.fileName=/var/log/app.log         none: standard error
//   appender.A1.maxFileSize=10MB                  rotate past this (KB, MB, GB: powers of 1024)
//   appender.A1.maxBackupIndex=5                  copies kept: app.log.1 .. app.log.5
//   appender.A1.layout=PatternLayout              or BasicLayout, SimpleLayout
//   appender.A1.layout.ConversionPattern=%d %p %c [%t] %m%n
//   appender.A1.serialization=JSON                one JSON object per line
//   appender.A1.maxMessageSize=64KB               longer messages are trimmed
//   appender.A1.buffered=true                     with bufferSize (default 8192)
//   appender.A1.escape=c                          none (default) or c
//   [vestra-helper]
//   category.Timeval=WARN                         only in the program named vestra-helper
//
// A "#" line is a comment whatever it holds: an XML comment opener or closer inside it counts for
// nothing. A section header selects the program the keys below it apply to: keys before any
// section apply to every program, keys under "[name]" only to the program configured with that
// name. After "x.cfg", its companion "x-local.cfg" beside it is read when it exists: a machine's
// own settings that override the shared file's, key by key. Within one file a key given twice
// for the same section is a problem (the later value holds); "rootAppender" adds an appender
// each time and may repeat.
//
// Every problem names the file and line and the rest of the file still applies. Problems found
// while reading are kept as deferred records and reported on the "Logger" channel once the new
// configuration is in place, so that they reach its appenders; they also reach standard error
// when no appender of that channel can carry them.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "basicutil/logging/LoggerAppender.h"
#include "basicutil/text/Status.h"

namespace basicutil {

// A problem found while reading or applying a configuration.
struct DeferredLogConf {
    // What went wrong.
    enum ErrorType : int {
        PARSE_ERROR = 1,
        UNTERMINATED_COMMENT = 2,
        OPEN_FAILED = 3,
        INVALID_SERIALIZATION = 4,
        INVALID_ESCAPE = 5,
        APPENDER_PROBLEM = 6,    // text: an appender's warning or failure, as it is logged
        UNDEFINED_APPENDER = 7,  // text: the name a category or rootAppender gives
        INVALID_PATTERN = 8,     // text: what the ConversionPattern's compiling dropped
        DUPLICATE_KEY = 9,       // text: the key; firstLine: where it was given before
    };
    int error_type = PARSE_ERROR;  // an ErrorType
    Str file;                      // the configuration file
    unsigned line = 0;             // 1-based
    Str text;                      // the text at fault
    int error = 0;                 // errno, for OPEN_FAILED
    unsigned firstLine = 0;        // for DUPLICATE_KEY
    LogLevel level = LOG_ERROR;    // the level it is reported at
    // "%s:%u: Parse error at \"%s\"", "%s:%u: Unterminated XML comment started",
    // "Couldn't open log file configuration \"%s\": %m", "%s:%u: Invalid serialization='%s'",
    // "%s:%u: Invalid escape='%s'", "%s:%u: <the appender's text>",
    // "%s:%u: Undefined appender \"%s\"", "%s:%u: Invalid ConversionPattern: %s",
    // "%s:%u: Key \"%s\" given again (first at line %u); the later value holds", or for an
    // unknown type "I know not this DeferredLogConf::error_type=%d you speak of.".
    Str describe() const;
};

// One key of a configuration as it stands, with where its value came from.
struct LogConfigEntry {
    Str key;            // "appender.A1.fileName"
    Str value;          // blanks around it removed
    Str file;           // the file it was read from
    unsigned line = 0;  // 1-based, in that file
};

// A logging configuration read from files: channel levels, appenders and their settings.
class LogConfiguration {
  public:
    // Reads one file into the configuration; keys read later override earlier ones. A failure
    // when the file cannot be read (also recorded as a problem, with the same text); parse
    // problems are recorded (problems()) and skipped.
    Status parse_one_log_cfg_file(const char* path, StrSegment program);
    // The same for text that came from elsewhere (standard input, say); `name` stands for the
    // file in problems and origins.
    void parseText(StrSegment text, StrSegment name, StrSegment program);
    // The file, then its "-local" companion when there is one.
    void read(const char* path, StrSegment program);
    // The companion of a file: "x.cfg" gives "x-local.cfg", a name without an extension gets
    // "-local" at its end.
    static Str localCompanion(const char* path);

    // The keys in effect, in the order they first appeared; a key given again holds its latest
    // value and origin. "rootAppender" appears once for each line that gives one.
    const std::vector<LogConfigEntry>& entries() const noexcept { return _entries; }

    // What applying would find, found without building anything: appenders named but never
    // defined, a PatternLayout without a pattern (or a pattern without it), each appender's
    // check warnings, and files that cannot be opened for appending (LogAppender::probeFile).
    // Added to problems().
    void verify();

    // Builds the appenders and gives every channel its level and appenders, through
    // Logger::setChannelSetup and Logger::initialize, so that channels made later take the same.
    // Then reports, on the "Logger" channel: the problems found while reading, appenders named
    // but never defined, layouts without their pattern, and what the appenders' checks and first
    // openings said (their warnings and failures are added to problems()).
    void apply();

    // What reading, verifying and applying found wrong, in that order.
    const std::vector<DeferredLogConf>& problems() const noexcept { return _problems; }

  private:
    // Where a key was given.
    struct Origin {
        Str file;
        unsigned line = 0;
    };
    // An appender's name as a category or rootAppender gives it.
    struct Reference {
        Str name;
        Origin origin;
    };
    struct Category {
        bool hasLevel = false;
        LogLevel level = LOG_DEBUG;
        std::vector<Reference> appenders;
    };
    struct AppenderKeys {
        LogAppenderSettings settings;
        Str layout;     // "BasicLayout", "SimpleLayout", "PatternLayout", or none
        Str pattern;    // layout.ConversionPattern
        Origin origin;  // its first key
    };
    void setKey(StrSegment key, StrSegment value, const Origin& origin);
    void record(StrSegment key, StrSegment value, const Origin& origin);
    void problem(int type, const Origin& origin, StrSegment text);
    bool category(StrSegment value, Category& into, const Origin& origin);
    std::vector<const Reference*> references() const;
    std::shared_ptr<const LogFormat> layoutOf(const AppenderKeys& keys) const;
    void checkLayout(const AppenderKeys& keys);

    Category _root;
    std::vector<Reference> _rootAppenders;
    std::map<Str, Category> _categories;
    std::map<Str, AppenderKeys> _appenders;
    std::vector<LogConfigEntry> _entries;
    std::vector<DeferredLogConf> _problems;
};

// Reads the file (and its companion) for the program and applies it. Returns every problem:
// the file's, appenders named but not defined, and the appenders' warnings and failures (a file
// that cannot be opened among them); each is also reported on the "Logger" channel. Calling it
// again re-reads the files: channels switch to the new appenders at once and the old ones write
// out what they hold before they go.
std::vector<DeferredLogConf> configureLogging(const char* path, StrSegment program);

}  // namespace basicutil
