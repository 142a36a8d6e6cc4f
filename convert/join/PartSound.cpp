#include "convert/join/PartSound.h"

#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include <kestrel/convert/Failure.h>
#include "convert/probe/Input.h"

namespace kestrel {

PartSound::PartSound(const JoinPart& part, uint32_t stream, const LMFFAudioFormat& format,
                     bool hasHidden)
    : rate_(part.input.rate),
      format_(format),
      channels_(lm_get_channel_layout_nb_channels(format.channel_layout)) {
  movie_.setExportMovie(true);
  const Interrupt interrupt = part.source->interrupt();
  movie_.openMedias(openInput(part.input, interrupt)->createMediasWithStreams(IndexSet{stream}));
  for (const auto& media : movie_.audios()) {
    media->audioStream()->resample()->setOutFormat(format);
    media->seek(0);
    sound_.emplace(media, media->audioStream());
  }
  if (rate_ != 1) tempo_ = AudioTempo::make(rate_, format.sample_rate, channels_);
  if (rate_ != 1 && !tempo_)
    throw Failure::settings(fmt::format("cannot play at {} times the speed", rate_), "rate");
  begin_ = sound_ ? sound_->skipSilence() : 0;
  reached_ = begin_;
  // Sound that begins less than 10 ms after the part begins with it.
  if (hasHidden && begin_ < format.sample_rate / 100)
    hidden_ = hiddenSound(part.input, stream, format, interrupt);
  begin_ -= static_cast<int64_t>(hidden_.size()) / channels_;
  begin_ = std::llround(static_cast<double>(begin_) / rate_);
}

int32_t PartSound::readAtOwnRate(double* data, int32_t frames) {
  const size_t left = hidden_.size() - hiddenRead_;
  if (left == 0 && !sound_) return 0;
  if (left == 0) {
    const int32_t got = sound_->read(data, frames);
    reached_ += got;
    return got;
  }
  const size_t count = std::min(left, static_cast<size_t>(frames) * static_cast<size_t>(channels_));
  std::copy_n(hidden_.begin() + static_cast<std::ptrdiff_t>(hiddenRead_), count, data);
  hiddenRead_ += count;
  return static_cast<int32_t>(count) / channels_;
}

int32_t PartSound::read(double* data, int32_t frames) {
  if (!tempo_) return readAtOwnRate(data, frames);
  std::vector<float> block(static_cast<size_t>(frames) * static_cast<size_t>(channels_));
  int32_t got = 0;
  while ((got = tempo_->read(block.data(), frames)) == 0 && !isDrained_) {
    const int32_t more = readAtOwnRate(data, frames);
    std::transform(data, data + std::ptrdiff_t{more} * channels_, block.begin(),
                   [](double sample) { return static_cast<float>(sample); });
    tempo_->write(block.data(), more);
    isDrained_ = more == 0;
  }
  std::copy_n(block.begin(), std::ptrdiff_t{got} * channels_, data);
  return got;
}

InputEnd PartSound::inputEnd() const {
  InputEnd end = faultsOf(movie_);
  end.reached = reached_ * 1000000 / format_.sample_rate;
  return end;
}

}  // namespace kestrel
