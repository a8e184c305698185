// Machinery shared by the logger's files; callers use Logger.h, LoggerAppender.h, LoggerConfig.h.
#pragma once

#include <string_view>

#include "basicutil/log/Logger.h"
#include "basicutil/logging/LoggerFormat.h"
#include "basicutil/text/PrintfFormat.h"

namespace basicutil {
class LogAppender;
}

namespace basicutil::logger_details {

// Logs the logging system's own trouble on the "Logger" channel, and writes it to standard error
// as well (at WARN and above) when that channel has no working appender to carry it besides
// `source`, the appender in trouble, or is gone. Nothing when the channel is switched off at
// that level: its owner chose not to hear.
void reportLogTrouble(LogLevel level, StrSegment text, const LogAppender* source);

// What tests reach inside a LogFormat: an atom of a kind no pattern produces, for the path that
// renders a corrupt list.
struct LogFormatAccess {
    static void appendCorruptAtom(LogFormat& format) {
        LogFormat::Atom bad;
        bad.kind = static_cast<LogFormat::Kind>(99);
        format._atoms.push_back(std::move(bad));
    }
};

// The text of a format with %m (errno's text, read when the call starts).
template <typename... Args>
Str withErrno(std::string_view format, const Args&... args) {
    Str out;
    appendPrintf(PrintfOutput(out), StrSegment(format), PrintfFormat::argumentList(args...),
                 PrintfFormatAtom::OPTION_ERRNO);
    return out;
}

}  // namespace basicutil::logger_details
