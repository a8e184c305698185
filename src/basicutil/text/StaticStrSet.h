// Sets of strings fixed when they are built, looked up by perfect hashing: one hash, one probe,
// one comparison, for hits and misses alike; nothing allocated at lookup.
//
//   // Members that are constants: built by the compiler, a duplicate is a compile error.
//   constexpr auto kLevels = makeStaticStrSet<STR_CASE_FOLD>({"DEBUG", "INFO", "WARN", "ERROR"});
//   std::size_t level = kLevels.find(word);              // the member's index, or npos
//
//   // Members known at run time: built once (time linear in the members).
//   StaticStrSet words;
//   if (Status st = StaticStrSet::build(list, words); !st) ...   // "duplicate member \"x\""
//
//   StaticStrMap<LogLevel> levels = ...;                 // a set with a value for each member
//
// How: the members' hashes (StrHash.h, seed 0) go into buckets of about four; each bucket gets the
// smallest "pilot" that sends all its members to free slots of a table a little larger than the
// set, largest buckets first (hash and displace). A lookup hashes the key, reads its bucket's
// pilot, goes to the one slot that pilot names, and compares. A member of up to 16 bytes is kept
// in the slot as the two words the hash reads (StrHash.h's shortWords), which hold all its bytes:
// a key that short is compared as those two words and its length, in registers. A longer member is
// compared by its hash, length, then bytes. Building is linear in the members (buckets sorted by counting; a
// pilot search takes a few tries on average at this load). Members whose 64-bit hashes are equal (a collision
// of the hash itself) cannot be told apart by any pilot: the build then hashes with the next seed, and
// lookups with that seed too.
//
// The case-folding sets (STR_CASE_FOLD) compare ASCII letters without case: members and keys are
// hashed and compared as if A-Z were a-z; other bytes as they are. Their members are at most
// kMaxFoldedLength bytes (a longer key cannot be one and is not found without hashing).
//
// "Not found" is npos, the all-ones value, as everywhere in the library.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "basicutil/text/HashedStr.h"
#include "basicutil/text/Status.h"
#include "basicutil/text/StrHash.h"

namespace basicutil {

// How a set compares its members with keys.
enum StrCase : unsigned char {
    STR_CASE_EXACT,  // bytes as they are
    STR_CASE_FOLD,   // ASCII letters without case
};

namespace static_str_set_details {

inline constexpr std::size_t npos = static_cast<std::size_t>(-1);
inline constexpr std::uint32_t kEmpty = 0xFFFFFFFFu;
inline constexpr std::size_t kMaxFoldedLength = 256;
// A bucket that finds no pilot below this makes the build try the next seed (at load 7/8 and
// four members a bucket, the search takes a few tries; this is never reached in practice).
inline constexpr std::uint32_t kMaxPilot = 1u << 20;
// Seeds tried before the build gives up (each retry is for a hash collision or a pilot search
// that failed; either at all is rare).
inline constexpr std::uint64_t kMaxSeeds = 64;

// Table geometry for n members: slots a power of two (at least 2) with room to spare (load at
// most 7/8), buckets a power of two with two to four members each.
constexpr std::size_t slotCount(std::size_t n) noexcept {
    std::size_t m = 2;
    while (m < n + n / 7 + 1) m *= 2;
    return m;
}
constexpr std::size_t bucketCount(std::size_t n) noexcept {
    std::size_t b = 1;
    while (b < n / 4 + 1) b *= 2;
    return b;
}

constexpr char foldAscii(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
// foldAscii on each byte of a word at once: a byte below 0x80 gets bit 5 where adding to its low
// seven bits shows it at or above 'A' and not above 'Z'.
constexpr std::uint64_t foldAsciiWord(std::uint64_t w) noexcept {
    constexpr std::uint64_t kOnes = 0x0101010101010101ULL, kHigh = 0x8080808080808080ULL;
    const std::uint64_t low7 = w & ~kHigh;
    const std::uint64_t atLeastA = low7 + kOnes * (0x80 - 'A');   // high bit: byte >= 'A'
    const std::uint64_t aboveZ = low7 + kOnes * (0x7F - 'Z');     // high bit: byte > 'Z'
    const std::uint64_t upper = atLeastA & ~aboveZ & ~w & kHigh;  // and the byte is ASCII
    return w | (upper >> 2);
}
constexpr str_hash_details::ShortWords foldWords(str_hash_details::ShortWords w) noexcept {
    return {foldAsciiWord(w.a), foldAsciiWord(w.b)};
}
constexpr bool equalFolded(std::string_view a, std::string_view b) noexcept {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (foldAscii(a[i]) != foldAscii(b[i])) return false;
    }
    return true;
}
// The hash of the folded text, at most kMaxFoldedLength bytes (the caller checks).
constexpr std::uint64_t foldedHash(std::string_view text, std::uint64_t seed) noexcept {
    char folded[kMaxFoldedLength] = {};
    for (std::size_t i = 0; i < text.size(); ++i) folded[i] = foldAscii(text[i]);
    return strHashBytes(folded, text.size(), seed);
}

// Whether n bytes at a and b are equal: up to 32 bytes in overlapping word compares (most keys),
// no call.
constexpr bool sameBytes(const char* a, const char* b, std::size_t n) noexcept {
    using str_hash_details::read32;
    using str_hash_details::read64;
    if (std::is_constant_evaluated()) return std::string_view(a, n) == std::string_view(b, n);
    if (n >= 8) {
        if (n > 32) return std::memcmp(a, b, n) == 0;
        if (n > 16) {
            return ((read64(a) ^ read64(b)) | (read64(a + 8) ^ read64(b + 8)) |
                    (read64(a + n - 16) ^ read64(b + n - 16)) | (read64(a + n - 8) ^ read64(b + n - 8))) == 0;
        }
        return ((read64(a) ^ read64(b)) | (read64(a + n - 8) ^ read64(b + n - 8))) == 0;
    }
    if (n >= 4) return ((read32(a) ^ read32(b)) | (read32(a + n - 4) ^ read32(b + n - 4))) == 0;
    for (std::size_t i = 0; i < n; ++i) {
        if (a[i] != b[i]) return false;
    }
    return true;
}

// The bucket of a hash: bits 40 and up, masked to the count less one (up to 2^24 buckets).
constexpr std::size_t bucketOf(std::uint64_t h, std::size_t bucketMask) noexcept {
    return static_cast<std::size_t>((h >> 40) & bucketMask);
}
// The word a pilot stands for in the table (stored, so that a lookup does not compute it).
constexpr std::uint64_t pilotWord(std::uint32_t pilot) noexcept {
    return str_hash_details::fold(pilot ^ 0x5851F42D4C957F2DULL, 0xC2B2AE3D27D4EB4FULL);
}
// The slot a bucket's pilot word sends a hash to: the top bits of (hash xor word) times an odd
// constant, which every bit of both reaches. `shift` is 64 less log2 of the slots (at least 2,
// so the shift is below 64).
constexpr unsigned slotShift(std::size_t slots) noexcept {
    return 64 - static_cast<unsigned>(std::countr_zero(slots));
}
constexpr std::size_t slotOf(std::uint64_t h, std::uint64_t word, unsigned shift) noexcept {
    return static_cast<std::size_t>(((h ^ word) * 0x9E3779B97F4A7C15ULL) >> shift);
}

// Members of up to this many bytes are compared as their words.
inline constexpr std::size_t kShortMember = 16;

// What a slot holds: for a member of up to 16 bytes its words (folded, folding case), for a
// longer one its hash in `a`; its bytes, length and index. A free slot's length is kEmpty, which
// no key's is (members are shorter: StaticStrSet::build refuses longer ones).
struct Slot {
    std::uint64_t a = 0, b = 0;
    const char* data = nullptr;
    std::uint32_t length = kEmpty;
    std::uint32_t member = kEmpty;
};

// The one build, for the compiler's arrays and for run-time vectors alike. `hashes` receives the
// members' hashes; `order` and `starts` are scratch of n and buckets + 1 entries. Returns 0, or
// 1 when two members are the same (`duplicate` names one), 2 when two different members have the
// same hash under `seed` or a bucket finds no pilot (the caller tries the next seed), 3 when a
// member is too long to fold (`duplicate` names it).
constexpr int placeMembers(const std::string_view* members, const std::uint64_t* hashes, std::size_t n,
                           StrCase mode, Slot* slots, std::size_t slotTotal, std::uint64_t* pilots,
                           std::size_t bucketTotal, std::uint32_t* order, std::uint32_t* starts,
                           std::size_t& duplicate);

constexpr int buildTable(const std::string_view* members, std::size_t n, StrCase mode, std::uint64_t seed,
                         std::uint64_t* hashes, Slot* slots, std::size_t slotTotal, std::uint64_t* pilots,
                         std::size_t bucketTotal, std::uint32_t* order, std::uint32_t* starts,
                         std::size_t& duplicate) {
    for (std::size_t i = 0; i < n; ++i) {
        if (mode == STR_CASE_FOLD) {
            if (members[i].size() > kMaxFoldedLength) {
                duplicate = i;
                return 3;  // too long to fold
            }
            hashes[i] = foldedHash(members[i], seed);
        } else {
            hashes[i] = strHash(members[i], seed);
        }
    }
    return placeMembers(members, hashes, n, mode, slots, slotTotal, pilots, bucketTotal, order, starts,
                        duplicate);
}

// The table from the members' hashes (the second half of buildTable, which a test can give
// hashes that collide): 0, 1 for a member given twice, 2 for a collision or no pilot.
constexpr int placeMembers(const std::string_view* members, const std::uint64_t* hashes, std::size_t n,
                           StrCase mode, Slot* slots, std::size_t slotTotal, std::uint64_t* pilots,
                           std::size_t bucketTotal, std::uint32_t* order, std::uint32_t* starts,
                           std::size_t& duplicate) {
    const std::size_t bucketMask = bucketTotal - 1;
    const unsigned shift = slotShift(slotTotal);
    // Buckets by counting: starts[b] is where bucket b's members begin in `order`.
    for (std::size_t b = 0; b <= bucketTotal; ++b) starts[b] = 0;
    for (std::size_t i = 0; i < n; ++i) ++starts[bucketOf(hashes[i], bucketMask) + 1];
    for (std::size_t b = 0; b < bucketTotal; ++b) starts[b + 1] += starts[b];
    {
        // Filled from each bucket's start; `pilots` serves as the cursor until the pilots are set.
        for (std::size_t b = 0; b < bucketTotal; ++b) pilots[b] = starts[b];
        for (std::size_t i = 0; i < n; ++i)
            order[pilots[bucketOf(hashes[i], bucketMask)]++] = static_cast<std::uint32_t>(i);
    }
    // Two members in one bucket with one hash: the same text, or a collision of the hash.
    for (std::size_t b = 0; b < bucketTotal; ++b) {
        for (std::uint32_t x = starts[b]; x < starts[b + 1]; ++x) {
            for (std::uint32_t y = starts[b]; y < x; ++y) {
                if (hashes[order[x]] != hashes[order[y]]) continue;
                const bool same = mode == STR_CASE_FOLD ? equalFolded(members[order[x]], members[order[y]])
                                                        : members[order[x]] == members[order[y]];
                if (same) {
                    duplicate = order[x];
                    return 1;
                }
                return 2;
            }
        }
    }
    for (std::size_t s = 0; s < slotTotal; ++s) slots[s] = Slot{};
    // Largest buckets first: a bucket of size k at a time, from the largest size down.
    std::size_t largest = 0;
    for (std::size_t b = 0; b < bucketTotal; ++b) {
        if (starts[b + 1] - starts[b] > largest) largest = starts[b + 1] - starts[b];
    }
    for (std::size_t b = 0; b < bucketTotal; ++b) pilots[b] = 0;
    for (std::size_t size = largest; size > 0; --size) {
        for (std::size_t b = 0; b < bucketTotal; ++b) {
            if (starts[b + 1] - starts[b] != size) continue;
            for (std::uint32_t pilot = 0;; ++pilot) {
                if (pilot == kMaxPilot) return 2;
                const std::uint64_t word = pilotWord(pilot);
                bool fits = true;
                for (std::uint32_t x = starts[b]; x < starts[b + 1] && fits; ++x) {
                    const std::size_t s = slotOf(hashes[order[x]], word, shift);
                    if (slots[s].member != kEmpty) fits = false;
                    for (std::uint32_t y = starts[b]; y < x && fits; ++y) {
                        if (slotOf(hashes[order[y]], word, shift) == s) fits = false;
                    }
                }
                if (!fits) continue;
                for (std::uint32_t x = starts[b]; x < starts[b + 1]; ++x) {
                    const std::string_view m = members[order[x]];
                    Slot& slot = slots[slotOf(hashes[order[x]], word, shift)];
                    slot =
                        Slot{hashes[order[x]], 0, m.data(), static_cast<std::uint32_t>(m.size()), order[x]};
                    if (m.size() <= kShortMember) {
                        const str_hash_details::ShortWords w =
                            str_hash_details::shortWords(m.data(), m.size());
                        slot.a = mode == STR_CASE_FOLD ? foldAsciiWord(w.a) : w.a;
                        slot.b = mode == STR_CASE_FOLD ? foldAsciiWord(w.b) : w.b;
                    }
                }
                pilots[b] = word;
                break;
            }
        }
    }
    return 0;
}

// A built table as a lookup reads it.
struct Table {
    const Slot* slots;
    const std::uint64_t* pilots;
    std::size_t bucketMask;
    unsigned shift;
};
constexpr const Slot& probe(std::uint64_t h, const Table& t) noexcept {
    return t.slots[slotOf(h, t.pilots[bucketOf(h, t.bucketMask)], t.shift)];
}
// A key of up to 16 bytes as its words (folded, folding case) and their hash: the member's index
// or npos, without a branch.
[[gnu::always_inline]] constexpr std::size_t findShort(const str_hash_details::ShortWords& w, std::size_t n,
                                                       std::uint64_t h, const Table& t) noexcept {
    const Slot& slot = probe(h, t);
    return ((slot.a == w.a) & (slot.b == w.b) & (slot.length == n)) ? slot.member : npos;
}
// A longer key and its hash.
[[gnu::always_inline]] constexpr std::size_t findLong(std::string_view key, std::uint64_t h, StrCase mode,
                                                      const Table& t) noexcept {
    const Slot& slot = probe(h, t);
    if (slot.a != h || slot.length != key.size() || slot.member == kEmpty) return npos;
    const bool same = mode == STR_CASE_FOLD ? equalFolded(std::string_view(slot.data, slot.length), key)
                                            : sameBytes(slot.data, key.data(), key.size());
    return same ? slot.member : npos;
}
// A key longer than 16 bytes, hashed here under `seed`. The sets call it out of line, so that the
// short keys' path saves no registers.
[[gnu::always_inline]] constexpr std::size_t findLongKey(std::string_view key, std::uint64_t seed,
                                                         StrCase mode, const Table& t) noexcept {
    if (mode == STR_CASE_EXACT) return findLong(key, strHash(key, seed), mode, t);
    if (key.size() > kMaxFoldedLength) return npos;
    return findLong(key, foldedHash(key, seed), mode, t);
}
// A key of up to 16 bytes, hashed here under `seed`.
[[gnu::always_inline]] constexpr std::size_t findShortKey(std::string_view key, std::uint64_t seed,
                                                          StrCase mode, const Table& t) noexcept {
    using namespace str_hash_details;
    ShortWords w = shortWords(key.data(), key.size());
    if (mode == STR_CASE_FOLD) w = foldWords(w);
    return findShort(w, key.size(), hashShort(w, key.size(), keysOf(seed)), t);
}
// An exact key with its hash under the table's seed.
[[gnu::always_inline]] constexpr std::size_t findHashed(std::string_view key, std::uint64_t h,
                                                        const Table& t) noexcept {
    if (key.size() <= kShortMember)
        return findShort(str_hash_details::shortWords(key.data(), key.size()), key.size(), h, t);
    return findLong(key, h, STR_CASE_EXACT, t);
}

// Called where a constant set has two equal members (or one too long to fold): not constexpr, so
// the build does not compile, and this name is in the error.
inline void duplicate_member_in_static_str_set() {}

}  // namespace static_str_set_details

// A set whose members are constants, built by the compiler (makeStaticStrSet). Its members must
// outlive it: string literals do.
template <std::size_t N, StrCase kMode = STR_CASE_EXACT>
class FixedStrSet {
  public:
    static constexpr std::size_t npos = static_str_set_details::npos;                // not found
    static constexpr std::size_t kSlots = static_str_set_details::slotCount(N);      // the table
    static constexpr std::size_t kBuckets = static_str_set_details::bucketCount(N);  // its pilots
    static constexpr unsigned kShift = static_str_set_details::slotShift(kSlots);    // a slot from a product

    // Builds the set; two equal members do not compile (makeStaticStrSet is the short way).
    consteval explicit FixedStrSet(const std::array<std::string_view, N>& members) : _members(members) {
        using namespace static_str_set_details;
        std::array<std::uint64_t, N> hashes{};
        std::array<std::uint32_t, N> order{};
        std::array<std::uint32_t, kBuckets + 1> starts{};
        for (;; ++_seed) {
            std::size_t duplicate = 0;
            const int result =
                buildTable(_members.data(), N, kMode, _seed, hashes.data(), _slots.data(), kSlots,
                           _pilots.data(), kBuckets, order.data(), starts.data(), duplicate);
            if (result == 0) break;
            if (result != 2 || _seed + 1 == kMaxSeeds) duplicate_member_in_static_str_set();  // or too long
        }
    }

    // The member's index (in the order given), or npos.
    constexpr std::size_t find(std::string_view key) const noexcept {
        if (key.size() > static_str_set_details::kShortMember) return findLongKey(key);
        return static_str_set_details::findShortKey(key, _seed, kMode, table());
    }
    // The same with the key's stored hash (exact sets built with seed 0, which is nearly always).
    constexpr std::size_t find(const HashedStrSegment& key) const noexcept {
        using namespace static_str_set_details;
        if (kMode == STR_CASE_FOLD || _seed != 0) return find(key.view());
        return findHashed(key.view(), key.hash(), table());
    }
    constexpr std::size_t find(const char* key) const noexcept { return find(std::string_view(key)); }
    constexpr bool contains(std::string_view key) const noexcept { return find(key) != npos; }
    constexpr std::size_t size() const noexcept { return N; }
    constexpr std::string_view member(std::size_t i) const noexcept { return _members[i]; }

  private:
    constexpr static_str_set_details::Table table() const noexcept {
        return {_slots.data(), _pilots.data(), kBuckets - 1, kShift};
    }
    [[gnu::noinline]] constexpr std::size_t findLongKey(std::string_view key) const noexcept {
        return static_str_set_details::findLongKey(key, _seed, kMode, table());
    }

    std::array<std::string_view, N> _members;
    std::array<static_str_set_details::Slot, kSlots> _slots{};
    std::array<std::uint64_t, kBuckets + 1> _pilots{};
    std::uint64_t _seed = 0;
};

// A constant set: makeStaticStrSet({"a", "b"}) or makeStaticStrSet<STR_CASE_FOLD>({...}).
template <StrCase kMode = STR_CASE_EXACT, std::size_t N>
consteval FixedStrSet<N, kMode> makeStaticStrSet(const std::string_view (&members)[N]) {
    std::array<std::string_view, N> list{};
    for (std::size_t i = 0; i < N; ++i) list[i] = members[i];
    return FixedStrSet<N, kMode>(list);
}

// A constant map from strings to small values, built by the compiler (makeStaticStrMap): the
// keys a FixedStrSet, the values beside them in the keys' order.
template <class V, std::size_t N, StrCase kMode = STR_CASE_EXACT>
class FixedStrMap {
  public:
    static constexpr std::size_t npos = static_str_set_details::npos;  // not found

    // The keys and their values, in pairs.
    consteval FixedStrMap(const std::array<std::string_view, N>& keys, const std::array<V, N>& values)
        : _keys(keys), _values(values) {}

    // The key's value, or `missing`.
    constexpr V get(std::string_view key, V missing) const noexcept {
        const std::size_t i = _keys.find(key);
        return i == npos ? missing : _values[i];
    }
    // The key's index, or npos.
    constexpr std::size_t find(std::string_view key) const noexcept { return _keys.find(key); }
    constexpr const FixedStrSet<N, kMode>& keys() const noexcept { return _keys; }   // the keys
    constexpr const V& valueAt(std::size_t i) const noexcept { return _values[i]; }  // by index

  private:
    FixedStrSet<N, kMode> _keys;
    std::array<V, N> _values;
};

// A constant map: makeStaticStrMap<int>({{"one", 1}, {"two", 2}}).
template <class V, StrCase kMode = STR_CASE_EXACT, std::size_t N>
consteval FixedStrMap<V, N, kMode> makeStaticStrMap(const std::pair<std::string_view, V> (&entries)[N]) {
    std::array<std::string_view, N> keys{};
    std::array<V, N> values{};
    for (std::size_t i = 0; i < N; ++i) {
        keys[i] = entries[i].first;
        values[i] = entries[i].second;
    }
    return FixedStrMap<V, N, kMode>(keys, values);
}

// A set built at run time; it keeps its own copy of the members. It can be moved, not copied.
class StaticStrSet {
  public:
    static constexpr std::size_t npos = static_str_set_details::npos;  // not found

    StaticStrSet() = default;
    // Builds `out` from the members, in time linear in their number. A failure (EINVAL) names a
    // member given twice (or, folding case, one longer than kMaxFoldedLength); `out` is then
    // left as it was.
    static Status build(const std::vector<std::string_view>& members, StaticStrSet& out,
                        StrCase mode = STR_CASE_EXACT);
    static Status build(std::initializer_list<std::string_view> members, StaticStrSet& out,
                        StrCase mode = STR_CASE_EXACT) {
        return build(std::vector<std::string_view>(members), out, mode);
    }

    // The member's index (in the order given), or npos.
    std::size_t find(std::string_view key) const noexcept {
        if (_mode != STR_CASE_EXACT || key.size() > static_str_set_details::kShortMember) [[unlikely]]
            return findOther(key);
        return static_str_set_details::findShortKey(key, _seed, STR_CASE_EXACT, table());
    }
    // The same with the key's stored hash, when the set hashes as it was hashed (exact, seed 0).
    std::size_t find(const HashedStrSegment& key) const noexcept {
        using namespace static_str_set_details;
        if (_mode == STR_CASE_FOLD || _seed != 0) return find(key.view());
        return findHashed(key.view(), key.hash(), table());
    }
    std::size_t find(const char* key) const noexcept { return find(std::string_view(key)); }
    bool contains(std::string_view key) const noexcept { return find(key) != npos; }
    std::size_t size() const noexcept { return _members.size(); }
    std::string_view member(std::size_t i) const noexcept { return _members[i]; }
    StrCase mode() const noexcept { return _mode; }

  private:
    std::size_t findOther(std::string_view key) const noexcept;  // folding case, or long keys
    static_str_set_details::Table table() const noexcept {
        return {_slots.data(), _pilots.data(), _bucketMask, _shift};
    }

    std::unique_ptr<char[]> _text;           // the members' bytes, one after the other
    std::vector<std::string_view> _members;  // into _text, which moving keeps in place
    // An empty set has two free slots and one bucket, as a built one of no members: lookups need
    // no test for it.
    std::vector<static_str_set_details::Slot> _slots = std::vector<static_str_set_details::Slot>(2);
    std::vector<std::uint64_t> _pilots = std::vector<std::uint64_t>(2);
    unsigned _shift = static_str_set_details::slotShift(2);  // of the slots' count
    std::size_t _bucketMask = 0;                             // the buckets' count less one
    std::uint64_t _seed = 0;
    StrCase _mode = STR_CASE_EXACT;
};

// A run-time set with a value for each member: get(key) is the member's value or `missing`.
template <class V>
class StaticStrMap {
  public:
    static constexpr std::size_t npos = static_str_set_details::npos;  // not found

    // The keys and values in pairs; failures as StaticStrSet::build's.
    static Status build(const std::vector<std::pair<std::string_view, V>>& entries, StaticStrMap& out,
                        StrCase mode = STR_CASE_EXACT) {
        std::vector<std::string_view> keys;
        std::vector<V> values;
        keys.reserve(entries.size());
        values.reserve(entries.size());
        for (const auto& [key, value] : entries) {
            keys.push_back(key);
            values.push_back(value);
        }
        StaticStrSet set;
        if (Status st = StaticStrSet::build(keys, set, mode); !st) return st;
        out._keys = std::move(set);
        out._values = std::move(values);
        return {};
    }

    // The key's index, or npos; and its value, or `missing`.
    std::size_t find(std::string_view key) const noexcept { return _keys.find(key); }
    std::size_t find(const HashedStrSegment& key) const noexcept { return _keys.find(key); }
    std::size_t find(const char* key) const noexcept { return _keys.find(key); }
    V get(std::string_view key, V missing) const noexcept {
        const std::size_t i = _keys.find(key);
        return i == npos ? missing : _values[i];
    }
    const V& valueAt(std::size_t i) const noexcept { return _values[i]; }
    const StaticStrSet& keys() const noexcept { return _keys; }

  private:
    StaticStrSet _keys;
    std::vector<V> _values;
};

}  // namespace basicutil
