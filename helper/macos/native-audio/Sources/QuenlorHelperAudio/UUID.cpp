#include "UUID.h"

#include <random>

namespace quenlor {

std::string randomUUIDString() {
  std::random_device source;
  std::uniform_int_distribution<unsigned> nibble(0, 15);
  std::string text = "xxxxxxxx-xxxx-4xxx-yxxx-xxxxxxxxxxxx";
  for (char& c : text) {
    // y carries the variant: its two highest bits are 10.
    if (c == 'x')
      c = "0123456789ABCDEF"[nibble(source)];
    else if (c == 'y')
      c = "89AB"[nibble(source) % 4];
  }
  return text;
}

}  // namespace quenlor
