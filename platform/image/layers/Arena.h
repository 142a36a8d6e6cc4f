#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

namespace kestrel {

/// Memory that is given out piece by piece and taken back all at once.
///
/// What was taken back is given out again, so that work of the same kind, done again, allocates
/// nothing. Destructors are never run. One thread at a time uses an arena.
class Arena {
 public:
  /// Enough for the widest vectors.
  static constexpr size_t kAlignment = 64;

  /// Never null; throws `std::bad_alloc`. The memory holds anything.
  void* allocate(size_t bytes);

  template <typename T>
  std::span<T> array(size_t count) {
    static_assert(std::is_trivially_destructible_v<T>);
    if (count > SIZE_MAX / sizeof(T) / 2) throw std::bad_alloc();
    return {static_cast<T*>(allocate(count * sizeof(T))), count};
  }

  template <typename T, typename... Arguments>
  T* make(Arguments&&... arguments) {
    static_assert(std::is_trivially_destructible_v<T>);
    return new (allocate(sizeof(T))) T(std::forward<Arguments>(arguments)...);
  }

  /// A point to go back to.
  struct Mark {
    size_t chunk = 0;
    size_t used = 0;
  };
  Mark mark() const { return at_; }
  /// Takes back everything that was given out since `mark`.
  void rewind(const Mark& mark) { at_ = mark; }
  void reset() { at_ = {}; }

 private:
  struct Delete {
    void operator()(std::byte* memory) const {
      ::operator delete[](memory, std::align_val_t{kAlignment});
    }
  };
  struct Chunk {
    std::unique_ptr<std::byte[], Delete> memory;
    size_t size;
  };

  std::vector<Chunk> chunks_;
  Mark at_;
};

/// Takes back, at its end, what an arena gave out during a scope.
class ArenaScope {
 public:
  explicit ArenaScope(Arena& arena) : arena_(arena), mark_(arena.mark()) {}
  ~ArenaScope() { arena_.rewind(mark_); }
  ArenaScope(const ArenaScope&) = delete;
  ArenaScope& operator=(const ArenaScope&) = delete;

 private:
  Arena& arena_;
  Arena::Mark mark_;
};

}  // namespace kestrel
