#include "basicutil/text/BaseException.h"

#include "basicutil/platform/StartupOrder.h"

namespace basicutil {

namespace {
struct BaseExceptionGlobals {
    std::string defaultTypeName{"BaseException"};
    BaseExceptionGlobals() { recordStartupEvent("+basicutil/BaseException"); }
    ~BaseExceptionGlobals() { recordStartupEvent("-basicutil/BaseException"); }
};
BaseExceptionGlobals g_baseException VESTRA_STARTUP(STARTUP_BASE_EXCEPTION);
}  // namespace

const char* BaseException::typeName() const noexcept {
    return g_baseException.defaultTypeName.c_str();
}

}  // namespace basicutil
