#include "basicutil/text/StaticStrSet.h"

#include <algorithm>
#include <cerrno>

#include "basicutil/text/PrintfFormat.h"

namespace basicutil {

using namespace static_str_set_details;

Status StaticStrSet::build(const std::vector<std::string_view>& members, StaticStrSet& out, StrCase mode) {
    if (members.size() >= kEmpty) return Status::failure(EFBIG, "more members than a static set holds");
    StaticStrSet set;
    set._mode = mode;
    std::size_t bytes = 0;
    for (std::string_view m : members) {
        if (m.size() >= kEmpty) return Status::failure(EFBIG, "a member longer than a static set holds");
        bytes += m.size();
    }
    set._text = std::make_unique<char[]>(bytes + 1);
    set._members.reserve(members.size());
    std::size_t at = 0;
    for (std::string_view m : members) {
        std::copy(m.begin(), m.end(), set._text.get() + at);
        set._members.emplace_back(set._text.get() + at, m.size());
        at += m.size();
    }
    const std::size_t n = members.size();
    const std::size_t slotTotal = slotCount(n), bucketTotal = bucketCount(n);
    set._slots.resize(slotTotal);
    set._pilots.resize(bucketTotal + 1);
    set._shift = slotShift(slotTotal);
    set._bucketMask = bucketTotal - 1;
    std::vector<std::uint64_t> hashes(n);
    std::vector<std::uint32_t> order(n), starts(bucketTotal + 1);
    for (;; ++set._seed) {
        std::size_t bad = 0;
        const int result =
            buildTable(set._members.data(), n, mode, set._seed, hashes.data(), set._slots.data(), slotTotal,
                       set._pilots.data(), bucketTotal, order.data(), starts.data(), bad);
        if (result == 0) break;
        if (result == 1) return Status::invalid(strprintf("duplicate member \"%s\"", set._members[bad]), bad);
        if (result == 2 && set._seed + 1 == kMaxSeeds)
            return Status::failure(EDOM, "no perfect hash found for the members (a fault of the hash)");
        if (result == 3) {
            return Status::invalid(
                strprintf("member %zu is longer than %zu bytes, the most a case-folding set holds", bad,
                          kMaxFoldedLength),
                bad);
        }
    }
    out = std::move(set);
    return {};
}

std::size_t StaticStrSet::findOther(std::string_view key) const noexcept {
    if (key.size() > kShortMember) return findLongKey(key, _seed, _mode, table());
    return findShortKey(key, _seed, _mode, table());
}

}  // namespace basicutil
