#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "basicutil/Regex.h"
#include "basicutil/ThreadMutex.h"

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
        }
        current.emplace(std::move(key), std::move(regex));
    }

    mutable PthreadMutexImpl mutex;
    const std::size_t generationSize;
    Generation current, previous;
    Counts counts;
};

RegexCache::RegexCache(std::size_t generationSize) : _state(std::make_unique<State>(generationSize)) {}

RegexCache::~RegexCache() = default;

std::shared_ptr<const Regex> RegexCache::get(StrSegment pattern, unsigned options, Str* error) {
    State& s = *_state;
    const KeyView wanted{pattern.view(), options};
    Generation dropped;
    {
        std::lock_guard<PthreadMutexImpl> hold(s.mutex);
        if (auto it = s.current.find(wanted); it != s.current.end()) {
            ++s.counts.currentHits;
            return it->second;
        }
        if (auto it = s.previous.find(wanted); it != s.previous.end()) {
            ++s.counts.previousHits;
            auto node = s.previous.extract(it);
            std::shared_ptr<const Regex> regex = node.mapped();
            s.insert(std::move(node.key()), regex, dropped);
            return regex;
        }
        ++s.counts.misses;
    }
    // Compiled outside the lock: a slow pattern holds up no other lookup.
    auto compiled = std::make_shared<Regex>();
    if (!compiled->compile(pattern, options)) {
        if (error != nullptr) *error = compiled->errorText();
        return nullptr;
    }
    std::shared_ptr<const Regex> result;
    {
        std::lock_guard<PthreadMutexImpl> hold(s.mutex);
        if (auto it = s.current.find(wanted); it != s.current.end()) {
            result = it->second;  // another thread compiled it meanwhile
        } else {
            result = compiled;
            s.insert(Key{std::string(pattern.view()), options}, std::move(compiled), dropped);
        }
    }
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
}

RegexCache& regexCache() noexcept {
    static RegexCache& cache = *new RegexCache;
    return cache;
}

}  // namespace basicutil
