#include "tests/memory/Allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

std::atomic<int> kestrel::test::allocations = 0;

namespace {

void* counted(size_t size, size_t alignment) {
  ++kestrel::test::allocations;
  const size_t rounded = (size + alignment - 1) / alignment * alignment;
  if (void* memory = std::aligned_alloc(alignment, rounded)) return memory;
  throw std::bad_alloc();
}

/// Not inlined: the compiler would take the calls of a pair for a mix-up.
[[gnu::noinline]] void release(void* memory) noexcept { std::free(memory); }

}  // namespace

void* operator new(size_t size) { return counted(size, alignof(std::max_align_t)); }
void* operator new[](size_t size) { return counted(size, alignof(std::max_align_t)); }
void* operator new(size_t size, std::align_val_t alignment) {
  return counted(size, static_cast<size_t>(alignment));
}
void* operator new[](size_t size, std::align_val_t alignment) {
  return counted(size, static_cast<size_t>(alignment));
}
void operator delete(void* memory) noexcept { release(memory); }
void operator delete[](void* memory) noexcept { release(memory); }
void operator delete(void* memory, size_t) noexcept { release(memory); }
void operator delete[](void* memory, size_t) noexcept { release(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { release(memory); }
void operator delete(void* memory, size_t, std::align_val_t) noexcept { release(memory); }
void operator delete[](void* memory, size_t, std::align_val_t) noexcept { release(memory); }
