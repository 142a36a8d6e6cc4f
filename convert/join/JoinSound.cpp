#include "convert/join/JoinSound.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace kestrel {

namespace {

constexpr int32_t kBlock = 1024;

/// By how much containers round times, as a part of a second: sound that misses other sound by less
/// than this follows it.
constexpr int32_t kRounding = 200;

}  // namespace

JoinSound::JoinSound(const LMFFAudioFormat& format)
    : format_(format), channels_(lm_get_channel_layout_nb_channels(format.channel_layout)) {}

// Pictures have their sound: what lies under them comes first, that of the part before and then
// that of the new one. Only what neither has is silent.
void JoinSound::meet(std::unique_ptr<Part> part, int64_t seam, int64_t begin) {
  ahead(ordinaryOverhang());
  const int64_t end = frames_ + waitingFrames() - seam;
  pause_ = 0;
  part_ = std::move(part);
  if (!part_) return;
  if (std::abs(begin - end) <= format_.sample_rate / kRounding) return;
  const int64_t cut = std::max(std::min(end, std::max<int64_t>(begin, 0)), end - waitingFrames());
  waiting_.resize(waiting_.size() - static_cast<size_t>((end - cut) * channels_));
  if (begin < cut) drop(cut - begin);
  pause_ = std::max<int64_t>(begin - cut, 0);
}

void JoinSound::follow(std::unique_ptr<Part> part) {
  ahead(ordinaryOverhang());
  pause_ = 0;
  part_ = std::move(part);
}

void JoinSound::begin(std::unique_ptr<Part> part, int64_t seam, int64_t begin) {
  part_ = std::move(part);
  waiting_.clear();
  pause_ = std::max<int64_t>(seam - frames_, 0) + std::max<int64_t>(begin, 0);
  if (part_ && begin < 0) drop(-begin);
}

/// Leaves out frames of the part, of which none waits.
void JoinSound::drop(int64_t frames) {
  Samples block(static_cast<size_t>(kBlock * channels_));
  while (frames > 0) {
    const int32_t got =
        part_->read(block.data(), static_cast<int32_t>(std::min<int64_t>(frames, kBlock)));
    if (got == 0) return;
    frames -= got;
  }
}

int64_t JoinSound::ahead(int64_t most) {
  Samples block(static_cast<size_t>(kBlock * channels_));
  while (waitingFrames() < most && (pause_ > 0 || part_)) {
    const auto wanted = static_cast<int32_t>(std::min<int64_t>(most - waitingFrames(), kBlock));
    const auto pause = static_cast<int32_t>(std::min<int64_t>(pause_, wanted));
    pause_ -= pause;
    if (pause > 0) std::ranges::fill(block, 0);
    const int32_t got = pause > 0 ? pause : part_->read(block.data(), wanted);
    if (got == 0) break;
    waiting_.insert(waiting_.end(), block.begin(), block.begin() + std::ptrdiff_t{channels_} * got);
  }
  return std::min(waitingFrames(), most);
}

JoinSound::Samples JoinSound::take(int64_t end) {
  const int64_t wanted = std::max<int64_t>(end - frames_, 0);
  const int64_t most = std::min<int64_t>(wanted, format_.sample_rate);
  const int64_t got = ahead(most);
  const int64_t maybeComes = part_ ? ordinaryOverhang() : 0;
  const int64_t silence = std::clamp<int64_t>(wanted - got - maybeComes, 0, most - got);
  const auto last = waiting_.begin() + static_cast<std::ptrdiff_t>(got * channels_);
  Samples samples(waiting_.begin(), last);
  waiting_.erase(waiting_.begin(), last);
  samples.resize(samples.size() + static_cast<size_t>(silence * channels_));
  frames_ += got + silence;
  return samples;
}

JoinSound::Samples JoinSound::rest(int64_t end) {
  if (part_) ahead(ordinaryOverhang());
  part_.reset();
  pause_ = 0;
  return take(std::max(end, frames_ + waitingFrames()));
}

}  // namespace kestrel
