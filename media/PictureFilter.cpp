#include "media/PictureFilter.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

namespace kestrel {

bool PictureFilter::fits(const AVFrame& picture) const {
  return chain_ && picture.width == width_ && picture.height == height_ &&
         picture.format == format_;
}

void PictureFilter::build(const AVFrame& picture) {
  width_ = picture.width;
  height_ = picture.height;
  format_ = picture.format;
  std::vector<FilterChain::Filter> chain{
      {"buffer", fmt::format("video_size={}x{}:pix_fmt={}:time_base={}/{}", width_, height_,
                             format_, timebase_.num, timebase_.den)}};
  std::ranges::copy(filters_, std::back_inserter(chain));
  chain.push_back({"buffersink", ""});
  chain_ = FilterChain::make(chain);
  finished_ = chain_ ? chain_->timebase() : timebase_;
}

std::vector<FramePtr> PictureFilter::collect() {
  std::vector<FramePtr> finished;
  for (;;) {
    FramePtr picture = makeFrame();
    if (!picture || !chain_->pull(*picture)) return finished;
    finished.push_back(std::move(picture));
  }
}

std::vector<FramePtr> PictureFilter::push(FramePtr picture) {
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

std::vector<FramePtr> PictureFilter::finish() {
  if (!chain_) return {};
  std::vector<FramePtr> finished;
  if (chain_->push(nullptr)) finished = collect();
  chain_.reset();
  return finished;
}

}  // namespace kestrel
