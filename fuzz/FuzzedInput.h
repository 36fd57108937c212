#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

namespace quenlor::fuzz {

/// An input taken apart from its front. Once it has run out, every further value is 0.
class FuzzedInput {
 public:
  FuzzedInput(const std::uint8_t* data, std::size_t size) : rest(data, size) {}

  bool isEmpty() const { return rest.empty(); }

  template <typename Number>
  Number number() {
    Number value{};
    const auto bytes = take(sizeof value);
    std::memcpy(&value, bytes.data(), bytes.size());
    return value;
  }

  /// The next count bytes, or as many as there are.
  std::span<const std::uint8_t> take(std::size_t count) {
    const auto taken = rest.first(std::min(count, rest.size()));
    rest = rest.subspan(taken.size());
    return taken;
  }

  std::string_view text(std::size_t count) {
    const auto bytes = take(count);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

  std::string_view remainingText() { return text(rest.size()); }

 private:
  std::span<const std::uint8_t> rest;
};

}  // namespace quenlor::fuzz
