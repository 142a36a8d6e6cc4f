#include "convert/feed/LoudnessMeter.h"

#include <kestrel/LMFFFormat.h>

#include <cmath>
#include <new>

extern "C" {
#include <ebur128.h>
#include <libavutil/channel_layout.h>
}

namespace kestrel {

namespace {

/// Where the speaker of a channel stands, which is what its weight goes by. Two channels at the
/// back are the surround channels, unless others stand beside the listener.
int placeOf(uint64_t channel, uint64_t layout) {
  const bool hasSides = (layout & (AV_CH_SIDE_LEFT | AV_CH_SIDE_RIGHT)) != 0;
  switch (channel) {
    case AV_CH_FRONT_LEFT:
    case AV_CH_STEREO_LEFT:
      return EBUR128_LEFT;
    case AV_CH_FRONT_RIGHT:
    case AV_CH_STEREO_RIGHT:
      return EBUR128_RIGHT;
    case AV_CH_LOW_FREQUENCY:
    case AV_CH_LOW_FREQUENCY_2:
      return EBUR128_UNUSED;
    case AV_CH_SIDE_LEFT:
      return EBUR128_LEFT_SURROUND;
    case AV_CH_SIDE_RIGHT:
      return EBUR128_RIGHT_SURROUND;
    case AV_CH_BACK_LEFT:
      return hasSides ? EBUR128_Mp135 : EBUR128_LEFT_SURROUND;
    case AV_CH_BACK_RIGHT:
      return hasSides ? EBUR128_Mm135 : EBUR128_RIGHT_SURROUND;
    default:
      return EBUR128_CENTER;  // counts as it is
  }
}

}  // namespace

struct LoudnessMeter::State {
  ebur128_state* meter = nullptr;
  size_t channels = 0;

  ~State() { ebur128_destroy(&meter); }
};

LoudnessMeter::LoudnessMeter(int32_t sampleRate, int64_t channelLayout)
    : state_(std::make_unique<State>()) {
  const auto layout = static_cast<uint64_t>(channelLayout);
  state_->channels = static_cast<size_t>(lm_get_channel_layout_nb_channels(channelLayout));
  state_->meter = ebur128_init(static_cast<unsigned>(state_->channels),
                               static_cast<unsigned long>(sampleRate), EBUR128_MODE_I);
  if (!state_->meter) throw std::bad_alloc();
  unsigned number = 0;
  for (unsigned bit = 0; bit < 64; ++bit)
    if (const uint64_t channel = uint64_t{1} << bit; layout & channel)
      ebur128_set_channel(state_->meter, number++, placeOf(channel, layout));
}

LoudnessMeter::~LoudnessMeter() = default;

void LoudnessMeter::take(std::span<const float> samples) {
  ebur128_add_frames_float(state_->meter, samples.data(), samples.size() / state_->channels);
}

std::optional<double> LoudnessMeter::loudness() const {
  double measured = 0;
  const bool isMeasured = ebur128_loudness_global(state_->meter, &measured) == EBUR128_SUCCESS;
  return isMeasured && std::isfinite(measured) ? std::optional(measured) : std::nullopt;
}

}  // namespace kestrel
