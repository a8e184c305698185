// Strings that carry their hash (StrHash.h, seed 0), computed once: when the string is made, or
// by the compiler for a constant.
//
//   constexpr HashedStrSegment kRoot("rootCategory");            // hashed at compile time
//   HashedStr key(line.substr(0, eq));                           // hashed once, here
//   if (key == kRoot) ...                                        // hashes first, then bytes
//
//   std::unordered_set<HashedStr> seen;                          // std::hash gives the stored hash
//   std::unordered_set<HashedStr, HashedStrHash, std::equal_to<>> byView;
//   byView.find(HashedStrSegment("x"));                          // no copy, no second hash
//
// Equality compares the hashes first, then the bytes: structured strings do collide, and a
// different hash settles most inequalities in one comparison. The static sets
// (StaticStrSet.h) look a HashedStrSegment up by its stored hash too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <utility>

#include "basicutil/text/Str.h"
#include "basicutil/text/StrHash.h"

namespace basicutil {

// A view of bytes someone else owns, with their hash.
class HashedStrSegment {
  public:
    constexpr HashedStrSegment() noexcept : _hash(strHash(std::string_view())) {}
    // Implicit: a literal or a view becomes a hashed view where one is wanted.
    constexpr HashedStrSegment(std::string_view text) noexcept : _text(text), _hash(strHash(text)) {}
    constexpr HashedStrSegment(const char* text) noexcept : HashedStrSegment(std::string_view(text)) {}
    HashedStrSegment(StrSegment text) noexcept : HashedStrSegment(text.view()) {}
    HashedStrSegment(const Str& text) noexcept : HashedStrSegment(text.view()) {}
    // A view whose hash the caller already has (a table's stored one): not computed again.
    static constexpr HashedStrSegment withHash(std::string_view text, std::uint64_t hash) noexcept {
        return HashedStrSegment(text, hash, 0);
    }

    constexpr std::string_view view() const noexcept { return _text; }    // the bytes
    StrSegment segment() const noexcept { return StrSegment(_text); }     // ... as a StrSegment
    constexpr std::uint64_t hash() const noexcept { return _hash; }       // strHash(view())
    constexpr std::size_t size() const noexcept { return _text.size(); }  // in bytes
    constexpr bool empty() const noexcept { return _text.empty(); }       // no bytes

    // The hashes first, then the bytes.
    friend constexpr bool operator==(const HashedStrSegment& a, const HashedStrSegment& b) noexcept {
        return a._hash == b._hash && a._text == b._text;
    }

  private:
    constexpr HashedStrSegment(std::string_view text, std::uint64_t hash, int) noexcept
        : _text(text), _hash(hash) {}

    std::string_view _text;
    std::uint64_t _hash;
};

// An owning string (a Str) with its hash. The text cannot be changed in place, so the hash
// always matches it; assign a new HashedStr to change it.
class HashedStr {
  public:
    HashedStr() : _hash(strHash(std::string_view())) {}                                // empty
    explicit HashedStr(StrSegment text) : _text(text), _hash(strHash(text.view())) {}  // copied, hashed
    explicit HashedStr(std::string_view text) : _text(text), _hash(strHash(text)) {}   // copied, hashed
    explicit HashedStr(const char* text) : HashedStr(std::string_view(text)) {}        // copied, hashed
    // Taken, hashed.
    explicit HashedStr(Str&& text) noexcept : _text(std::move(text)), _hash(strHash(_text.view())) {}
    // The view's bytes, copied; its hash, kept.
    explicit HashedStr(const HashedStrSegment& text) : _text(text.view()), _hash(text.hash()) {}

    const Str& str() const noexcept { return _text; }                // the string
    std::string_view view() const noexcept { return _text.view(); }  // its bytes
    const char* c_str() const noexcept { return _text.c_str(); }     // ... NUL-terminated
    std::uint64_t hash() const noexcept { return _hash; }            // strHash(view())
    size_type size() const noexcept { return _text.size(); }         // in bytes
    bool empty() const noexcept { return _text.empty(); }            // no bytes
    // A hashed view of it (valid while it lives), for lookups.
    HashedStrSegment segment() const noexcept { return HashedStrSegment::withHash(_text.view(), _hash); }
    operator HashedStrSegment() const noexcept { return segment(); }

    // The hashes first, then the bytes.
    friend bool operator==(const HashedStr& a, const HashedStr& b) noexcept {
        return a._hash == b._hash && a._text.view() == b._text.view();
    }
    // The same against a hashed view.
    friend bool operator==(const HashedStr& a, const HashedStrSegment& b) noexcept {
        return a.segment() == b;
    }

  private:
    Str _text;
    std::uint64_t _hash;
};

// The stored hash, for the standard unordered containers; transparent, so that a table of
// HashedStr finds a HashedStrSegment (with std::equal_to<>) without making a string.
struct HashedStrHash {
    using is_transparent = void;  // finds by either type
    // The stored hash.
    std::size_t operator()(const HashedStr& s) const noexcept { return static_cast<std::size_t>(s.hash()); }
    // The stored hash.
    std::size_t operator()(const HashedStrSegment& s) const noexcept {
        return static_cast<std::size_t>(s.hash());
    }
};

}  // namespace basicutil

namespace std {

// The stored hash: std::unordered_set<HashedStr> works as it is.
template <>
struct hash<basicutil::HashedStr> {
    // The stored hash.
    std::size_t operator()(const basicutil::HashedStr& s) const noexcept {
        return static_cast<std::size_t>(s.hash());
    }
};
// The stored hash.
template <>
struct hash<basicutil::HashedStrSegment> {
    // The stored hash.
    std::size_t operator()(const basicutil::HashedStrSegment& s) const noexcept {
        return static_cast<std::size_t>(s.hash());
    }
};

}  // namespace std
