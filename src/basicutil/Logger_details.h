// Machinery shared by the logger's files; callers use Logger.h, LoggerAppender.h, LoggerConfig.h.
#pragma once

#include <string_view>

#include "basicutil/PrintfFormat.h"

namespace basicutil::logger_details {

// The text of a format with %m (errno's text, read when the call starts).
template <typename... Args>
Str withErrno(std::string_view format, const Args&... args) {
    Str out;
    appendPrintf(PrintfOutput(out), StrSegment(format), PrintfFormat::argumentList(args...),
                 PrintfFormatAtom::OPTION_ERRNO);
    return out;
}

}  // namespace basicutil::logger_details
