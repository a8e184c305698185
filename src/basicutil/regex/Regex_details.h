// The machinery of substitution and of named groups, shared with the tests.
#pragma once

#include <cstdint>
#include <vector>

#include "basicutil/regex/Regex.h"

namespace basicutil::regex_details {

// A group name as compared on every named lookup: its length and first 8 bytes (little-endian,
// zero-padded); longer names also compare the rest.
struct NameKey {
    std::uint64_t head;
    std::uint32_t size;
    std::uint32_t group;
};

// A per-thread T reached through a plain pointer: a thread_local with a constructor costs an
// initialisation check on every access, and these are read on every match. Made on a thread's
// first use, destroyed at its end.
template <typename T>
class PerThread {
  public:
    static T& get() {
        T* value = slot;
        if (value == nullptr) [[unlikely]]
            value = make();
        return *value;
    }

  private:
    [[gnu::noinline]] static T* make() {
        thread_local struct Owner {
            T value;
            Owner() { slot = &value; }
            ~Owner() { slot = nullptr; }
        } owner;
        return slot;
    }
    static inline thread_local T* slot = nullptr;
};

// The head of a NameKey (Regex.h).
inline std::uint64_t nameHead(StrSegment name) noexcept {
    std::uint64_t head = 0;
    const size_type n = name.size() < 8 ? name.size() : 8;
    for (size_type i = 0; i < n; ++i) head |= std::uint64_t{static_cast<unsigned char>(name[i])} << (8 * i);
    return head;
}

// One piece of a parsed replacement: a literal span of the replacement text (group -1), a
// numbered group (group >= 0), or a group by the name spanned by [begin, end) (group -2).
struct ReplacementPiece {
    int group;
    size_type begin, end;
};

// A failure, with a message naming the offset, on a reference the pattern cannot satisfy.
Status parseReplacement(const Regex& regex, StrSegment text, std::vector<ReplacementPiece>& pieces);

void expandReplacement(const std::vector<ReplacementPiece>& pieces, StrSegment replacement,
                       const RegexMatch& m, Str& out);

}  // namespace basicutil::regex_details
