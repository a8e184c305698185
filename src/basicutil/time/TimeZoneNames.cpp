// Abbreviations read back from text: what offsets a name such as "CST" may stand for.
#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

#include "basicutil/text/StaticStrSet.h"
#include "basicutil/text/UnicodeCodepoint.h"
#include "basicutil/time/TimeZone.h"
#include "basicutil/time/TimeZone_details.h"

namespace basicutil {

namespace {

struct KnownAbbreviation {
    std::string_view abbreviation;
    std::int32_t utcOffset;
    bool isDst;
};

constexpr std::int32_t H = 3600, M = 60;

// Each abbreviation's meanings together, in order of preference where it has several.
constexpr KnownAbbreviation kKnownAbbreviations[] = {
    {"UTC", 0, false},
    {"GMT", 0, false},
    {"UT", 0, false},
    {"Z", 0, false},
    {"EST", -5 * H, false},
    {"EDT", -4 * H, true},
    {"CST", -6 * H, false},
    {"CST", 8 * H, false},
    {"CST", -5 * H, true},
    {"CDT", -5 * H, true},
    {"MST", -7 * H, false},
    {"MDT", -6 * H, true},
    {"PST", -8 * H, false},
    {"PDT", -7 * H, true},
    {"AKST", -9 * H, false},
    {"AKDT", -8 * H, true},
    {"HST", -10 * H, false},
    {"HDT", -9 * H, true},
    {"AST", -4 * H, false},
    {"ADT", -3 * H, true},
    {"NST", -(3 * H + 30 * M), false},
    {"NDT", -(2 * H + 30 * M), true},
    {"WET", 0, false},
    {"WEST", 1 * H, true},
    {"BST", 1 * H, true},
    {"BST", 6 * H, false},
    {"IST", 5 * H + 30 * M, false},
    {"IST", 1 * H, true},
    {"IST", 2 * H, false},
    {"CET", 1 * H, false},
    {"CEST", 2 * H, true},
    {"MET", 1 * H, false},
    {"MEST", 2 * H, true},
    {"EET", 2 * H, false},
    {"EEST", 3 * H, true},
    {"MSK", 3 * H, false},
    {"IDT", 3 * H, true},
    {"WAT", 1 * H, false},
    {"CAT", 2 * H, false},
    {"SAST", 2 * H, false},
    {"EAT", 3 * H, false},
    {"PKT", 5 * H, false},
    {"WIB", 7 * H, false},
    {"WITA", 8 * H, false},
    {"HKT", 8 * H, false},
    {"AWST", 8 * H, false},
    {"WIT", 9 * H, false},
    {"JST", 9 * H, false},
    {"KST", 9 * H, false},
    {"ACST", 9 * H + 30 * M, false},
    {"ACDT", 10 * H + 30 * M, true},
    {"AEST", 10 * H, false},
    {"AEDT", 11 * H, true},
    {"ChST", 10 * H, false},
    {"NZST", 12 * H, false},
    {"NZDT", 13 * H, true},
    {"SST", -11 * H, false},
};
constexpr std::size_t kKnownCount = std::size(kKnownAbbreviations);

// How many different abbreviations the table has.
consteval std::size_t distinctAbbreviations() {
    std::size_t n = 0;
    for (std::size_t i = 0; i < kKnownCount; ++i) {
        if (i == 0 || kKnownAbbreviations[i].abbreviation != kKnownAbbreviations[i - 1].abbreviation) ++n;
    }
    return n;
}
constexpr std::size_t kDistinct = distinctAbbreviations();

// The different abbreviations, found in any case, and where each one's meanings start (the
// last entry is the table's end).
struct AbbreviationIndex {
    FixedStrSet<kDistinct, STR_CASE_FOLD> names;
    std::array<std::uint8_t, kDistinct + 1> first;
};
consteval AbbreviationIndex indexAbbreviations() {
    std::array<std::string_view, kDistinct> names{};
    std::array<std::uint8_t, kDistinct + 1> first{};
    std::size_t n = 0;
    for (std::size_t i = 0; i < kKnownCount; ++i) {
        if (i == 0 || kKnownAbbreviations[i].abbreviation != kKnownAbbreviations[i - 1].abbreviation) {
            names[n] = kKnownAbbreviations[i].abbreviation;
            first[n++] = static_cast<std::uint8_t>(i);
        }
    }
    first[n] = static_cast<std::uint8_t>(kKnownCount);
    return {FixedStrSet<kDistinct, STR_CASE_FOLD>(names), first};
}
constexpr AbbreviationIndex kAbbreviationIndex = indexAbbreviations();

bool sameIgnoringCase(std::string_view a, std::string_view b) noexcept {
    return mem_compare_caseless(a.data(), a.data() + a.size(), b.data(), b.data() + b.size()) == 0;
}

void addOnce(std::vector<AbbreviationOffset>& out, AbbreviationOffset candidate) {
    if (std::find(out.begin(), out.end(), candidate) == out.end()) out.push_back(candidate);
}

}  // namespace

std::vector<AbbreviationOffset> TimeZone::offsetsForAbbreviation(StrSegment abbreviation,
                                                                 std::int64_t reference) const {
    constexpr std::int64_t kYear = 366 * kSecondsPerDay;
    const std::int64_t from = reference < INT64_MIN + kYear ? INT64_MIN : reference - kYear;
    const std::int64_t to = reference > INT64_MAX - kYear ? INT64_MAX : reference + kYear;
    struct Near {
        std::int64_t distance;
        AbbreviationOffset offset;
    };
    std::vector<Near> near;
    Piece piece = pieceAt(from);
    for (int steps = 0; steps < 64; ++steps) {
        const TimeZoneLookup found = lookupType(piece.type);
        if (sameIgnoringCase(found.abbreviation, abbreviation.view())) {
            const std::int64_t distance = reference < piece.start  ? piece.start - reference
                                          : reference >= piece.end ? reference - (piece.end - 1)
                                                                   : 0;
            near.push_back({distance, {found.utcOffset, found.isDst}});
        }
        if (piece.end == INT64_MAX || piece.end > to) break;
        piece = pieceAt(piece.end);
    }
    std::stable_sort(near.begin(), near.end(),
                     [](const Near& a, const Near& b) { return a.distance < b.distance; });
    std::vector<AbbreviationOffset> out;
    for (const Near& n : near) addOnce(out, n.offset);
    const std::size_t known = kAbbreviationIndex.names.find(abbreviation.view());
    if (known != kAbbreviationIndex.names.npos) {
        for (std::size_t i = kAbbreviationIndex.first[known]; i < kAbbreviationIndex.first[known + 1]; ++i)
            addOnce(out, {kKnownAbbreviations[i].utcOffset, kKnownAbbreviations[i].isDst});
    }
    return out;
}

}  // namespace basicutil
