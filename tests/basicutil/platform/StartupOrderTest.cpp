// Linked like the helper (basicutil whole): the units' globals come up in the declared order and
// go down in reverse after main returns.
#include "basicutil/platform/StartupOrder.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

namespace basicutil {
namespace {

std::vector<std::string> events() {
    std::vector<std::string> all;
    for (std::size_t i = 0; i < startupEventCount(); ++i) all.push_back(startupEvent(i));
    return all;
}

TEST(StartupOrderTest, GlobalsComeUpInTheDeclaredOrder) {
    EXPECT_EQ(events(),
              (std::vector<std::string>{"+basicutil/Str", "+basicutil/Thread", "+basicutil/Timeval",
                                        "+basicutil/BaseException", "+basicutil/StrCharacterClasses",
                                        "+basicutil/DateTime", "+basicutil/DutyCycle", "+basicutil/Logger",
                                        "+basicutil/Pathname", "+basicutil/Regex", "+basicutil/DateParser"}));
}

// Constructed before every unit's globals and so destroyed after them all: checks the teardown
// and fails the whole program (after GoogleTest has reported) if it went wrong.
struct TeardownCheck {
    ~TeardownCheck() {
        const std::vector<std::string> all = events();
        const std::vector<std::string> expected = {"+basicutil/Str",
                                                   "+basicutil/Thread",
                                                   "+basicutil/Timeval",
                                                   "+basicutil/BaseException",
                                                   "+basicutil/StrCharacterClasses",
                                                   "+basicutil/DateTime",
                                                   "+basicutil/DutyCycle",
                                                   "+basicutil/Logger",
                                                   "+basicutil/Pathname",
                                                   "+basicutil/Regex",
                                                   "+basicutil/DateParser",
                                                   "-basicutil/DateParser",
                                                   "-basicutil/Regex",
                                                   "-basicutil/Pathname",
                                                   "-basicutil/Logger",
                                                   "-basicutil/DutyCycle",
                                                   "-basicutil/DateTime",
                                                   "-basicutil/StrCharacterClasses",
                                                   "-basicutil/BaseException",
                                                   "-basicutil/Timeval",
                                                   "-basicutil/Thread",
                                                   "-basicutil/Str"};
        if (all != expected) {
            static const char kMessage[] = "StartupOrderTest: globals were not torn down in reverse order\n";
            static_cast<void>(write(2, kMessage, sizeof kMessage - 1));
            _exit(1);
        }
    }
} teardownCheck __attribute__((init_priority(101)));

}  // namespace
}  // namespace basicutil
