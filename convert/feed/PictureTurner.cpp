#include "convert/feed/PictureTurner.h"

#include <fmt/format.h>

#include <utility>
#include <vector>

#include "support/FFmpegOwners.h"
#include "support/PictureColor.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

/// The format in which a transparent picture is laid on black: one sample of each kind for every
/// pixel, of no fewer bits than it has; "" for one that is not transparent.
std::string flatteningFormat(AVPixelFormat format) {
  const AVPixFmtDescriptor& own = *av_pix_fmt_desc_get(format);
  if ((own.flags & AV_PIX_FMT_FLAG_ALPHA) == 0) return "";
  const int depth = own.comp[0].depth;
  const std::string name = own.flags & AV_PIX_FMT_FLAG_RGB ? "gbrap" : "yuva444p";
  if (depth <= 8) return name;
  return name + (depth <= 10 ? "10" : depth <= 12 ? "12" : "16");
}

}  // namespace

void PictureTurner::build(const AVFrame& frame) {
  width_ = frame.width;
  height_ = frame.height;
  format_ = frame.format;
  std::vector<FilterChain::Filter> filters{
      {"buffer",
       fmt::format("video_size={}x{}:pix_fmt={}:time_base=1/25", width_, height_, format_)}};
  const std::string flat =
      flattens_ ? flatteningFormat(static_cast<AVPixelFormat>(format_)) : std::string();
  if (!flat.empty()) {
    filters.push_back({"format", "pix_fmts=" + flat});
    filters.push_back({"premultiply", "inplace=1"});
  }
  if (turn_.mirrored != (turn_.quarters == 2)) filters.push_back({"hflip", ""});
  if (turn_.flipped != (turn_.quarters == 2)) filters.push_back({"vflip", ""});
  if (turn_.quarters == 1) filters.push_back({"transpose", "dir=cclock"});
  if (turn_.quarters == 3) filters.push_back({"transpose", "dir=clock"});
  filters.push_back({"buffersink", ""});
  chain_ = FilterChain::make(filters, "flags=bicubic+accurate_rnd+full_chroma_int");
}

std::shared_ptr<LMFFImage> PictureTurner::make(const std::shared_ptr<LMFFImage>& frame) {
  if (frame == frame_) return picture_;
  const FramePtr own(av_frame_clone(frame->getFrame()));
  frame_ = frame;
  picture_ = frame;
  if (!own) return picture_;
  tagPictureColor(*own);
  if (own->width != width_ || own->height != height_ || own->format != format_) build(*own);
  FramePtr turned = makeFrame();
  if (chain_ && turned && chain_->push(own.get()) && chain_->pull(*turned))
    picture_ = LMFFImage::imageWithFrame(turned.release(), true);
  return picture_;
}

}  // namespace kestrel
