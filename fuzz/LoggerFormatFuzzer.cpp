// Line patterns: arbitrary patterns rendered with arbitrary messages, limits and modes; a JSON
// line always parses as one object, a trimmed message always meets its target.
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>

#include "FuzzReference.h"
#include "basicutil/logging/LoggerFormat.h"

using namespace basicutil;

namespace {

struct Accepting : LogFormatCallback {
    bool trimOversizedMessage(Str&, StrSegment, std::uint64_t, std::uint64_t) override { return true; }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 4) return 0;
    const int level = static_cast<int>(data[0] % 12) - 1;
    const std::uint64_t maxMessageSize = std::uint64_t{data[1]} * 8;
    const bool json = (data[2] & 1) != 0;
    const std::string_view rest(reinterpret_cast<const char*>(data + 3), size - 3);
    const std::size_t split = rest.find('\x01');
    const std::string pattern(rest.substr(0, split));  // the pattern is NUL-terminated text
    const std::string_view message =
        split == std::string_view::npos ? std::string_view() : rest.substr(split + 1);

    const LogFormat format(pattern.c_str());
    Accepting callback;
    Str line;
    format.render(line, {"fuzz\"comp", level, {1700000000, 123456}, message},
                  json ? LogSerialization::JSON : LogSerialization::TEXT, maxMessageSize, &callback);
    if (json) {
        const std::string text(line.view());
        const std::size_t close = text.find_last_of('}');
        FUZZ_CHECK(close != std::string::npos &&
                   text.find_first_not_of('\n', close + 1) == std::string::npos);
        FUZZ_CHECK(nlohmann::json::accept(text.substr(0, close + 1)));
    }
    // Trimming alone: exactly the target, less only the backslashes dropped from the head's end.
    if (message.size() > 45) {
        const std::uint64_t target = 45 + data[3] % (message.size() - 45);
        Str trimmed;
        renderTrimmedTo(trimmed, message.data(), message.size(), target);
        FUZZ_CHECK(trimmed.size() <= target);
        if (message.find('\\') == std::string_view::npos) FUZZ_CHECK(trimmed.size() == target);
    }
    return 0;
}
