#pragma once

#include <mutex>
#include <utility>

namespace kestrel {

/// A value that one thread may read while another replaces it: a reader gets a whole copy.
template <typename T>
class Guarded {
 public:
  Guarded() = default;
  explicit Guarded(T value) : value_(std::move(value)) {}

  T get() const {
    const std::lock_guard guard(lock_);
    return value_;
  }

  /// The old value is destroyed after the lock is given back, so its destructor may take long.
  void set(T value) {
    const std::lock_guard guard(lock_);
    std::swap(value_, value);
  }

  /// Calls `use(value)` under the lock.
  template <typename Use>
  auto with(Use use) {
    const std::lock_guard guard(lock_);
    return use(value_);
  }

  template <typename Use>
  auto with(Use use) const {
    const std::lock_guard guard(lock_);
    return use(value_);
  }

 private:
  mutable std::mutex lock_;
  T value_{};
};

}  // namespace kestrel
