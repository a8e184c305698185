// Machinery of FileSystem.cpp that tests reach directly.
#pragma once

#include "basicutil/files/File.h"

namespace basicutil::file_details {

// Copies the rest of `in` to `out` from their file positions: inside the kernel when
// `allowKernelCopy` and the platform can, through a buffer otherwise.
Status copyData(FileDescriptor& in, FileDescriptor& out, bool allowKernelCopy);

// What moveFile does when rename says EXDEV: copy (synced, with permissions and modification
// time), then remove the source.
Status moveByCopy(StrSegment source, StrSegment destination);

}  // namespace basicutil::file_details
