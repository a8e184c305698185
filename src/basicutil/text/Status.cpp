#include "basicutil/text/Status.h"

#include <cerrno>
#include <utility>

#include "basicutil/platform/Assert.h"
#include "basicutil/platform/Platform.h"

namespace basicutil {

Status Status::failure(int error, StrSegment text, std::size_t offset) {
    VESTRA_ASSERT(error != 0);
    Status status;
    status._error = error;
    status._text = Str(text);
    status._offset = offset;
    return status;
}

Status Status::invalid(StrSegment text, std::size_t offset) {
    return failure(EINVAL, text, offset);
}

Status Status::fromErrno(const char* call, StrSegment object) {
    const int error = errno;
    Status status;
    status._error = error != 0 ? error : EIO;
    char buffer[256];
    status._text.append(call);
    status._text.append(" \"");
    status._text.append(object);
    status._text.append("\": ");
    status._text.append(platform::errorText(status._error, buffer, sizeof buffer));
    return status;
}

Status& Status::within(StrSegment operation) {
    if (!ok()) {
        Str text(operation);
        text.append(": ");
        text.append(_text);
        _text = std::move(text);
    }
    return *this;
}

}  // namespace basicutil
