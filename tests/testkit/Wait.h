// Waits for a condition, not for a time.
#pragma once

#include <chrono>
#include <thread>

namespace testkit {

/** False when the condition has not come true after that time. */
template <class Condition>
bool WaitUntil(const Condition& condition, std::chrono::milliseconds limit = std::chrono::minutes(1)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {  // asked once where it holds: it may be an action that succeeds
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(50));  // leaves the core to what is waited for
  }
  return true;
}

}  // namespace testkit
