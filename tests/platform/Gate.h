#pragma once

#include <chrono>
#include <future>
#include <gtest/gtest.h>

namespace quenlor::test {

/// Something that happens once on one thread and that others wait for, within reason.
class Gate {
 public:
  Gate() : opened(promise.get_future().share()) {}

  void open() { promise.set_value(); }

  /// Fails the test if the gate stays shut.
  void await() const {
    const auto limit = std::chrono::seconds(30);
    EXPECT_EQ(opened.wait_for(limit), std::future_status::ready) << "waited in vain";
  }

 private:
  std::promise<void> promise;
  std::shared_future<void> opened;
};

}  // namespace quenlor::test
