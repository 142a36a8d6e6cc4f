#include "frames/PicturePool.h"

extern "C" {
#include <libavutil/buffer.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
}

#include <algorithm>
#include <array>
#include <iterator>

namespace kestrel {

namespace {

constexpr int kRowAlignment = 16;
constexpr int kRowsAlignment = 32;  // codecs work on whole blocks beyond the last row
constexpr size_t kReadBeyond = 64;  // and vector code reads past the last pixel
constexpr size_t kPlanes = 4;

using PlaneSizes = std::array<size_t, kPlanes>;

int alignUp(int value, int alignment) { return (value + alignment - 1) / alignment * alignment; }

/// Sets the frame's line sizes and answers the bytes that each plane takes; false when libavutil
/// knows no such picture.
bool layOut(AVFrame& frame, PlaneSizes& sizes) {
  const auto format = static_cast<AVPixelFormat>(frame.format);
  if (av_image_check_size2(frame.width, frame.height, INT64_MAX, format, 0, nullptr) < 0 ||
      av_image_fill_linesizes(frame.linesize, format, alignUp(frame.width, kRowAlignment)) < 0) {
    return false;
  }
  std::array<ptrdiff_t, kPlanes> rows{};
  for (size_t i = 0; i < kPlanes; i++) {
    frame.linesize[i] = alignUp(frame.linesize[i], kRowAlignment);
    rows[i] = frame.linesize[i];
  }
  const int height = alignUp(frame.height, kRowsAlignment);
  return av_image_fill_plane_sizes(sizes.data(), format, height, rows.data()) >= 0;
}

}  // namespace

void PicturePool::PoolDeleter::operator()(AVBufferPool* pool) const {
  av_buffer_pool_uninit(&pool);
}

bool PicturePool::allocate(AVFrame& frame) {
  PlaneSizes planes{};
  if (!layOut(frame, planes)) return false;
  size_t size = kReadBeyond;
  for (const size_t plane : planes) size += plane;
  if (!pool_ || size != size_) {
    pool_.reset(av_buffer_pool_init(size, nullptr));
    size_ = size;
  }
  frame.buf[0] = pool_ ? av_buffer_pool_get(pool_.get()) : nullptr;
  if (!frame.buf[0]) return false;
  uint8_t* next = frame.buf[0]->data;
  for (size_t i = 0; i < kPlanes && planes[i] > 0; i++) {
    frame.data[i] = next;
    next += planes[i];
  }
  return true;
}

}  // namespace kestrel
