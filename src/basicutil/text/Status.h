// How an operation that can fail on its input or on the system says how it went: success, or an
// error number with a text that a caller can show as it is.
//
//   TimeZonePtr zone;
//   if (Status st = TimeZone::load("Europe/Paris", zone); !st) return report(st.text());
//
//   Regex re;
//   if (Status st = re.compile("(a"); !st)
//       use(st.text(), st.offset());     // "missing closing parenthesis", 2
//
// Every function that returns a Status must have it looked at: the class is [[nodiscard]], so a
// parser, loader or file call whose result is dropped does not compile.
#pragma once

#include <cstddef>

#include "basicutil/text/Str.h"

namespace basicutil {

// Success, or an error number (an errno value; EINVAL for input that does not parse) with a text.
// File calls word their texts `<call> "<path>": <strerror>`; parsers say what is wrong and, where
// they know it, the offset in their input where they stopped.
class [[nodiscard]] Status {
  public:
    // offset() of a failure that names no place in the input.
    static constexpr std::size_t kNoOffset = static_cast<std::size_t>(-1);

    Status() noexcept = default;  // success

    // A failure: `error` is nonzero, `text` says what went wrong, `offset` where in the input.
    static Status failure(int error, StrSegment text, std::size_t offset = kNoOffset);
    // Input that does not parse: EINVAL.
    static Status invalid(StrSegment text, std::size_t offset = kNoOffset);
    // The current errno (EIO if it is 0), with the call and what it was given:
    // `<call> "<object>": <strerror>`.
    static Status fromErrno(const char* call, StrSegment object);

    // Whether it is success.
    bool ok() const noexcept { return _error == 0; }
    explicit operator bool() const noexcept { return ok(); }  // ok()
    int error() const noexcept { return _error; }             // 0 on success
    const Str& text() const noexcept { return _text; }        // empty on success
    std::size_t offset() const noexcept { return _offset; }   // kNoOffset when none was given

    // Puts "<operation>: " in front of the text of a failure.
    Status& within(StrSegment operation);

  private:
    int _error = 0;
    Str _text;
    std::size_t _offset = kNoOffset;
};

}  // namespace basicutil
