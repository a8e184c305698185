// The order in which the library's process-wide globals come into being before main.
//
// Each translation unit that owns dynamically initialised globals gathers them in one object
// marked VESTRA_STARTUP(STARTUP_...). The priorities make the order independent of link order;
// programs link basicutil whole (see README) so that no unit's globals are dropped. Destructors
// run in the reverse order after main returns.
#pragma once

#include <cstddef>

namespace basicutil {

// The priorities, earliest first; gaps are kept for units to come.
enum StartupOrder : int {
    STARTUP_STRING_UTILITIES = 1001,  // boolean words, escape sets, percent-encoding table
    STARTUP_STATIC_CONTAINER_A = 1002,
    STARTUP_THREAD = 1003,  // the thread list, the process-wide mutex, the thread-specific key
    STARTUP_TIMEVAL = 1004,
    STARTUP_STATIC_CONTAINER_B = 1005,
    STARTUP_BASE_EXCEPTION = 1006,     // the default type name "BaseException"
    STARTUP_CHARACTER_CLASSES = 1007,  // whitespace, digits, number characters, letters, identifiers
    STARTUP_DATE_TIME = 1008,
    STARTUP_DUTY_CYCLE = 1009,
    STARTUP_STRING_TABLE = 1010,
    STARTUP_LOGGER = 1011,
    STARTUP_PATHNAME = 1012,
    STARTUP_STATISTICS = 1013,
    STARTUP_REGEX = 1014,
    STARTUP_RANDOM = 1015,
    STARTUP_STATIC_CONTAINER_C = 1016,
    STARTUP_DATE_PARSER = 1017,
    STARTUP_LAST_LIBRARY = 1018,
};

// Marks a global to be constructed at `order` (a StartupOrder).
#define VESTRA_STARTUP(order) __attribute__((init_priority(order)))

// A record of start-up and teardown, for tests and crash logs: "+basicutil/Thread" when a unit's
// globals come into being, "-basicutil/Thread" when they are torn down. Usable before any
// dynamic initialisation (constant-initialised storage, no allocation).
void recordStartupEvent(const char* event) noexcept;
std::size_t startupEventCount() noexcept;              // events recorded so far
const char* startupEvent(std::size_t index) noexcept;  // the index-th, oldest first

}  // namespace basicutil
