// A stack overflow for the crash tests: recursion deeper than any stack.
#pragma once

namespace vestra_test {

// The depth that ends it, out of any stack's reach: it only keeps the compiler from calling the
// recursion endless.
inline volatile int g_depthLimit = 1 << 30;

// Recurses with a frame of 512 bytes until the stack overflows.
[[gnu::noinline]] inline int recurse(int depth) {
    volatile char pad[512];
    pad[0] = static_cast<char>(depth);
    if (depth >= g_depthLimit) return 0;
    return recurse(depth + 1) + pad[0];
}

}  // namespace vestra_test
