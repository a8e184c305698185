#include "basicutil/platform/StartupOrder.h"

#include <atomic>

namespace basicutil {

namespace {
constexpr std::size_t kMaxEvents = 64;  // two per row of StartupOrder, with room to spare
constinit const char* g_events[kMaxEvents] = {};
constinit std::atomic<std::size_t> g_eventCount{0};
}  // namespace

void recordStartupEvent(const char* event) noexcept {
    const std::size_t slot = g_eventCount.fetch_add(1);
    if (slot < kMaxEvents) g_events[slot] = event;
}

std::size_t startupEventCount() noexcept {
    const std::size_t n = g_eventCount.load();
    return n < kMaxEvents ? n : kMaxEvents;
}

const char* startupEvent(std::size_t index) noexcept {
    return index < startupEventCount() ? g_events[index] : nullptr;
}

}  // namespace basicutil
