#include "basicutil/platform/Version.h"

namespace basicutil {

const char* libraryVersion() noexcept {
    return VESTRA_VERSION;
}
int libraryVersionMajor() noexcept {
    return VESTRA_VERSION_MAJOR;
}
int libraryVersionMinor() noexcept {
    return VESTRA_VERSION_MINOR;
}
int libraryVersionPatch() noexcept {
    return VESTRA_VERSION_PATCH;
}

}  // namespace basicutil
