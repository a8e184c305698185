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
// A section header selects the program the keys below it apply to: keys before any section
// apply to every program, keys under "[name]" only to the program configured with that name.
// After "x.cfg", its companion "x-local.cfg" beside it is read when it exists: a machine's own
// settings that override the shared file's, key by key.
//
// Every problem names the file and line and the rest of the file still applies. Problems found
// while reading are kept as deferred records and reported on the "Logger" channel once the new
// configuration is in place, so that they reach its appenders.
#pragma once

#include <map>
#include <memory>
#include <vector>

#include "basicutil/LoggerAppender.h"

namespace basicutil {

// A problem found while reading, reported once logging is set up.
struct DeferredLogConf {
    // What went wrong.
    enum ErrorType : int {
        PARSE_ERROR = 1,
        UNTERMINATED_COMMENT = 2,
        OPEN_FAILED = 3,
        INVALID_SERIALIZATION = 4,
        INVALID_ESCAPE = 5,
    };
    int error_type = PARSE_ERROR;  // an ErrorType
    Str file;                      // the configuration file
    unsigned line = 0;             // 1-based
    Str text;                      // the text at fault
    int error = 0;                 // errno, for OPEN_FAILED
    // "%s:%u: Parse error at \"%s\"", "%s:%u: Unterminated XML comment started",
    // "Couldn't open log file configuration \"%s\": %m", "%s:%u: Invalid serialization='%s'",
    // "%s:%u: Invalid escape='%s'", or for an unknown type
    // "I know not this DeferredLogConf::error_type=%d you speak of.".
    Str describe() const;
};

// A logging configuration read from files: channel levels, appenders and their settings.
class LogConfiguration {
  public:
    // Reads one file into the configuration; keys read later override earlier ones. False when
    // the file cannot be opened; parse problems are recorded (problems()) and skipped.
    bool parse_one_log_cfg_file(const char* path, StrSegment program);
    // The file, then its "-local" companion when there is one.
    void read(const char* path, StrSegment program);

    // Builds the appenders and gives every channel its level and appenders; channels made
    // later take the same. The deferred records are then reported and cleared.
    void apply();

    // What reading found wrong, not yet reported.
    const std::vector<DeferredLogConf>& problems() const noexcept { return _problems; }

  private:
    struct Category {
        bool hasLevel = false;
        LogLevel level = LOG_DEBUG;
        std::vector<Str> appenders;
    };
    struct AppenderKeys {
        LogAppenderSettings settings;
        Str layout;   // "BasicLayout", "SimpleLayout", "PatternLayout", or none
        Str pattern;  // layout.ConversionPattern
    };
    void setKey(StrSegment key, StrSegment value, const Str& file, unsigned line);
    void problem(int type, const Str& file, unsigned line, StrSegment text);
    bool category(StrSegment value, Category& into, const Str& file, unsigned line);

    Category _root;
    std::vector<Str> _rootAppenders;
    std::map<Str, Category> _categories;
    std::map<Str, AppenderKeys> _appenders;
    std::vector<DeferredLogConf> _problems;
};

// Reads the file (and its companion) for the program and applies it; the problems are also
// reported on the "Logger" channel. Calling it again re-reads the files: channels switch to the
// new appenders at once and the old ones write out what they hold before they go.
std::vector<DeferredLogConf> configureLogging(const char* path, StrSegment program);

}  // namespace basicutil
