#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace quenlor::fuzz {

/// The function that every target is: runs one input, and returns only if all properties held.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Ends the program where a property does not hold, which is how a fuzzer learns of it.
inline void require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "Does not hold: %s\n", property);
  std::abort();
}

}  // namespace quenlor::fuzz
