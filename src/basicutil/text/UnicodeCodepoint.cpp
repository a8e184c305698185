#include "basicutil/text/UnicodeCodepoint.h"

#include <cctype>
#include <cstring>

#include "basicutil/platform/Assert.h"
#include "basicutil/text/StrBlocks.h"
#include "basicutil/text/UnicodeCodepointTables.h"

#define ARRAY_ELEMENTS(a) (sizeof(a) / sizeof((a)[0]))

namespace basicutil {

// --- Packing -------------------------------------------------------------------------------------

std::uint32_t codepoint_to_utf8bytes(std::uint32_t _cp) noexcept {
    VESTRA_ASSERT(_cp >= 0x80);
    const std::uint32_t cp = _cp;
    VESTRA_ASSERT(cp <= 0x10FFFF);
    if (cp < 0x800) return 0xC080 | ((cp << 2) & 0x1F00) | (cp & 0x3F);
    if (cp < 0x10000) return 0xE08080 | ((cp << 4) & 0x0F0000) | ((cp << 2) & 0x3F00) | (cp & 0x3F);
    return 0xF0808080 | ((cp << 6) & 0x07000000) | ((cp << 4) & 0x3F0000) | ((cp << 2) & 0x3F00) |
           (cp & 0x3F);
}

std::uint32_t utf8bytes_to_codepoint(std::uint32_t u) noexcept {
    if (u < 0x80) return u;
    if (u <= 0xE0807F) {
        VESTRA_ASSERT(u >= 0xC280);
        VESTRA_ASSERT(u <= 0xDFBF);
        return ((u >> 2) & 0x7C0) | (u & 0x3F);
    }
    if (u <= 0xF080807F) {
        VESTRA_ASSERT(u >= 0xE0A080);
        VESTRA_ASSERT(u <= 0xEFBFBF);
        return ((u >> 4) & 0xF000) | ((u >> 2) & 0xFC0) | (u & 0x3F);
    }
    VESTRA_ASSERT(u >= 0xF0908080);
    VESTRA_ASSERT(u <= 0xF48FBFBF);
    return ((u >> 6) & 0x1C0000) | ((u >> 4) & 0x3F000) | ((u >> 2) & 0xFC0) | (u & 0x3F);
}

// --- Properties ----------------------------------------------------------------------------------

namespace {
// The codepoint of a packed value, without range checks: for indexing only. Values past the last
// valid one land in the last block.
inline std::uint32_t codepointOfPacked(std::uint32_t u) {
    std::uint32_t cp;
    if (u <= 0xFFFF)
        cp = ((u >> 2) & 0x7C0) | (u & 0x3F);
    else if (u <= 0xFFFFFF)
        cp = ((u >> 4) & 0xF000) | ((u >> 2) & 0xFC0) | (u & 0x3F);
    else
        cp = ((u >> 6) & 0x1C0000) | ((u >> 4) & 0x3F000) | ((u >> 2) & 0xFC0) | (u & 0x3F);
    return cp > 0x10FFFF ? 0x10FFFF : cp;
}
}  // namespace

namespace {

// Index of the range that holds utf8bytes (>= 0xC280), searched among the ranges of its
// 256-codepoint block; the terminator (0xFFFFFFFF) bounds the last block.
unsigned propertyRangeIndex(std::uint32_t utf8bytes) {
    const std::uint32_t block = codepointOfPacked(utf8bytes) >> 8;
    unsigned lo = unicode_property_block_index[block];
    unsigned hi = unicode_property_block_index[block + 1] + 1u;
    while (lo < hi) {  // the first range that starts after the key
        const unsigned mid = lo + (hi - lo) / 2;
        if (unicode_property_ranges[mid].utf8bytes <= utf8bytes) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    const unsigned m = lo;
    VESTRA_ASSERT(m > 0);
    return m - 1;
}

}  // namespace

std::uint32_t unicodeFlagsBySearch(std::uint32_t utf8bytes) noexcept {
    return unicode_property_ranges[propertyRangeIndex(utf8bytes)].flags;
}

namespace {
// Whether a packed value is one that codepoint_to_utf8bytes makes: its flags can then come from
// the two-stage table. Other values (a continuation byte out of place, an overlong form) keep
// the answer of the range search, which places them between their neighbours.
bool isPackedCodepoint(std::uint32_t u) {
    if (u <= 0xDFBF) return (u & 0xC0) == 0x80;
    if (u <= 0xEFBFBF) return u >= 0xE0A080 && (u & 0xC0C0) == 0x8080;
    return u >= 0xF0908080 && u <= 0xF48FBFBF && (u & 0xC0C0C0) == 0x808080;
}
}  // namespace

std::uint32_t flags_from_utf8bytes(std::uint32_t utf8bytes) noexcept {
    VESTRA_ASSERT(utf8bytes >= 0xC280);
    if (isPackedCodepoint(utf8bytes)) return unicodeFlagsOf(codepointOfPacked(utf8bytes));
    return unicodeFlagsBySearch(utf8bytes);
}

std::uint32_t flags_from_cp(std::uint32_t _cp) noexcept {
    VESTRA_ASSERT(_cp >= 0x80);
    if (_cp > 0x10FFFF) return flags_from_utf8bytes(codepoint_to_utf8bytes(_cp));  // which asserts
    return unicodeFlagsOf(_cp);
}

namespace {

std::uint32_t caseClass(std::uint32_t flags) {
    return flags & UNICODE_CASE_MASK;
}

// The other case of a packed value, or the value itself when `from` is not its case.
// Written as selections, not branches: in mixed text the case changes from letter to letter.
inline std::uint32_t mapPacked(std::uint32_t packed, std::uint32_t flags, std::uint32_t from, bool toLower) {
    const std::uint32_t cls = caseClass(flags);
    const std::uint32_t delta = cls == from ? flags & UNICODE_CASE_DELTA_MASK : 0;
    const std::uint32_t alternate = toLower ? (packed | 1) : (packed & ~std::uint32_t{1});
    return cls == UNICODE_CASE_ALTERNATING ? alternate : packed ^ delta;
}

std::uint32_t mapCodepoint(std::uint32_t cp, bool toLower) {
    if (cp < 0x80) {
        if (toLower) return cp >= 'A' && cp <= 'Z' ? cp + 32 : cp;
        return cp >= 'a' && cp <= 'z' ? cp - 32 : cp;
    }
    const std::uint32_t packed = codepoint_to_utf8bytes(cp);
    const std::uint32_t flags = flags_from_utf8bytes(packed);
    return utf8bytes_to_codepoint(
        mapPacked(packed, flags, toLower ? UNICODE_CASE_UPPER : UNICODE_CASE_LOWER, toLower));
}

}  // namespace

bool codepoint_is_lower(std::uint32_t cp) noexcept {
    if (cp < 0x80) return std::islower(static_cast<int>(cp)) != 0;
    const std::uint32_t flags = flags_from_cp(cp);
    return caseClass(flags) == UNICODE_CASE_LOWER ||
           (caseClass(flags) == UNICODE_CASE_ALTERNATING && (cp & 1) != 0);
}

bool codepoint_is_upper(std::uint32_t cp) noexcept {
    if (cp < 0x80) return std::isupper(static_cast<int>(cp)) != 0;
    const std::uint32_t flags = flags_from_cp(cp);
    return caseClass(flags) == UNICODE_CASE_UPPER ||
           (caseClass(flags) == UNICODE_CASE_ALTERNATING && (cp & 1) == 0);
}

std::uint32_t codepoint_to_lower(std::uint32_t cp) noexcept {
    return mapCodepoint(cp, true);
}
std::uint32_t codepoint_to_upper(std::uint32_t cp) noexcept {
    return mapCodepoint(cp, false);
}

// --- Decoding ------------------------------------------------------------------------------------

bool decode_next_codepoint(std::string_view& view, std::uint32_t& cp) noexcept {
    if (view.empty()) return false;
    const auto byte = [&](std::size_t i) {
        return static_cast<std::uint32_t>(static_cast<unsigned char>(view[i]));
    };
    const auto continuation = [&](std::size_t i) { return i < view.size() && (byte(i) & 0xC0) == 0x80; };
    const std::uint32_t b0 = byte(0);
    if (b0 < 0x80) {
        cp = b0;
        view.remove_prefix(1);
        return true;
    }
    if (!continuation(1)) return false;
    const std::uint32_t two = (b0 << 6) + byte(1);
    if (two >= 0x3100 && two <= 0x387F) {
        cp = two - 0x3080;
        view.remove_prefix(2);
        return true;
    }
    if (!continuation(2)) return false;
    const std::uint32_t three = (two << 6) + byte(2);
    if (three >= 0xE2880 && three <= 0xF207F) {
        cp = three - 0xE2080;
        view.remove_prefix(3);
        return true;
    }
    if (!continuation(3)) return false;
    const std::uint32_t four = (three << 6) + byte(3);
    if (four >= 0x3C92080 && four <= 0x3D9207F) {
        cp = four - 0x3C82080;
        view.remove_prefix(4);
        return true;
    }
    return false;
}

namespace {

bool isContinuation(std::uint32_t by) {
    return (by & 0xC0) == 0x80;
}

// Bytes in a sequence that starts with `lead`; 0 for a byte that cannot start one.
unsigned sequenceLength(std::uint32_t lead) {
    if (lead >= 0xC2 && lead <= 0xDF) return 2;
    if (lead >= 0xE0 && lead <= 0xEF) return 3;
    if (lead >= 0xF0 && lead <= 0xF4) return 4;
    return 0;
}

// Starts a sequence when `by` is a possible lead; other bytes are ignored.
bool startSequence(std::uint32_t& state, std::uint32_t by) {
    state = sequenceLength(by) != 0 ? by << 24 : 0;
    return false;
}

}  // namespace

bool _accumulateUtf8Byte(std::uint32_t& state, std::uint8_t by) noexcept {
    if (state == 0) {
        VESTRA_ASSERT(by >= 0x80);
        return startSequence(state, by);
    }
    if (!isContinuation(by)) {
        if (by < 0x80) {
            state = by;
            return true;
        }
        return startSequence(state, by);
    }
    unsigned stored = 1;
    while (stored < 4 && ((state >> (24 - 8 * stored)) & 0xFF) != 0) ++stored;
    state |= static_cast<std::uint32_t>(by) << (24 - 8 * stored);
    ++stored;
    const std::uint32_t lead = state >> 24;
    if (stored < sequenceLength(lead)) return false;

    const std::uint32_t _cp = state;
    std::uint32_t cp;
    if (stored == 2) {
        cp = ((lead & 0x1F) << 6) | ((_cp >> 16) & 0x3F);
        VESTRA_ASSERT(cp >= 0x80);
    } else if (stored == 3) {
        cp = ((lead & 0x0F) << 12) | (((_cp >> 16) & 0x3F) << 6) | ((_cp >> 8) & 0x3F);
        if (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF)) return startSequence(state, 0);
    } else {
        VESTRA_ASSERT(_cp >= 0xF0000000);
        VESTRA_ASSERT(_cp <= 0xF4FFFFFF);
        cp = ((lead & 0x07) << 18) | (((_cp >> 16) & 0x3F) << 12) | (((_cp >> 8) & 0x3F) << 6) | (_cp & 0x3F);
        if (cp < 0x10000 || cp > 0x10FFFF) return startSequence(state, 0);
    }
    state = cp;
    return true;
}

// --- Text ----------------------------------------------------------------------------------------

namespace {

// The character at src[i]: a well-formed sequence as its packed value (and its length), anything
// else as one byte with `wellFormed` false.
struct Sequence {
    std::uint32_t packed;
    unsigned length;
    bool wellFormed;
};

inline Sequence sequenceAt(const char* at, const char* end) {
    const auto* p = reinterpret_cast<const unsigned char*>(at);
    const std::uint32_t lead = p[0];
    const unsigned need = sequenceLength(lead);
    if (need == 0 || need > static_cast<std::size_t>(end - at)) return {lead, 1, lead < 0x80};
    std::uint32_t packed = lead;
    for (unsigned k = 1; k < need; ++k) {
        if (!isContinuation(p[k])) return {lead, 1, false};
        packed = (packed << 8) | p[k];
    }
    // Overlong three- and four-byte forms, and values past U+10FFFF.
    const bool valid =
        (need != 3 || packed >= 0xE0A080) && (need != 4 || (packed >= 0xF0908080 && packed <= 0xF48FBFBF));
    if (!valid) return {lead, 1, false};
    return {packed, need, true};
}

inline Sequence sequenceAt(std::string_view src, std::size_t i) {
    return sequenceAt(src.data() + i, src.data() + src.size());
}

char* writePacked(char* out, std::uint32_t packed) {
    if (packed > 0xFFFFFF) *out++ = static_cast<char>(packed >> 24);
    if (packed > 0xFFFF) *out++ = static_cast<char>(packed >> 16);
    if (packed > 0xFF) *out++ = static_cast<char>(packed >> 8);
    *out++ = static_cast<char>(packed);
    return out;
}

// The bytes of a well-formed sequence, stored as one word when the machine allows: the output
// has room for the spare bytes.
char* writeSequence(char* out, std::uint32_t packed, unsigned length) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    const std::uint32_t bytes = __builtin_bswap32(packed << (8 * (4 - length)));
    std::memcpy(out, &bytes, 4);
    return out + length;
#else
    static_cast<void>(length);
    return writePacked(out, packed);
#endif
}

// The bytes that may begin a character with a case, found from the tables once: lead bytes whose
// codepoints reach a cased block. Every other byte (continuation bytes, leads of CJK, Hangul,
// Arabic...) passes through case conversion as it is, well-formed or not. The set is also kept
// as at most eight ranges, for testing sixteen bytes at a time.
class CasedLeads {
  public:
    CasedLeads() {
        // Below U+0800 each direction's mapping as a two-byte packed value, or 0 where the
        // mapped character is not two bytes long (those take the general path).
        for (std::uint32_t cp = 0x80; cp < 0x800; ++cp) {
            const std::uint32_t packed = codepoint_to_utf8bytes(cp), flags = unicodeFlagsOf(cp);
            const std::uint32_t upper = mapPacked(packed, flags, UNICODE_CASE_LOWER, false);
            const std::uint32_t lower = mapPacked(packed, flags, UNICODE_CASE_UPPER, true);
            _twoByte[0][cp] = static_cast<std::uint16_t>(upper >= 0xC280 && upper <= 0xDFBF ? upper : 0);
            _twoByte[1][cp] = static_cast<std::uint16_t>(lower >= 0xC280 && lower <= 0xDFBF ? lower : 0);
        }
        for (unsigned lead = 0xC2; lead <= 0xF4; ++lead) {
            std::uint32_t first, count;
            if (lead < 0xE0) {
                first = (lead & 0x1F) << 6, count = 1 << 6;
            } else if (lead < 0xF0) {
                first = (lead & 0x0F) << 12, count = 1 << 12;
            } else {
                first = (lead & 0x07) << 18, count = 1 << 18;
            }
            for (std::uint32_t cp = first; cp < first + count && cp <= 0x10FFFF;
                 cp += 1u << kUnicodeStageShift) {
                if (unicode_property_stage1[cp >> kUnicodeStageShift] >= unicode_first_cased_block) {
                    _cased[lead] = true;
                    break;
                }
            }
        }
        for (unsigned b = 0x80; b <= 0xFF; ++b) {
            if (!_cased[b] || _cased[b - 1]) continue;
            unsigned last = b;
            while (last < 0xFF && _cased[last + 1]) ++last;
            const bool added = _ranges.add(static_cast<unsigned char>(b), static_cast<unsigned char>(last));
            VESTRA_ASSERT(added);  // the tables' cased leads fall in a few runs
        }
    }
    // The two-byte mapping of cp (< 0x800), or 0.
    std::uint16_t twoByte(bool toLower, std::uint32_t cp) const { return _twoByte[toLower ? 1 : 0][cp]; }
    bool contains(unsigned char b) const { return _cased[b]; }
    // Bit i set where byte i of the block at p may begin a cased character.
    unsigned positions(const char* p) const { return blocks::inRanges(p, _ranges); }

  private:
    bool _cased[256] = {};
    std::uint16_t _twoByte[2][0x800] = {};
    blocks::ByteRanges _ranges;
};

const CasedLeads& casedLeads() {
    static const CasedLeads leads;
    return leads;
}

}  // namespace

namespace {

// One character at in[i] (a byte that may begin a cased one) mapped: its bytes in, its bytes out.
struct Mapped {
    std::uint32_t packed;  // what to write
    unsigned length;       // bytes to write
    unsigned consumed;     // bytes read
};

inline Mapped mapCased(const char* in, std::size_t i, std::size_t n, std::uint32_t from, bool toLower) {
    const auto lead = static_cast<unsigned char>(in[i]);
    const auto next = static_cast<unsigned char>(i + 1 < n ? in[i + 1] : 0);
    Sequence s;
    std::uint32_t cp;
    if (lead <= 0xDF && (next & 0xC0) == 0x80) {  // the common two bytes
        s = {(std::uint32_t{lead} << 8) | next, 2, true};
        cp = ((lead & 0x1Fu) << 6) | (next & 0x3Fu);
    } else {
        s = sequenceAt(in + i, in + n);
        if (!s.wellFormed) return {lead, 1, 1};
        cp = codepointOfPacked(s.packed);
    }
    const unsigned block = unicode_property_stage1[cp >> kUnicodeStageShift];
    if (block < unicode_first_cased_block) return {s.packed, s.length, s.length};
    const std::uint32_t flags =
        unicode_property_stage2[(block << kUnicodeStageShift) | (cp & ((1u << kUnicodeStageShift) - 1))];
    const std::uint32_t mapped = mapPacked(s.packed, flags, from, toLower);
    // The mapped value's length from its highest byte: U+0250 grows, U+0130 shrinks.
    return {mapped, (39 - static_cast<unsigned>(__builtin_clz(mapped))) / 8, s.length};
}

}  // namespace

std::size_t utf8CaseInto(std::string_view src, char* out, bool toLower) noexcept {
    char* const start = out;
    const char* const in = src.data();
    const std::size_t n = src.size();
    const std::uint32_t from = toLower ? UNICODE_CASE_UPPER : UNICODE_CASE_LOWER;
    const char first = toLower ? 'A' : 'a';
    const CasedLeads& cased = casedLeads();
    std::size_t i = 0;
    // Sixteen bytes at a time: ASCII letters swapped and every other byte copied in one store;
    // then the bytes that may begin a cased character are mapped over their own copies, jumping
    // from one to the next. A character whose mapping changes its length ends the block: the
    // bytes after it move.
    while (n - i >= blocks::kBlock) {
        blocks::swapAsciiCase(in + i, out, first);
        char* const base = out - i;  // where input position p goes while lengths stay equal
        std::size_t next = i + blocks::kBlock;
        char* moved = nullptr;
        for (unsigned stop = cased.positions(in + i); stop != 0; stop &= stop - 1) {
            const std::size_t j = i + static_cast<unsigned>(__builtin_ctz(stop));
            // Two bytes that stay two bytes, the common case, without a branch on the block.
            const auto lead = static_cast<unsigned char>(in[j]);
            const auto second = static_cast<unsigned char>(j + 1 < n ? in[j + 1] : 0);
            if (lead <= 0xDF && (second & 0xC0) == 0x80) {
                const std::uint32_t mapped = cased.twoByte(toLower, ((lead & 0x1Fu) << 6) | (second & 0x3Fu));
                if (mapped != 0) {
                    base[j] = static_cast<char>(mapped >> 8);
                    base[j + 1] = static_cast<char>(mapped);
                    if (j + 2 > next) next = j + 2;
                    continue;
                }
            }
            const Mapped m = mapCased(in, j, n, from, toLower);
            if (m.consumed > 1) writePacked(base + j, m.packed);  // one byte: copied as it was
            if (j + m.consumed > next) next = j + m.consumed;
            if (m.length != m.consumed) {
                next = j + m.consumed;
                moved = base + j + m.length;
                break;
            }
        }
        out = moved != nullptr ? moved : base + next;
        i = next;
    }
    while (i < n) {
        const char c = in[i];
        if (static_cast<unsigned char>(c) < 0x80) {
            *out++ = static_cast<unsigned char>(c - first) < 26 ? static_cast<char>(c ^ 0x20) : c;
            ++i;
        } else if (!cased.contains(static_cast<unsigned char>(c))) {
            *out++ = c;
            ++i;
        } else {
            const Mapped m = mapCased(in, i, n, from, toLower);
            out = writeSequence(out, m.packed, m.length);
            i += m.consumed;
        }
    }
    return static_cast<std::size_t>(out - start);
}

namespace {

void convertCase(std::string_view src, std::string& dst, bool toLower) {
    // A sequence of two or more bytes maps to at most four, and ASCII to one: twice the input
    // always suffices, so the conversion writes without checks and the string is cut after.
    dst.resize(2 * src.size() + 16);
    dst.resize(utf8CaseInto(src, dst.data(), toLower));
}

std::uint32_t foldForComparison(const Sequence& s) {
    if (s.packed < 0x80) return s.packed >= 'A' && s.packed <= 'Z' ? s.packed + 32 : s.packed;
    if (!s.wellFormed) return s.packed;
    return mapPacked(s.packed, flags_from_utf8bytes(s.packed), UNICODE_CASE_UPPER, true);
}

}  // namespace

void utf8_to_upper(std::string_view src, std::string& dst) {
    convertCase(src, dst, false);
}
void utf8_to_lower(std::string_view src, std::string& dst) {
    convertCase(src, dst, true);
}

int mem_compare_caseless(const char* lhs, const char* lhs_end, const char* rhs,
                         const char* rhs_end) noexcept {
    while (lhs < lhs_end && rhs < rhs_end) {
        const Sequence l = sequenceAt(std::string_view(lhs, static_cast<std::size_t>(lhs_end - lhs)), 0);
        const Sequence r = sequenceAt(std::string_view(rhs, static_cast<std::size_t>(rhs_end - rhs)), 0);
        const std::uint32_t a = foldForComparison(l), b = foldForComparison(r);
        if (a != b) return a < b ? -1 : 1;
        lhs += l.length;
        rhs += r.length;
    }
    if (lhs < lhs_end) return 1;
    VESTRA_ASSERT(lhs == lhs_end);
    if (rhs < rhs_end) return -1;
    VESTRA_ASSERT(rhs == rhs_end);
    return 0;
}

// --- Combining marks -----------------------------------------------------------------------------

namespace {

bool u1d5_and_u1d6_workaround(std::uint32_t utf8bytes, const char* p) {
    return (utf8bytes == 0xC795 && *p == 'U') || (utf8bytes == 0xC796 && *p == 'u');
}

bool isCombiningMark(std::uint32_t packed) {
    return packed >= 0xCC80 && packed <= 0xCDAF;
}

}  // namespace

std::uint32_t replacement_for_utf8bytes(std::uint32_t utf8bytes, std::uint32_t base, const char* p) noexcept {
    std::uint32_t b = utf8bytes_to_codepoint(utf8bytes) - kFirstCombiningMark;
    VESTRA_ASSERT(b < ARRAY_ELEMENTS(utf8_combiners));
    const CombinerRules* mu = &utf8_combiners[b];
    // The first rule whose base is not below `base`.
    std::uint32_t lo = 0, hi = mu->nrules;
    while (lo < hi) {
        const std::uint32_t mid = lo + (hi - lo) / 2;
        if (mu->rules[mid].base < base)
            lo = mid + 1;
        else
            hi = mid;
    }
    b = lo;
    if (b == mu->nrules) return 0;
    VESTRA_ASSERT(b < mu->nrules);
    if (mu->rules[b].base != base) return 0;
    utf8bytes = mu->rules[b].result;
    return u1d5_and_u1d6_workaround(utf8bytes, p) ? 0 : utf8bytes;
}

bool resolveUnicodeCombiningMarks(std::string_view src, std::string& dst) {
    dst.clear();
    dst.reserve(src.size());
    bool composed = false;
    std::uint32_t base = 0;            // the character marks may still join, 0 when none
    std::size_t baseAt = 0;            // where it starts in dst
    const char* written = src.data();  // where it started in src
    for (std::size_t i = 0; i < src.size();) {
        const Sequence s = sequenceAt(src, i);
        if (s.wellFormed && isCombiningMark(s.packed) && base != 0) {
            if (const std::uint32_t r = replacement_for_utf8bytes(s.packed, base, written)) {
                char bytes[4];
                dst.resize(baseAt);
                dst.append(bytes, static_cast<std::size_t>(writePacked(bytes, r) - bytes));
                base = r;
                composed = true;
                i += s.length;
                continue;
            }
        }
        // A mark that does not compose ends the cluster: later marks attach to it, not the base.
        if (s.wellFormed && !isCombiningMark(s.packed)) {
            base = s.packed;
            baseAt = dst.size();
            written = src.data() + i;
        } else {
            base = 0;
        }
        dst.append(src.substr(i, s.length));
        i += s.length;
    }
    return composed;
}

}  // namespace basicutil
