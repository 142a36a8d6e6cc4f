#include "media/PictureConverter.h"

#include <fmt/format.h>

#include <utility>
#include <vector>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

const char* nameOf(int32_t pixelFormat) {
  return av_get_pix_fmt_name(static_cast<AVPixelFormat>(pixelFormat));
}

}  // namespace

bool PictureConverter::isUsable() const {
  if (wasMade_) return chain_ != nullptr;
  return from_.width > 0 && from_.height > 0 && nameOf(from_.pix_fmt) && nameOf(pixelFormat_);
}

std::unique_ptr<FilterChain> PictureConverter::makeChain() const {
  // It carries no timing and no aspect: the stream's settings see to the shape.
  std::vector<FilterChain::Filter> filters{
      {"buffer", fmt::format("video_size={}x{}:pix_fmt={}:time_base=1/25:pixel_aspect=0/1",
                             from_.width, from_.height, from_.pix_fmt)}};
  // On the straight way from grey to RGB the range of the frame would not count.
  if (from_.pix_fmt == AV_PIX_FMT_GRAY8) filters.push_back({"format", "pix_fmts=yuv444p"});
  filters.push_back({"format", fmt::format("pix_fmts={}", nameOf(pixelFormat_))});
  filters.push_back({"buffersink", ""});
  // The library's fast ways to RGB are off by several steps.
  return FilterChain::make(filters, "flags=bilinear+accurate_rnd+full_chroma_int");
}

FramePtr PictureConverter::convert(const AVFrame& frame) {
  if (!isUsable()) return nullptr;
  if (!std::exchange(wasMade_, true)) chain_ = makeChain();
  FramePtr converted = makeFrame();
  if (!chain_ || !converted || !chain_->push(&frame) || !chain_->pull(*converted)) return nullptr;
  return converted;
}

}  // namespace kestrel
