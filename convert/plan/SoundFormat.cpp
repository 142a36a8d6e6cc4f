#include "convert/plan/SoundFormat.h"

#include <kestrel/LMFFFormat.h>
#include <kestrel/StreamFit.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <vector>

#include "platform/codec/Codec.h"
#include "platform/codec/MemoryOutput.h"
#include "support/FFmpegCompat.h"
#include "support/LibraryLog.h"
#include "support/encode/StreamEncoder.h"

namespace kestrel {

namespace {

constexpr int32_t kUsualRate = 44100;
constexpr int32_t kUsualBits = 16;
constexpr int32_t kBitsOfFloats = 24;       // that count
constexpr int32_t kBitsPerChannel = 96000;  // per second
constexpr int kMostChannels = 8;

constexpr uint64_t kSides = AV_CH_SIDE_LEFT | AV_CH_SIDE_RIGHT;
constexpr uint64_t kBacks = AV_CH_BACK_LEFT | AV_CH_BACK_RIGHT;

/// The same speakers but for one pair, told at the side or at the back; 0 where there is no such
/// pair, or both.
uint64_t withOtherPair(uint64_t speakers) {
  const bool hasSides = (speakers & kSides) == kSides;
  const bool hasBacks = (speakers & kBacks) == kBacks;
  return hasSides == hasBacks ? 0 : speakers ^ kSides ^ kBacks;
}

/// Layouts in which all speakers have their place, and others are silent, the smallest first.
std::vector<int64_t> layoutsAround(uint64_t speakers) {
  std::vector<int64_t> layouts;
  void* at = nullptr;
  while (const AVChannelLayout* known = av_channel_layout_standard(&at))
    if (const auto mask = static_cast<uint64_t>(layoutMask(*known));
        mask != speakers && (mask & speakers) == speakers)
      layouts.push_back(static_cast<int64_t>(mask));
  std::ranges::stable_sort(layouts, {}, lm_get_channel_layout_nb_channels);
  return layouts;
}

/// What a track's speakers may become, best first.
std::vector<int64_t> layoutsLike(int64_t own, AVCodecID codec) {
  std::vector<int64_t> layouts;
  // AAC has surround speakers at the back; what has them at the side would need a description of
  // its own, which few players read.
  if (codec == AV_CODEC_ID_AAC && own == AV_CH_LAYOUT_5POINT1)
    layouts.push_back(AV_CH_LAYOUT_5POINT1_BACK);
  if (codec == AV_CODEC_ID_AAC && own == AV_CH_LAYOUT_5POINT0)
    layouts.push_back(AV_CH_LAYOUT_5POINT0_BACK);
  layouts.push_back(own);
  if (const uint64_t other = withOtherPair(static_cast<uint64_t>(own)))
    layouts.push_back(static_cast<int64_t>(other));
  for (const int64_t wider : layoutsAround(static_cast<uint64_t>(own)))
    if (lm_get_channel_layout_nb_channels(wider) <= kMostChannels) layouts.push_back(wider);
  for (int channels = lm_get_channel_layout_nb_channels(own); channels > 0; --channels)
    layouts.push_back(lm_get_default_channel_layout(channels));
  return layouts;
}

}  // namespace

int SoundFormat::channels() const { return lm_get_channel_layout_nb_channels(layout); }

int32_t usualBitrate(const SoundFormat& format) {
  constexpr int32_t kStep = 8000;
  constexpr int32_t kSteps[] = {8,  16,  24,  32,  40,  48,  56,  64, 80,
                                96, 112, 128, 160, 192, 224, 256, 320};
  const int32_t full = kBitsPerChannel * format.channels();
  if (format.sampleRate >= kUsualRate) return full;
  const auto wanted = static_cast<int32_t>(int64_t{full} * format.sampleRate / kUsualRate);
  const auto distance = [wanted](int32_t step) { return std::abs(1000 * step - wanted); };
  if (wanted > 1000 * std::ranges::max(kSteps)) return (wanted + kStep / 2) / kStep * kStep;
  return 1000 * *std::ranges::min_element(kSteps, {}, distance);
}

bool isTaken(const SoundFormat& format, const AVCodec& encoder, const AVOutputFormat& container) {
  const MemoryOutputPtr context(avformat_alloc_context());
  AVStream* stream = context ? avformat_new_stream(context.get(), nullptr) : nullptr;
  if (!stream) return false;
  StreamEncoder opened(stream, &encoder, container);
  if (!opened.context()) return false;
  LMFFMovieFileOutputFormat asked;
  asked.sample_rate = format.sampleRate;
  asked.channel_layout = format.layout;
  asked.audio_bitrate = usualBitrate(format);
  configureSound(asked, format.bits, *opened.context());
  return !opened.open({}) && containerRefusal(*stream, container.name).empty();
}

bool isLossless(AVCodecID codec) {
  const AVCodecDescriptor* known = avcodec_descriptor_get(codec);
  return known && (known->props & AV_CODEC_PROP_LOSSLESS);
}

bool isFloatingPoint(const AVCodecParameters& sound) {
  const auto packed = av_get_packed_sample_fmt(static_cast<AVSampleFormat>(sound.format));
  return packed == AV_SAMPLE_FMT_FLT || packed == AV_SAMPLE_FMT_DBL;
}

int32_t soundBits(const AVCodecParameters& sound) {
  if (!isLossless(sound.codec_id)) return isFloatingPoint(sound) ? kBitsOfFloats : kUsualBits;
  for (const int bits : {sound.bits_per_raw_sample, av_get_bits_per_sample(sound.codec_id),
                         sound.bits_per_coded_sample})
    if (bits > 0) return bits;
  return kUsualBits;
}

int64_t layoutOf(const AVCodecParameters& sound) {
  const int64_t mask = layoutMask(sound.ch_layout);
  return mask != 0 ? mask : lm_get_default_channel_layout(sound.ch_layout.nb_channels);
}

int32_t carriedSamples(const AVCodecParameters& own, const PlannedStream& planned) {
  const SoundEncoding& sound = planned.sound;
  const auto packed = av_get_packed_sample_fmt(static_cast<AVSampleFormat>(own.format));
  const bool isDeep = packed == AV_SAMPLE_FMT_DBL ||
                      (packed == AV_SAMPLE_FMT_S32 && soundBits(own) > kBitsOfFloats);
  const bool stays = planned.sources.size() == 1 && sound.bits > 0 && sound.volume == 1 &&
                     !sound.loudness && sound.sampleRate == own.sample_rate &&
                     sound.channelLayout == layoutOf(own);
  return isDeep && stays ? packed : lm_get_default_sample_fmt();
}

int32_t deepestOf(const AVCodec& encoder) {
  if (encoder.id == AV_CODEC_ID_WAVPACK) return 32;
  if (encoder.id == AV_CODEC_ID_FLAC || encoder.id == AV_CODEC_ID_ALAC ||
      encoder.id == AV_CODEC_ID_TTA)
    return 24;
  return av_get_exact_bits_per_sample(encoder.id);
}

std::vector<int32_t> ratesLike(int32_t own, const AVCodec& encoder) {
  std::vector<int32_t> rates;
  for (const int* known = encoder.supported_samplerates; known && *known; ++known)
    rates.push_back(*known);
  if (rates.empty()) rates = {own, kUsualRate, 48000};
  std::ranges::stable_sort(rates, {}, [own](int32_t rate) { return std::abs(rate - own); });
  return rates;
}

SoundFormat soundFormatLike(const AVStream& sound, const AVCodec& encoder,
                            const AVOutputFormat& container) {
  const AVCodecParameters& own = *sound.codecpar;
  const AVCodecID codec = encoder.id;
  const SoundFormat usual{kUsualRate, lm_get_default_channel_layout(2),
                          isLossless(codec) ? soundBits(own) : 0};
  // Nothing is known of a track whose first packets lie behind what opening reads.
  const int64_t ownLayout = layoutOf(own) > 0 ? layoutOf(own) : usual.layout;
  const int32_t ownRate = own.sample_rate > 0 ? own.sample_rate : usual.sampleRate;
  for (const int64_t layout : layoutsLike(ownLayout, codec))
    for (const int32_t rate : ratesLike(ownRate, encoder))
      if (const SoundFormat like{rate, layout, usual.bits}; isTaken(like, encoder, container))
        return like;
  return usual;
}

}  // namespace kestrel
