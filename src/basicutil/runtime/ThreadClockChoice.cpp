#include "basicutil/runtime/ThreadClockChoice.h"

#include <cstdlib>
#include <ctime>
#include <string_view>

#include "basicutil/log/Logger.h"
#include "basicutil/platform/Platform.h"
#include "basicutil/runtime/ThreadFatalError.h"

namespace basicutil {

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

bool equalsIgnoringCase(std::string_view text, std::string_view lowerWord) {
    if (text.size() != lowerWord.size()) return false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != lowerWord[i]) return false;
    }
    return true;
}

bool turnsClockOff(std::string_view value) {
    while (!value.empty() && isBlank(value.front())) value.remove_prefix(1);
    while (!value.empty() && isBlank(value.back())) value.remove_suffix(1);
    for (std::string_view word : {"0", "false", "no", "off", "disabled"}) {
        if (equalsIgnoringCase(value, word)) return true;
    }
    return false;
}

ClockChoice decideOnce() noexcept {
    struct timespec probe {};
    const ClockChoice choice =
        decideClockChoice(std::getenv("VESTRA_USE_MONOTONIC_CLOCK"), platform::readMonotonicClock(probe));
    // On the "Thread" channel, once it exists (a choice made earlier in start-up is not logged).
    if (Logger* channel = fatalThreadContext().channel; channel != nullptr) {
        channel->log(choice == CLOCK_CHOICE_UNAVAILABLE ? LOG_WARN : LOG_INFO, clockChoiceText(choice));
    }
    return choice;
}

}  // namespace

ClockChoice decideClockChoice(const char* environmentValue, bool monotonicClockWorks) noexcept {
    if (environmentValue != nullptr && turnsClockOff(environmentValue)) return CLOCK_CHOICE_DISABLED;
    return monotonicClockWorks ? CLOCK_CHOICE_MONOTONIC : CLOCK_CHOICE_UNAVAILABLE;
}

ClockChoice clockChoice() noexcept {
    static const ClockChoice choice = decideOnce();
    return choice;
}

bool useMonotonicClock() noexcept {
    switch (clockChoice()) {
        case CLOCK_CHOICE_MONOTONIC:
            return true;
        case CLOCK_CHOICE_DISABLED:
        case CLOCK_CHOICE_UNAVAILABLE:
            return false;
    }
    std::abort();
}

const char* clockChoiceText(ClockChoice choice) noexcept {
    switch (choice) {
        case CLOCK_CHOICE_MONOTONIC:
            return "using CLOCK_MONOTONIC";
        case CLOCK_CHOICE_DISABLED:
            return "CLOCK_MONOTONIC support explicitly disabled";
        case CLOCK_CHOICE_UNAVAILABLE:
            return "CLOCK_MONOTONIC support not available";
    }
    return "???";
}

}  // namespace basicutil
