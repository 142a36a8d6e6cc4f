#include "convert/plan/SoundPlanner.h"

#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>

#include <kestrel/convert/Failure.h>
#include "convert/plan/EncoderOptions.h"
#include "convert/plan/PlannedStreams.h"
#include "convert/plan/SoundFormat.h"
#include "convert/probe/Codecs.h"
#include "convert/probe/Streams.h"
#include "convert/settings/Require.h"
#include "support/Containers.h"
#include "support/EverydaySound.h"
#include "support/encode/EncoderCompat.h"
#include "support/encode/StreamEncoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

using Kind = StreamInfo::Kind;

constexpr int32_t kEveryPlayersRate = 48000;
constexpr int kEveryPlayersChannels = 2;
constexpr int32_t kEveryPlayersBits = 16;
constexpr int kMostChannels = 8;  // that have usual places

/// "5.1"
std::string layoutName(int64_t layout) {
  AVChannelLayout channels{};
  if (av_channel_layout_from_mask(&channels, static_cast<uint64_t>(layout)) < 0)
    return "such sound";
  char name[64]{};
  av_channel_layout_describe(&channels, name, sizeof(name));
  return name;
}

/// Those that an encoder knows, or where it knows any, those that people use; rising.
std::vector<int32_t> ratesOf(const AVCodec& encoder) {
  std::vector<int32_t> rates;
  for (const int* known = encoder.supported_samplerates; known && *known; ++known)
    rates.push_back(*known);
  if (rates.empty())
    rates = {8000, 11025, 16000, 22050, 24000, 32000, 44100, 48000, 88200, 96000, 192000};
  std::ranges::sort(rates);
  return rates;
}

class SoundPlanner {
 public:
  SoundPlanner(const ConversionSettings& settings, const LMMediaSource& source,
               const MediaInfo& info, const AVOutputFormat& container, bool hasPictures)
      : settings_(settings),
        source_(source),
        info_(info),
        container_(container),
        hasPictures_(hasPictures) {}

  std::vector<PlannedStream> plan() {
    const std::vector<uint32_t> wanted = wantedSounds();
    switch (action()) {
      case StreamAction::kNone:
        for (const uint32_t index : wanted)
          leaveOut(
              info_.streams[index],
              settings_.audio ? "" : fmt::format("{} has no place for sound", container_.name));
        break;
      case StreamAction::kCopy:
        for (const uint32_t index : wanted) copySound(info_.streams[index], wanted.size() == 1);
        break;
      default:
        takeSounds(wanted);
    }
    return std::move(streams_);
  }

 private:
  StreamAction action() const {
    if (settings_.audio) return *settings_.audio;
    const bool hasPlace =
        !settings_.audioCodec.empty() || defaultAudioCodec(container_) != AV_CODEC_ID_NONE;
    return hasPlace ? StreamAction::kEncode : StreamAction::kNone;
  }

  bool isAutomatic() const { return !settings_.audio && settings_.audioCodec.empty(); }

  PlannedStream planned(const StreamInfo& stream, StreamAction action,
                        std::string reason = {}) const {
    return plannedStream(stream, action, settings_.keepsMetadata, std::move(reason));
  }

  void leaveOut(const StreamInfo& stream, std::string reason) {
    streams_.push_back(planned(stream, StreamAction::kNone, std::move(reason)));
  }

  const AVStream& streamAt(uint32_t index) const {
    return *source_.formatContext()->streams[index];
  }

  /// The sound tracks that are wanted, as users count them, and the others' reason.
  std::vector<uint32_t> wantedSounds() {
    const IndexSet chosen = chosenAudios(settings_.audioTracks, source_,
                                         settings_.mixesAudio ? "mixesAudio" : "audioTracks");
    const bool takesOne = holdsOneSound(container_) && !settings_.mixesAudio;
    const bool isChoice = settings_.audioTracks != TrackChoice::all();
    if (takesOne && chosen.size() > 1 && isChoice)
      throw Failure::settings(fmt::format("{} holds one sound track, and {} are chosen",
                                          container_.name, chosen.size()),
                              "audioTracks");
    const IndexSet kept = takesOne && chosen.size() > 1 ? chosenAudios({}, source_) : chosen;
    std::vector<uint32_t> wanted;
    for (const auto index : info_.audioTracks)
      if (index && kept.contains(*index)) wanted.push_back(*index);
    for (const StreamInfo& stream : info_.streams) {
      if (stream.kind != Kind::kAudio || kept.contains(stream.index)) continue;
      const bool isKnown = std::ranges::count(info_.audioTracks, std::optional(stream.index)) > 0;
      leaveOut(stream, settings_.audio == StreamAction::kNone || isChoice ? ""
                       : isKnown ? fmt::format("{} holds one sound track", container_.name)
                                 : "it cannot be decoded");
    }
    return wanted;
  }

  /// `isOnly`: without it there would be no sound, and nobody would know why.
  void copySound(const StreamInfo& stream, bool isOnly) {
    const AVStream& own = streamAt(stream.index);
    const bool isFound = own.codecpar->sample_rate > 0;
    const std::string refusal = !isFound ? "none of it was found"
                                : isOnly ? ""
                                         : refusalOf(container_, own);
    if (refusal.empty())
      streams_.push_back(planned(stream, StreamAction::kCopy));
    else
      leaveOut(stream, refusal);
  }

  void takeSounds(const std::vector<uint32_t>& wanted) {
    const bool mixes = settings_.mixesAudio && wanted.size() > 1;
    for (const uint32_t index : wanted) {
      if (mixes && index != wanted.front()) {
        streams_.back().sources.push_back(index);
        continue;
      }
      PlannedStream stream = mixes ? planned(info_.streams[index], StreamAction::kEncode)
                                   : copyOrNot(info_.streams[index]);
      if (stream.action == StreamAction::kEncode || canEncode(index)) encode(stream, mixes);
      streams_.push_back(std::move(stream));
    }
  }

  /// A track that is copied where it is to be or may be, with the reason.
  PlannedStream copyOrNot(const StreamInfo& stream) const {
    const AVStream& own = streamAt(stream.index);
    const AVCodecID codec = own.codecpar->codec_id;
    const bool isNamed = std::ranges::any_of(
        settings_.audioCopy, [&](const auto& name) { return namesSound(name, codec); });
    const bool mayStay = isAutomatic() && isEveryday(own) && !isChanged(own);
    if ((!isNamed && !mayStay) || !refusalOf(container_, own).empty())
      return planned(stream, StreamAction::kEncode);
    PlannedStream copied = planned(stream, StreamAction::kCopy);
    copied.reason = isNamed ? fmt::format("{} is to be copied", stream.codec)
                            : fmt::format("{} is usual in {}: {}", stream.codec, container_.name,
                                          everydaySound(container_, codec));
    copied.isChecked = !isNamed;
    return copied;
  }

  bool isEveryday(const AVStream& own) const {
    const AVCodecParameters& sound = *own.codecpar;
    if (everydaySound(container_, sound.codec_id).empty()) return false;
    if (sound.sample_rate <= 0 || sound.ch_layout.nb_channels <= 0) return false;
    if (settings_.isCompatible && !playsEverywhere(sound)) return false;
    // Beside pictures, players wait for sound that begins late; sound alone begins with silence.
    const AVFormatContext& input = *source_.formatContext();
    return (timesSound(container_) && (hasPictures_ || beginsWithInput(own, input))) ||
           isKnownToBeWhole(own, input);
  }

  bool playsEverywhere(const AVCodecParameters& sound) const {
    const bool isPlain = sound.codec_id != AV_CODEC_ID_AAC || sound.profile == FF_PROFILE_AAC_LOW;
    return isPlain && sound.codec_id == defaultAudioCodec(container_) &&
           sound.ch_layout.nb_channels <= kEveryPlayersChannels &&
           sound.sample_rate <= kEveryPlayersRate;
  }

  /// Whether settings ask for what packets that are copied would not have. A span does: without the
  /// packets before them the first ones of most codecs sound wrong, and none ends in the middle.
  bool isChanged(const AVStream& own) const {
    const bool isCut =
        settings_.start != 0 || settings_.end || settings_.duration || settings_.chapters;
    return isCut || settings_.volume != 1 || settings_.loudness || settings_.audioBitrate ||
           !settings_.audioOptions.empty() ||
           settings_.sampleRate.value_or(own.codecpar->sample_rate) != own.codecpar->sample_rate ||
           settings_.channelLayout.value_or(layoutOf(*own.codecpar)) != layoutOf(*own.codecpar);
  }

  /// A track keeps its rate, channels and depth, as far as the encoder and the container take them.
  void encode(PlannedStream& stream, bool isMix) const {
    const AVStream& own = streamAt(stream.sources.front());
    const CodecChoice choice = codecFor(own, isMix);
    requireEncodable(container_, choice.codec, settings_.output);
    const AVCodec* const encoder = avcodec_find_encoder_by_name(choice.encoder.c_str());
    const SoundFormat like = soundFormatLike(own, *encoder, container_);
    const SoundFormat wanted = formatFor(like);
    if (stream.action == StreamAction::kEncode) {
      requireTaken(wanted, like, *encoder);
      requireEncoderOptions("audioOptions", *encoder, settings_.audioOptions);
    }
    stream.sound = {.codec = choice.codec, .encoder = choice.encoder, .bits = wanted.bits};
    const AVSampleFormat floats = floatFormatOf(encoder);
    stream.sound.isFloat = isLossless(encoder->id) && isFloatingPoint(*own.codecpar) &&
                           floats != AV_SAMPLE_FMT_NONE && !settings_.isCompatible;
    if (stream.sound.isFloat) stream.sound.bits = 8 * av_get_bytes_per_sample(floats);
    stream.sound.sampleRate = wanted.sampleRate;
    stream.sound.channelLayout = wanted.layout;
    stream.sound.bitrate = settings_.audioBitrate.value_or(usualBitrate(wanted));
    stream.sound.volume = settings_.volume;
    stream.sound.loudness = settings_.loudness;
    stream.sound.options = settings_.audioOptions;
    if (stream.action == StreamAction::kEncode) noteLosses(stream, own, like, *encoder);
  }

  /// A rate or channels that are asked for are taken as they are or refused.
  void requireTaken(const SoundFormat& wanted, const SoundFormat& like,
                    const AVCodec& encoder) const {
    const bool isLike = wanted.layout == like.layout && wanted.sampleRate == like.sampleRate;
    if (isLike || isTaken(wanted, encoder, container_)) return;
    const auto takes = [&](int32_t rate, int64_t layout) {
      return isTaken({rate, layout, wanted.bits}, encoder, container_);
    };
    if (settings_.sampleRate && !takes(wanted.sampleRate, like.layout)) {
      std::vector<int32_t> rates = ratesOf(encoder);
      std::erase_if(rates, [&](int32_t rate) { return !takes(rate, like.layout); });
      if (!rates.empty())
        refuse("sampleRate",
               fmt::format("{} has no {} Hz in {}, but {}", encoder.name, wanted.sampleRate,
                           container_.name, fmt::join(rates, ", ")));
    }
    if (!settings_.channelLayout || takes(like.sampleRate, wanted.layout)) return;
    std::vector<std::string> layouts;
    for (int channels = 1; channels <= kMostChannels; ++channels)
      if (const int64_t layout = lm_get_default_channel_layout(channels);
          takes(like.sampleRate, layout))
        layouts.push_back(layoutName(layout));
    if (!layouts.empty())
      refuse("channelLayout",
             fmt::format("{} has no {} in {}, but {}", encoder.name, layoutName(wanted.layout),
                         container_.name, fmt::join(layouts, ", ")));
  }

  /// Whether a track that is copied might be encoded as well.
  bool canEncode(uint32_t index) const {
    const CodecChoice choice = codecFor(streamAt(index), false);
    return !choice.encoder.empty() && isKnownToHold(container_, choice.codec);
  }

  SoundFormat formatFor(const SoundFormat& like) const {
    SoundFormat wanted = like;
    if (settings_.isCompatible) {
      wanted.sampleRate = std::min(wanted.sampleRate, kEveryPlayersRate);
      if (wanted.channels() > kEveryPlayersChannels)
        wanted.layout = lm_get_default_channel_layout(kEveryPlayersChannels);
      wanted.bits = std::min(wanted.bits, kEveryPlayersBits);
    }
    if (const int only = onlySampleRate(container_)) wanted.sampleRate = only;
    wanted.sampleRate = settings_.sampleRate.value_or(wanted.sampleRate);
    wanted.layout = settings_.channelLayout.value_or(wanted.layout);
    return wanted;
  }

  /// What loses nothing stays without loss where the container usually holds its codec, unless
  /// there is talk of bits; other sound gets the container's default.
  CodecChoice codecFor(const AVStream& own, bool isMix) const {
    if (!settings_.audioCodec.empty()) return codecByName(settings_.audioCodec, AVMEDIA_TYPE_AUDIO);
    const AVCodecID usual = defaultAudioCodec(container_);
    const AVCodecID codec = own.codecpar->codec_id;
    const AVCodec* const encoder = avcodec_find_encoder(codec);
    const bool isReady = encoder && !(encoder->capabilities & AV_CODEC_CAP_EXPERIMENTAL);
    const bool stays = isAutomatic() && !isMix && isReady && isLossless(codec) &&
                       !settings_.audioBitrate && settings_.audioOptions.empty() &&
                       !settings_.isCompatible && !everydaySound(container_, codec).empty();
    return choiceOf(stays ? codec : settings_.isCompatible ? usual : deepEnough(usual, own));
  }

  /// Samples without a codec come in several depths: the one that keeps all of the track's.
  AVCodecID deepEnough(AVCodecID usual, const AVStream& own) const {
    const bool isBig = usual == AV_CODEC_ID_PCM_S16BE;
    if ((!isBig && usual != AV_CODEC_ID_PCM_S16LE) || !isLossless(own.codecpar->codec_id))
      return usual;
    const auto packed = av_get_packed_sample_fmt(static_cast<AVSampleFormat>(own.codecpar->format));
    const int bits = soundBits(*own.codecpar);
    AVCodecID deeper = usual;
    if (packed == AV_SAMPLE_FMT_DBL)
      deeper = isBig ? AV_CODEC_ID_PCM_F64BE : AV_CODEC_ID_PCM_F64LE;
    else if (packed == AV_SAMPLE_FMT_FLT)
      deeper = isBig ? AV_CODEC_ID_PCM_F32BE : AV_CODEC_ID_PCM_F32LE;
    else if (bits > 24)
      deeper = isBig ? AV_CODEC_ID_PCM_S32BE : AV_CODEC_ID_PCM_S32LE;
    else if (bits > 16)
      deeper = isBig ? AV_CODEC_ID_PCM_S24BE : AV_CODEC_ID_PCM_S24LE;
    return isKnownToHold(container_, deeper) ? deeper : usual;
  }

  /// What nobody asked to lose.
  void noteLosses(PlannedStream& stream, const AVStream& own, const SoundFormat& like,
                  const AVCodec& encoder) const {
    std::vector<std::string>& losses = stream.losses;
    const char* const codec = avcodec_get_name(encoder.id);
    const int channels = own.codecpar->ch_layout.nb_channels;
    if (!settings_.channelLayout && like.channels() < channels)
      losses.push_back(
          fmt::format("{} channels become {}: {} has no more", channels, like.channels(), codec));
    const bool isSlower = like.sampleRate < own.codecpar->sample_rate;
    if (!settings_.sampleRate && isSlower && onlySampleRate(container_) == 0)
      losses.push_back(fmt::format("{} Hz become {}: {} has no more", own.codecpar->sample_rate,
                                   like.sampleRate, codec));
    if (!isLossless(own.codecpar->codec_id) || !isLossless(encoder.id)) return;
    const int depth = soundBits(*own.codecpar);
    const int most = deepestOf(encoder);
    if (isFloatingPoint(*own.codecpar) && !stream.sound.isFloat)
      losses.push_back(fmt::format("floating point becomes {} bits: {} has none",
                                   most > 0 ? std::min(depth, most) : depth, codec));
    else if (most > 0 && depth > most)
      losses.push_back(fmt::format("{} bits become {}: {} has no more", depth, most, codec));
  }

  const ConversionSettings& settings_;
  const LMMediaSource& source_;
  const MediaInfo& info_;
  const AVOutputFormat& container_;
  const bool hasPictures_;
  std::vector<PlannedStream> streams_;
};

}  // namespace

std::vector<PlannedStream> planSounds(const ConversionSettings& settings,
                                      const LMMediaSource& source, const MediaInfo& info,
                                      const AVOutputFormat& container, bool hasPictures) {
  return SoundPlanner(settings, source, info, container, hasPictures).plan();
}

bool mayEncodeSound(const ConversionSettings& settings) {
  return settings.audio.value_or(StreamAction::kEncode) == StreamAction::kEncode;
}

}  // namespace kestrel
