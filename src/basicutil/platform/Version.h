// The library's version, as semantic versioning numbers it: one number, set where the project is
// declared, for the libraries and the tools alike.
#pragma once

namespace basicutil {

// "MAJOR.MINOR.PATCH".
const char* libraryVersion() noexcept;
// Its three numbers.
int libraryVersionMajor() noexcept;
int libraryVersionMinor() noexcept;
int libraryVersionPatch() noexcept;

}  // namespace basicutil
