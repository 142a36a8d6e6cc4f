#include "convert/join/PartSound.h"

#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include <kestrel/convert/Failure.h>
#include "convert/probe/Input.h"

namespace kestrel {

namespace {

/// Sound that begins this little after the part begins with it; frames.
constexpr int64_t kRounding = PartSound::kRate / 100;

}  // namespace

PartSound::PartSound(const JoinPart& part, uint32_t stream, bool hasHidden)
    : rate_(part.input.rate) {
  movie_.setExportMovie(true);
  const Interrupt interrupt = part.source->interrupt();
  movie_.openMedias(openInput(part.input.path, std::nullopt, interrupt)
                        ->createMediasWithStreams(IndexSet{stream}));
  movie_.seek(0);
  movie_.flushOperation();
  if (rate_ != 1) tempo_ = AudioTempo::make(rate_, kRate, kChannels);
  if (rate_ != 1 && !tempo_)
    throw Failure::settings(fmt::format("cannot play at {} times the speed", rate_));
  begin_ = feed_.skipSilence();
  reached_ = begin_;
  if (hasHidden && begin_ < kRounding) hidden_ = hiddenSound(part.input.path, stream, interrupt);
  begin_ -= static_cast<int64_t>(hidden_.size()) / kChannels;
  begin_ = std::llround(static_cast<double>(begin_) / rate_);
}

int32_t PartSound::readAtOwnRate(float* data, int32_t frames) {
  const size_t left = hidden_.size() - hiddenRead_;
  if (left == 0 && !movie_.hasAudio()) return 0;  // without a decoder
  if (left == 0) {
    const int32_t got = feed_.read(data, frames);
    reached_ += got;
    return got;
  }
  const size_t count = std::min(left, static_cast<size_t>(frames) * kChannels);
  std::copy_n(hidden_.begin() + static_cast<std::ptrdiff_t>(hiddenRead_), count, data);
  hiddenRead_ += count;
  return static_cast<int32_t>(count / kChannels);
}

int32_t PartSound::read(float* data, int32_t frames) {
  if (!tempo_) return readAtOwnRate(data, frames);
  int32_t got = 0;
  while ((got = tempo_->read(data, frames)) == 0 && !isDrained_) {
    const int32_t more = readAtOwnRate(data, frames);
    tempo_->write(data, more);
    isDrained_ = more == 0;
  }
  return got;
}

InputEnd PartSound::inputEnd() const {
  InputEnd end = faultsOf(movie_);
  end.reached = reached_ * 1000000 / kRate;
  return end;
}

}  // namespace kestrel
