#pragma once

#include <chrono>
#include <stdexcept>
#include <thread>

namespace quenlor::test {

/// Waits for a condition that another process brings about. Throws std::runtime_error where it does
/// not hold within half a minute.
template <typename Condition>
void waitUntil(Condition holds) {
  using namespace std::chrono_literals;
  for (const auto deadline = std::chrono::steady_clock::now() + 30s; !holds();) {
    if (std::chrono::steady_clock::now() > deadline)
      throw std::runtime_error("What was waited for did not come.");
    std::this_thread::sleep_for(5ms);
  }
}

}  // namespace quenlor::test
