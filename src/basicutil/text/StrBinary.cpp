#include "basicutil/text/StrBinary.h"

#include "basicutil/platform/Assert.h"

namespace basicutil {

void appendBigEndian32(Str& s, std::uint32_t v) {
    const char bytes[4] = {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
                           static_cast<char>(v)};
    s.append(bytes, 4);
}

void appendBigEndian64(Str& s, std::uint64_t v) {
    appendBigEndian32(s, static_cast<std::uint32_t>(v >> 32));
    appendBigEndian32(s, static_cast<std::uint32_t>(v));
}

void _appendBase128(Str& s, std::uint64_t v) {
    VESTRA_ASSERT(v >= 128);
    char bytes[10];  // ceil(64 / 7)
    unsigned n = 0;
    while (v > 127) {
        bytes[n++] = static_cast<char>((v & 0x7F) | 0x80);
        v >>= 7;
    }
    bytes[n++] = static_cast<char>(v);
    s.append(bytes, n);
}

}  // namespace basicutil
