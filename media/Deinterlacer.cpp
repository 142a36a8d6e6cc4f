#include "media/Deinterlacer.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "support/FFmpegCompat.h"

namespace kestrel {

bool Deinterlacer::fits(const AVFrame& picture) const {
  return chain_ && picture.width == width_ && picture.height == height_ &&
         picture.format == format_;
}

void Deinterlacer::build(const AVFrame& picture) {
  width_ = picture.width;
  height_ = picture.height;
  format_ = picture.format;
  const std::string input = fmt::format("video_size={}x{}:pix_fmt={}:time_base={}/{}", width_,
                                        height_, format_, timebase_.num, timebase_.den);
  const std::string settings = fmt::format("mode=send_frame:parity=auto:deint={}",
                                           mode_ == Deinterlacing::kOn ? "all" : "interlaced");
  chain_ = FilterChain::make({{"buffer", input}, {"bwdif", settings}, {"buffersink", ""}});
}

std::vector<FramePtr> Deinterlacer::collect() {
  std::vector<FramePtr> finished;
  for (;;) {
    FramePtr picture = makeFrame();
    if (!picture || !chain_->pull(*picture)) return finished;
    picture->pts = av_rescale_q(picture->pts, chain_->timebase(), timebase_);
    finished.push_back(std::move(picture));
  }
}

std::vector<FramePtr> Deinterlacer::push(FramePtr picture) {
  std::vector<FramePtr> finished;
  if (!fits(*picture)) {
    finished = finish();
    build(*picture);
  }
  if (!chain_ || !chain_->push(picture.get())) {
    finished.push_back(std::move(picture));
    return finished;
  }
  std::ranges::move(collect(), std::back_inserter(finished));
  return finished;
}

std::vector<FramePtr> Deinterlacer::finish() {
  if (!chain_) return {};
  std::vector<FramePtr> finished;
  if (chain_->push(nullptr)) finished = collect();
  chain_.reset();
  return finished;
}

}  // namespace kestrel
