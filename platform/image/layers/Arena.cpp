#include "platform/image/layers/Arena.h"

#include <algorithm>

namespace kestrel {

void* Arena::allocate(size_t bytes) {
  constexpr size_t kLeastChunk = size_t{64} << 10;
  const size_t needed = (bytes + kAlignment - 1) / kAlignment * kAlignment;
  while (at_.chunk < chunks_.size() && chunks_[at_.chunk].size - at_.used < needed)
    at_ = {at_.chunk + 1, 0};
  if (at_.chunk == chunks_.size()) {
    const size_t size = std::max(needed, kLeastChunk);
    auto* memory = static_cast<std::byte*>(::operator new[](size, std::align_val_t{kAlignment}));
    chunks_.push_back({std::unique_ptr<std::byte[], Delete>(memory), size});
  }
  std::byte* result = chunks_[at_.chunk].memory.get() + at_.used;
  at_.used += needed;
  return result;
}

}  // namespace kestrel
