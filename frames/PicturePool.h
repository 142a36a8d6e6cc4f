#pragma once

#include <cstddef>
#include <memory>

struct AVBufferPool;
struct AVFrame;

namespace kestrel {

/// Pixel buffers for frames of one size and format, which are used again as soon as nobody holds
/// them. Buffers may outlive the pool.
class PicturePool {
 public:
  /// Gives a frame, which has its format, width and height but no data yet, planes with rows
  /// aligned to 16 bytes; the pixels are undefined. False when there is no such picture.
  bool allocate(AVFrame& frame);

 private:
  struct PoolDeleter {
    void operator()(AVBufferPool* pool) const;
  };

  std::unique_ptr<AVBufferPool, PoolDeleter> pool_;
  size_t size_ = 0;  ///< bytes of each buffer of the pool
};

}  // namespace kestrel
