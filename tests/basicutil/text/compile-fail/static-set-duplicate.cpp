// Must not compile: a constant set with a member given twice (StaticStrSet.ConstantDuplicatesDoNotCompile).
#include "basicutil/text/StaticStrSet.h"

constexpr auto kTwice = basicutil::makeStaticStrSet({"INFO", "WARN", "INFO"});
