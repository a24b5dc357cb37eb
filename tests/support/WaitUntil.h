#pragma once

#include <chrono>
#include <thread>

namespace Zarn::testing {

// Waits until `condition` holds, asking every millisecond; false when it still does not
// after `timeout`, which is only a safety net for a test that would otherwise hang.
template <typename Condition>
bool WaitUntil(Condition condition, std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace Zarn::testing
