#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace quenlor::fuzz {

/// The function that every target is: runs one input, and returns only if all properties held.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the program where a property does not hold, which is how a fuzzer learns of it.
inline void require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "Does not hold: %s\n", property);
  std::abort();
}

/// An input taken apart from its front. Once it has run out, every further value is 0.
class FuzzedInput {
 public:
  FuzzedInput(const std::uint8_t* data, std::size_t size)
      : rest(reinterpret_cast<const char*>(data), size) {}

  bool isEmpty() const { return rest.empty(); }

  template <typename Number>
  Number number() {
    Number value{};
    const std::string_view bytes = text(sizeof value);
    std::memcpy(&value, bytes.data(), bytes.size());
    return value;
  }

  /// The next count bytes, or as many as there are.
  std::string_view text(std::size_t count) {
    const std::string_view taken = rest.substr(0, count);
    rest.remove_prefix(taken.size());
    return taken;
  }

  std::string_view remainingText() { return text(rest.size()); }

 private:
  std::string_view rest;
};

}  // namespace quenlor::fuzz
