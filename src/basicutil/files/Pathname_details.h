// Texts of the Pathname unit's start-up globals that the file-system operations use.
#pragma once

#include "basicutil/text/Str.h"

namespace basicutil {

// The operation names that compound file errors start with.
const Str& copyingOperationText() noexcept;      // "copying source to destination"
const Str& hardLinkingOperationText() noexcept;  // "hard linking source to destination"
const Str& movingOperationText() noexcept;       // "moving source to destination"

}  // namespace basicutil
