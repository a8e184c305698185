// The machinery of substitution, shared with the tests.
#pragma once

#include <vector>

#include "basicutil/Regex.h"

namespace basicutil::regex_details {

// One piece of a parsed replacement: a literal span of the replacement text (group -1), a
// numbered group (group >= 0), or a group by the name spanned by [begin, end) (group -2).
struct ReplacementPiece {
    int group;
    size_type begin, end;
};

// False, with a message naming the offset, on a reference the pattern cannot satisfy.
bool parseReplacement(const Regex& regex, StrSegment text, std::vector<ReplacementPiece>& pieces, Str* error);

void expandReplacement(const std::vector<ReplacementPiece>& pieces, StrSegment replacement,
                       const RegexMatch& m, Str& out);

}  // namespace basicutil::regex_details
