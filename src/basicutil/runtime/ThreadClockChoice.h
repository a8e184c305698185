// Which clock condition waits and elapsed-time readings use, decided once per process.
//
// VESTRA_USE_MONOTONIC_CLOCK turns CLOCK_MONOTONIC off when it is "0", "false", "no", "off" or
// "disabled" (any letter case, blanks around ignored). Unset, empty and every other value leave
// it on, so a typo never silently moves timed waits onto the settable wall clock.
#pragma once

namespace basicutil {

// What the process decided, each with its log line.
enum ClockChoice : int {
    CLOCK_CHOICE_MONOTONIC = 1,    // "using CLOCK_MONOTONIC"
    CLOCK_CHOICE_DISABLED = 2,     // "CLOCK_MONOTONIC support explicitly disabled"
    CLOCK_CHOICE_UNAVAILABLE = 3,  // "CLOCK_MONOTONIC support not available"
};

// The decision itself, from the variable's value (nullptr when unset) and the probe's result.
ClockChoice decideClockChoice(const char* environmentValue, bool monotonicClockWorks) noexcept;

// The process-wide choice: decided on first use, logged once on the "Thread" channel.
ClockChoice clockChoice() noexcept;

// True when waits and readings use CLOCK_MONOTONIC; aborts on an impossible choice.
bool useMonotonicClock() noexcept;

// The log line of a choice.
const char* clockChoiceText(ClockChoice choice) noexcept;

}  // namespace basicutil
