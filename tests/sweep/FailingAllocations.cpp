// Linked into the program, in place of the library's operator new: fails one allocation of the
// control thread. QUENLOR_FAILING_ALLOCATION is its number, counted from 1; 0 fails none of them
// and has their count told on standard error at the end.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

namespace {

thread_local bool isControlThread = false;
std::uint64_t allocations = 0;
std::uint64_t failingAllocation = 0;

/// Counts from before main() until after it.
struct Counting {
  Counting() {
    const char* const number = std::getenv("QUENLOR_FAILING_ALLOCATION");
    failingAllocation = number != nullptr ? std::stoull(number) : 0;
    isControlThread = true;
  }
  ~Counting() {
    isControlThread = false;
    if (failingAllocation == 0) std::fprintf(stderr, "%ju\n", std::uintmax_t{allocations});
  }
} counting;

}  // namespace

// The other forms of new go through this one.
void* operator new(std::size_t size) {
  if (isControlThread && ++allocations == failingAllocation) throw std::bad_alloc();
  if (void* const memory = std::malloc(size > 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
