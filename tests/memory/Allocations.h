#pragma once

#include <atomic>

namespace kestrel::test {

/// How often memory was allocated, in whichever way and by whichever thread. These tests have a
/// program of their own because it replaces the allocation functions of the whole program.
extern std::atomic<int> allocations;

/// False under a sanitizer, which does not tell of allocations with an alignment.
extern const bool isEveryAllocationCounted;

}  // namespace kestrel::test
