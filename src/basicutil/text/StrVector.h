// Ordered vectors of Str: printing and sorting.
#pragma once

#include <vector>

#include "basicutil/text/Str.h"

namespace basicutil {

// A plain vector: these functions add what the standard one lacks.
using StrVector = std::vector<Str>;

// "[" items "]", separated by one blank; an item with whitespace in it is written as 'item'.
Str printList(const StrVector& items);
// "{" [0]='item' [1]='item' ... "}".
Str printIndexed(const StrVector& items);
// Ascending byte order: bytewise over the shorter length, then the shorter first.
void sortStrVector(StrVector& items);

}  // namespace basicutil
