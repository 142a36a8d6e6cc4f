#include "convert/join/JoinSounds.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "convert/join/PartSound.h"
#include "convert/run/PlannedOutput.h"
#include "support/FFmpegOwners.h"
#include "support/encode/EncoderCompat.h"

namespace kestrel {

namespace {

/// The significant bits of a sample in a format, of which `bits` may be used.
int significantBits(AVSampleFormat format, int bits) {
  constexpr int kOfFloats = 24;
  constexpr int kOfDoubles = 53;
  const AVSampleFormat packed = av_get_packed_sample_fmt(format);
  if (packed == AV_SAMPLE_FMT_FLT) return std::min(bits, kOfFloats);
  return packed == AV_SAMPLE_FMT_DBL ? std::min(bits, kOfDoubles) : bits;
}

/// How many bits of a sample the codec of a track keeps.
int keptBits(AVCodecID codec) {
  constexpr int kUsual = 24;  // of lossless codecs' formats of 32 bits
  const int place = av_get_bits_per_sample(codec);
  if (place == 0) return codec == AV_CODEC_ID_WAVPACK ? 32 : kUsual;
  const AVCodec* const encoder = avcodec_find_encoder(codec);
  return encoder ? significantBits(firstSampleFormat(encoder), place) : place;
}

/// What of a track is lost, a line for people each.
std::vector<std::string> lossesOf(const AVStream& own, const JoinedSound::Track& track) {
  std::vector<std::string> losses;
  const int channels = lm_get_channel_layout_nb_channels(track.format.channel_layout);
  if (own.codecpar->ch_layout.nb_channels > channels)
    losses.push_back(
        fmt::format("{} channels become {}", own.codecpar->ch_layout.nb_channels, channels));
  const int bits = significantBits(static_cast<AVSampleFormat>(own.codecpar->format), track.bits);
  const int kept = keptBits(static_cast<AVCodecID>(track.format.audio_codec));
  if (bits > kept) losses.push_back(fmt::format("{} bits become {}", bits, kept));
  return losses;
}

}  // namespace

JoinSounds::JoinSounds(std::vector<JoinPart>& parts, const ConversionPlan& plan, Rational base,
                       bool followsPictures)
    : parts_(parts), base_(base), followsPictures_(followsPictures) {
  const auto planned = plan.kept(StreamInfo::Kind::kAudio);
  if (planned.empty()) return;
  const JoinPart& first = parts.front();
  for (const uint32_t stream : first.audios) {
    const auto own = std::ranges::find_if(
        planned, [stream](const PlannedStream* each) { return each->sources.front() == stream; });
    // What cannot be decoded is silent, but keeps its place among the tracks.
    const SoundEncoding& sound = own == planned.end() ? planned.front()->sound : (*own)->sound;
    Track track{plan.format, sound.encoder, sound.bits, sound.options,
                languageTag(first.info.streams[stream])};
    track.format.audio_codec = sound.codec;
    track.format.sample_rate = sound.sampleRate;
    track.format.channel_layout = sound.channelLayout;
    track.format.audio_bitrate = sound.bitrate;
    for (const std::string& lost : lossesOf(*first.outline->streams[stream], track))
      if (!std::ranges::count(changes_, lost)) changes_.push_back(lost);
    sounds_.emplace_back(
        LMFFAudioFormat{AV_SAMPLE_FMT_DBL, track.format.channel_layout, track.format.sample_rate});
    tracks_.push_back(std::move(track));
  }
}

int64_t JoinSounds::framesAt(int64_t time, const JoinSound& sound) const {
  return av_rescale_q(time, toAV(base_), {1, sound.format().sample_rate});
}

/// Tells the part that was begun last how far its sound was read.
void JoinSounds::settle() {
  for (const JoinSound& sound : sounds_) parts_[input_].end.add(sound.inputEnd());
}

void JoinSounds::endInput() {
  settle();
  for (JoinSound& sound : sounds_) sound.end();
}

void JoinSounds::beginInput(size_t input, int64_t begin, int64_t start, bool follows) {
  settle();
  input_ = input;
  JoinPart& part = parts_[input];
  for (size_t i = 0; i < sounds_.size(); ++i) {
    JoinSound& sound = sounds_[i];
    std::unique_ptr<PartSound> next;
    if (i < part.audios.size()) {
      next = std::make_unique<PartSound>(part, part.audios[i], sound.format(),
                                         follows && followsPictures_);
      part.read.insert(part.audios[i]);
    }
    const auto lead = std::llround(static_cast<double>(start) * sound.format().sample_rate / 1e6 /
                                   part.input.rate);
    const int64_t distance = next ? next->begin() - lead : 0;
    if (!follows)
      sound.begin(std::move(next), framesAt(begin, sound), distance);
    else if (followsPictures_)
      sound.meet(std::move(next), framesAt(begin, sound), distance);
    else
      sound.follow(std::move(next));
  }
}

bool JoinSounds::goesOn(int64_t time) {
  return std::ranges::any_of(sounds_, [time](JoinSound& sound) {
    const int64_t frames =
        std::max<int64_t>(av_rescale(time, sound.format().sample_rate, 1000000), 1);
    return sound.ahead(frames) >= frames;
  });
}

JoinedSound::Samples JoinSounds::read(size_t track, int64_t end) {
  return sounds_[track].take(framesAt(end, sounds_[track]));
}

JoinedSound::Samples JoinSounds::rest(size_t track, int64_t end) {
  JoinSound& sound = sounds_[track];
  parts_[input_].end.add(sound.inputEnd());
  return sound.rest(framesAt(end, sound));
}

}  // namespace kestrel
