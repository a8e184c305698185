#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "basicutil/regex/Regex.h"
#include "basicutil/regex/Regex_details.h"
#include "basicutil/threads/ThreadMutex.h"

namespace basicutil {

namespace {

struct Key {
    std::string pattern;
    unsigned options;
};
struct KeyView {
    std::string_view pattern;
    unsigned options;
};

struct KeyHash {
    using is_transparent = void;
    std::size_t operator()(const KeyView& k) const noexcept {
        return std::hash<std::string_view>{}(k.pattern) ^ (std::size_t{k.options} * 0x9E3779B97F4A7C15ull);
    }
    std::size_t operator()(const Key& k) const noexcept { return (*this)(KeyView{k.pattern, k.options}); }
};

struct KeyEqual {
    using is_transparent = void;
    static KeyView view(const Key& k) noexcept { return {k.pattern, k.options}; }
    static KeyView view(const KeyView& k) noexcept { return k; }
    template <typename A, typename B>
    bool operator()(const A& a, const B& b) const noexcept {
        const KeyView x = view(a), y = view(b);
        return x.options == y.options && x.pattern == y.pattern;
    }
};

using Generation = std::unordered_map<Key, std::shared_ptr<const Regex>, KeyHash, KeyEqual>;

// Equal bytes. Patterns are typically 20 to 200 bytes and this runs on every lookup, so the
// words are compared without a branch each (the last word overlaps the ones before it).
bool sameBytes(const char* a, const char* b, std::size_t n) noexcept {
    if (n < 16) return std::memcmp(a, b, n) == 0;
    std::uint64_t diff = 0;
    for (std::size_t i = 0; i + 16 <= n; i += 16) {
        std::uint64_t x[2], y[2];
        std::memcpy(x, a + i, 16);
        std::memcpy(y, b + i, 16);
        diff |= (x[0] ^ y[0]) | (x[1] ^ y[1]);
    }
    std::uint64_t x[2], y[2];
    std::memcpy(x, a + n - 16, 16);
    std::memcpy(y, b + n - 16, 16);
    return (diff | (x[0] ^ y[0]) | (x[1] ^ y[1])) == 0;
}

// Each thread's memo of the patterns it looked up last, so that a steady lookup takes neither
// the lock nor a hash. It holds only entries of the current generation of one cache, as of one
// epoch; a retirement or a clear starts a new epoch and so empties every memo on its next use.
struct Memo {
    static constexpr unsigned kSize = 8;
    struct Entry {
        std::string pattern;
        unsigned options = 0;
        std::shared_ptr<const Regex> regex;
    };
    const void* cache = nullptr;
    std::uint64_t epoch = 0;
    std::array<Entry, kSize> entries;
    unsigned used = 0, next = 0;

    const std::shared_ptr<const Regex>* find(const KeyView& k) const noexcept {
        for (unsigned i = 0; i < used; ++i) {
            const Entry& e = entries[i];
            if (e.options == k.options && e.pattern.size() == k.pattern.size() &&
                sameBytes(e.pattern.data(), k.pattern.data(), k.pattern.size()))
                return &e.regex;
        }
        return nullptr;
    }
    void reset(const void* owner, std::uint64_t newEpoch) {
        for (unsigned i = 0; i < used; ++i) entries[i].regex.reset();
        cache = owner;
        epoch = newEpoch;
        used = next = 0;
    }
    void remember(const KeyView& k, const std::shared_ptr<const Regex>& regex) {
        Entry& e = entries[next];
        e.pattern.assign(k.pattern);
        e.options = k.options;
        e.regex = regex;
        next = (next + 1) % kSize;
        if (used < kSize) ++used;
    }
};
Memo& threadMemo() {
    return regex_details::PerThread<Memo>::get();
}

}  // namespace

struct RegexCache::State {
    explicit State(std::size_t size) : generationSize(size == 0 ? 1 : size) {}

    // Under mutex. Puts an entry into the current generation, retiring it first when full; the
    // dropped generation is handed back, to be released outside the lock.
    void insert(Key key, std::shared_ptr<const Regex> regex, Generation& dropped) {
        if (current.size() >= generationSize) {
            dropped.swap(previous);
            previous.swap(current);
            ++counts.generations;
            epoch.fetch_add(1, std::memory_order_release);
        }
        current.emplace(std::move(key), std::move(regex));
    }

    mutable PthreadMutexImpl mutex;
    std::atomic<std::uint64_t> epoch{0};  // changed, under mutex, by each retirement and clear
    const std::size_t generationSize;
    Generation current, previous;
    Counts counts;
};

RegexCache::RegexCache(std::size_t generationSize) : _state(std::make_unique<State>(generationSize)) {}

RegexCache::~RegexCache() = default;

RegexResult RegexCache::match(StrSegment pattern, unsigned options, StrSegment subject, size_type offset,
                              RegexMatch& m, const RegexLimits& limits, Status* failure) {
    // From the memo the pattern is borrowed: the memo keeps it alive through this call, and m
    // takes a reference of its own only when it did not already hold this very pattern.
    const Memo& memo = threadMemo();
    const State& s = *_state;
    if (memo.cache == &s && memo.epoch == s.epoch.load(std::memory_order_acquire)) [[likely]] {
        if (const auto* regex = memo.find(KeyView{pattern.view(), options})) [[likely]] {
            if (m._keep != *regex) m._keep = *regex;
            return (*regex)->match(subject, offset, m, limits);
        }
    }
    return matchSlowly(pattern, options, subject, offset, m, limits, failure);
}

RegexResult RegexCache::matchSlowly(StrSegment pattern, unsigned options, StrSegment subject,
                                    size_type offset, RegexMatch& m, const RegexLimits& limits,
                                    Status* failure) {
    std::shared_ptr<const Regex> regex = get(pattern, options, failure);
    if (regex == nullptr) {
        m._keep.reset();
        m._groups = 0;
        m._regex = nullptr;
        return REGEX_ERROR;
    }
    m._keep = std::move(regex);
    return m._keep->match(subject, offset, m, limits);
}

std::shared_ptr<const Regex> RegexCache::get(StrSegment pattern, unsigned options, Status* failure) {
    State& s = *_state;
    const KeyView wanted{pattern.view(), options};
    Memo& memo = threadMemo();
    if (memo.cache == &s && memo.epoch == s.epoch.load(std::memory_order_acquire)) {
        if (const auto* regex = memo.find(wanted)) return *regex;
    }
    std::shared_ptr<const Regex> result;
    std::uint64_t epoch = 0;
    Generation dropped;
    {
        std::lock_guard<PthreadMutexImpl> hold(s.mutex);
        if (auto it = s.current.find(wanted); it != s.current.end()) {
            ++s.counts.currentHits;
            result = it->second;
        } else if (auto old = s.previous.find(wanted); old != s.previous.end()) {
            ++s.counts.previousHits;
            auto node = s.previous.extract(old);
            result = node.mapped();
            s.insert(std::move(node.key()), result, dropped);
        } else {
            ++s.counts.misses;
        }
        epoch = s.epoch.load(std::memory_order_relaxed);
    }
    if (result == nullptr) {
        // Compiled outside the lock: a slow pattern holds up no other lookup.
        auto compiled = std::make_shared<Regex>();
        if (Status st = compiled->compile(pattern, options); !st) {
            if (failure != nullptr) *failure = std::move(st);
            return nullptr;
        }
        std::lock_guard<PthreadMutexImpl> hold(s.mutex);
        if (auto it = s.current.find(wanted); it != s.current.end()) {
            result = it->second;  // another thread compiled it meanwhile
        } else {
            result = compiled;
            s.insert(Key{std::string(pattern.view()), options}, std::move(compiled), dropped);
        }
        epoch = s.epoch.load(std::memory_order_relaxed);
    }
    if (memo.cache != &s || memo.epoch != epoch) memo.reset(&s, epoch);
    memo.remember(wanted, result);
    return result;
}

RegexCache::Counts RegexCache::counts() const {
    std::lock_guard<PthreadMutexImpl> hold(_state->mutex);
    Counts c = _state->counts;
    c.currentSize = _state->current.size();
    c.previousSize = _state->previous.size();
    return c;
}

void RegexCache::clear() {
    Generation current, previous;
    std::lock_guard<PthreadMutexImpl> hold(_state->mutex);
    current.swap(_state->current);
    previous.swap(_state->previous);
    _state->epoch.fetch_add(1, std::memory_order_release);
}

RegexCache& regexCache() noexcept {
    static RegexCache& cache = *new RegexCache;
    return cache;
}

}  // namespace basicutil
