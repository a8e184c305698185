#include "basicutil/text/StrHash.h"

#include <algorithm>

namespace basicutil {

// The one-shot hash folds the stripe at p when p + 128 < n, then the last 128 bytes; so a stripe
// is folded here once more than 128 bytes follow its start, which the final length will keep
// true. Until 256 bytes have come the short and medium forms may still be the answer, so all of
// them stay. The buffer keeps the 128 bytes before the next stripe: the last 128 may reach back
// into what was folded.
void StrHasher::update(const void* data, std::size_t n) noexcept {
    const char* p = static_cast<const char*>(data);
    while (n > 0) {
        const std::size_t take = std::min(n, kBuffer - _used);
        std::copy(p, p + take, _buffer + _used);
        _used += take;
        _total += take;
        p += take;
        n -= take;
        if (_total <= 256) continue;
        while (_total > _processed + 128) {
            _lanes.stripe(_buffer + (_processed - _start));
            _processed += 128;
        }
        // Keep from 128 bytes before the next stripe on.
        const std::uint64_t keep = _processed >= 128 ? _processed - 128 : 0;
        if (keep > _start) {
            const auto drop = static_cast<std::size_t>(keep - _start);
            std::copy(_buffer + drop, _buffer + _used, _buffer);
            _used -= drop;
            _start = keep;
        }
    }
}

std::uint64_t StrHasher::finish() const noexcept {
    if (_total <= 256) return strHashBytes(_buffer, static_cast<std::size_t>(_total), _seed);
    str_hash_details::Lanes lanes = _lanes;
    lanes.stripe(_buffer + (_total - 128 - _start));
    return lanes.result(static_cast<std::size_t>(_total), _keys);
}

}  // namespace basicutil
