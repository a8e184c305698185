#include "basicutil/hexdump/HexDumper.h"

#include <cstring>

#include "basicutil/platform/Assert.h"

namespace basicutil {

namespace {

constexpr char kDigits[] = "0123456789abcdef";
constexpr std::size_t kBytesPerLine = 16;
constexpr std::size_t kHexColumn = 10;  // after the offset and two blanks
constexpr std::size_t kBarColumn = 60;  // the first "|": 16 x 3, one blank in the middle, one more

// Two hex digits for every byte value.
constexpr auto kPairs = [] {
    struct {
        char text[512];
    } t{};
    for (int b = 0; b < 256; ++b) {
        t.text[2 * b] = kDigits[b >> 4];
        t.text[2 * b + 1] = kDigits[b & 15];
    }
    return t;
}();

// At least 8 digits, more when the offset needs them.
char* putOffset(char* d, std::uint64_t offset) noexcept {
    int shift = 28;
    while (shift < 60 && (offset >> (shift + 4)) != 0) shift += 4;
    for (; shift >= 0; shift -= 4) *d++ = kDigits[(offset >> shift) & 15];
    return d;
}

}  // namespace

HexDumper::~HexDumper() = default;

void HexDumper::do_dump(const void* data, std::size_t length) {
    dumpLines(data, length, 0);
    lengthLine(length);
}

void HexDumper::lengthLine(std::uint64_t length) {
    char buf[16];
    char* d = putOffset(buf, length);
    line(buf, static_cast<std::size_t>(d - buf));
}

void HexDumper::dumpLines(const void* data, std::size_t length, std::uint64_t start) {
    const auto* bytes = static_cast<const unsigned char*>(data);
    // Offsets past 8 digits push the rest of the line right.
    char buf[88];
    for (std::size_t offset = 0; offset < length; offset += kBytesPerLine) {
        const std::size_t count = length - offset < kBytesPerLine ? length - offset : kBytesPerLine;
        char* const line_ = putOffset(buf, start + offset) - 8;  // the line as if the offset had 8 digits
        const std::size_t extra = static_cast<std::size_t>(line_ - buf);
        std::memset(buf + 8 + extra, ' ', kBarColumn - 8);
        char* d = line_ + kHexColumn;
        for (std::size_t i = 0; i < count; ++i) {
            std::memcpy(d, kPairs.text + 2 * bytes[offset + i], 2);
            d += i == 7 ? 4 : 3;  // one more blank between the two groups
        }
        d = line_ + kBarColumn;
        *d++ = '|';
        for (std::size_t i = 0; i < count; ++i) {
            const unsigned char c = bytes[offset + i];
            *d++ = c >= 0x20 && c <= 0x7e ? static_cast<char>(c) : '.';
        }
        *d++ = '|';
        VESTRA_ASSERT(d <= &buf[sizeof(buf)]);
        line(buf, static_cast<std::size_t>(d - buf));
    }
}

void HexDumper_to_CrashLog::line(const char* text, std::size_t length) {
    crash_dump_bytes(_out, text, length);
    crash_dump_char(_out, '\n');
}

void HexDumper_to_Str::line(const char* text, std::size_t length) {
    char* p = _out.appendUninitialized(length + 1);
    std::memcpy(p, text, length);
    p[length] = '\n';
}

void HexDumper_to_StrVector::line(const char* text, std::size_t length) {
    _out.emplace_back(text, length);
}

void HexDumper_to_Logger::line(const char* text, std::size_t length) {
    _logger.log(_level, std::string_view(text, length));
}

}  // namespace basicutil
