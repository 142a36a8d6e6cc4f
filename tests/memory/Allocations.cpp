#include "tests/memory/Allocations.h"

#include <cerrno>
#include <cstddef>

std::atomic<int> kestrel::test::allocations = 0;

using kestrel::test::allocations;

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KESTREL_IS_SANITIZED
#endif
#elif defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KESTREL_IS_SANITIZED
#endif

#ifdef KESTREL_IS_SANITIZED

// A sanitizer has replaced the functions itself, and tells of most calls.

const bool kestrel::test::isEveryAllocationCounted = false;

extern "C" int __sanitizer_install_malloc_and_free_hooks(
    void (*onMalloc)(const volatile void* memory, size_t size),
    void (*onFree)(const volatile void* memory));

namespace {

void count(const volatile void* /*memory*/, size_t /*size*/) { ++allocations; }
void countNothing(const volatile void* /*memory*/) {}

[[maybe_unused]] const int isInstalled =
    __sanitizer_install_malloc_and_free_hooks(count, countNothing);

}  // namespace

#else

const bool kestrel::test::isEveryAllocationCounted = true;

// These take the place of the C library's own, for every library: `new` and av_malloc end here,
// too.
#pragma GCC visibility push(default)
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

void* malloc(size_t size) {
  ++allocations;
  return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
  ++allocations;
  return __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) {
  ++allocations;
  return __libc_realloc(memory, size);
}
void* memalign(size_t alignment, size_t size) {
  ++allocations;
  return __libc_memalign(alignment, size);
}
void* aligned_alloc(size_t alignment, size_t size) { return memalign(alignment, size); }
int posix_memalign(void** memory, size_t alignment, size_t size) {
  *memory = memalign(alignment, size);
  return *memory ? 0 : ENOMEM;
}
}
#pragma GCC visibility pop

#endif
