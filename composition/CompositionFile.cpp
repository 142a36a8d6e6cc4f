#include "composition/CompositionFile.h"

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMovieComposition.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "support/Chapters.h"
#include "support/Containers.h"
#include "support/DictionaryEntries.h"
#include "support/FFmpegCompat.h"
#include "support/FFmpegError.h"
#include "support/LastingTags.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace kestrel {

namespace {

/// Sound that is missing for less than this (microseconds) does no harm where it isn't made up for.
constexpr int64_t kOrdinaryGap = 100000;

/// By how much rates of pictures differ that are meant to be the same.
constexpr double kSameRate = 0.001;

/// Units of a second; more of them would leave no room for hours.
constexpr int64_t kFinestMovieTime = 100000000;

}  // namespace

CompositionFile::CompositionFile(const std::string& path, std::function<bool()> interrupt) {
  muxer_.create("file:" + path, "", std::move(interrupt));
}

bool CompositionFile::refuse(std::string why, int code) {
  errors_.note(engineError(code, std::move(why)));
  return false;
}

void CompositionFile::setTags(const AVFormatContext& input) {
  std::vector<std::pair<std::string, std::string>> tags;
  const AVDictionaryEntry* entry = nullptr;
  while ((entry = av_dict_get(input.metadata, "", entry, AV_DICT_IGNORE_SUFFIX)))
    tags.emplace_back(entry->key, entry->value);
  if (muxer_.context()) addEntries(lastingTags(tags), &muxer_.context()->metadata);
}

void CompositionFile::addChapter(const AVChapter& input, int64_t start, int64_t end) {
  if (!takesLateChapters(*muxer_.context()->oformat)) return;
  if (AVChapter* chapter = kestrel::addChapter(*muxer_.context(), start, end))
    av_dict_copy(&chapter->metadata, input.metadata, 0);
}

int CompositionFile::addStream(const AVStream& input) {
  AVStream* stream = muxer_.addStream();
  if (!stream) return -1;
  if (input.codecpar->codec_type == AVMEDIA_TYPE_VIDEO && input.codecpar->width <= 0) {
    refuse("the video has no size", LMMovieComposition::kContainerRefuses);
    return -1;
  }
  stream->disposition = input.disposition;
  for (const char* tag : {"language", "title"})
    if (const auto* entry = av_dict_get(input.metadata, tag, nullptr, 0))
      av_dict_set(&stream->metadata, tag, entry->value, 0);
  const StreamCopier& copier =
      lanes_.try_emplace(stream->index, input, *stream, *muxer_.context()->oformat)
          .first->second.copier;
  errors_.note(copier.error());
  return copier.error() ? -1 : stream->index;
}

int CompositionFile::addSound(const JoinedSound::Track& track) {
  AVStream* stream = muxer_.addStream();
  if (!stream) return -1;
  const auto id = static_cast<AVCodecID>(track.format.audio_codec);
  const AVCodec* const codec = track.encoder.empty()
                                   ? avcodec_find_encoder(id)
                                   : avcodec_find_encoder_by_name(track.encoder.c_str());
  if (!codec || codec->id != id) {
    const std::string name = track.encoder.empty() ? avcodec_get_name(id) : track.encoder;
    refuse(fmt::format("no encoder for '{}'", name), LMMovieComposition::kDoesNotJoin);
    return -1;
  }
  const AVOutputFormat& container = *muxer_.context()->oformat;
  Sound& sound = sounds_.try_emplace(stream->index, *stream, codec, container).first->second;
  addEntries(track.tags, &stream->metadata);
  if (!sound.encoder.context()) return errors_.succeeded(AVERROR(ENOMEM)) ? 0 : -1;
  configureSound(track.format, track.bits, *sound.encoder.context());
  const Error error = sound.encoder.open(track.options);
  errors_.note(error);
  if (error) return -1;
  const AVCodecContext& encoder = *sound.encoder.context();
  sound.channels = encoder.ch_layout.nb_channels;
  sound.converter.convertFormat(
      {AV_SAMPLE_FMT_DBL, track.format.channel_layout, track.format.sample_rate},
      {encoder.sample_fmt, track.format.channel_layout, encoder.sample_rate});
  sound.feed = std::make_unique<SoundEncoder>(
      sound.encoder, errors_,
      [this, stream](const PacketPtr& packet) { muxer_.write(*packet, *stream); });
  return stream->index;
}

SoundQueue CompositionFile::queueOf(LMFFAudioResample& converter) {
  return {[&converter] { return converter.outputSamples(); },
          [&converter](AVFrame& frame) { converter.convertFrame(nullptr, &frame); }};
}

bool CompositionFile::writeSound(const JoinedSound::Samples& samples, int stream) {
  Sound& sound = sounds_.at(stream);
  const auto count = static_cast<int32_t>(samples.size() / static_cast<size_t>(sound.channels));
  if (count > 0) sound.converter.writeSample(samples.data(), count);
  sound.feed->encode(queueOf(sound.converter));
  return !errors_.get();
}

void CompositionFile::finishSound(int stream) {
  Sound& sound = sounds_.at(stream);
  sound.converter.flush();
  sound.feed->finish(queueOf(sound.converter));
  sound.encoder.finish();
  const auto write = [&](const PacketPtr& packet) {
    muxer_.write(*packet, *sound.encoder.stream());
  };
  while (sound.encoder.takeNext(errors_, write)) {
  }
}

bool CompositionFile::start() {
  if (!muxer_.context() || errors_.get()) return false;
  for (auto& [index, lane] : lanes_) lane.copier.settle();
  refineMovieTime();
  return muxer_.start({});
}

Error CompositionFile::error() const {
  Error error = errors_.get();
  if (muxer_.refusal() == Muxer::Refusal::kHeader)
    error.code = LMMovieComposition::kContainerRefuses;
  if (muxer_.refusal() == Muxer::Refusal::kPacket) error.code = LMMovieComposition::kDoesNotJoin;
  return error;
}

/// MPEG-4 files say where a track begins in the movie's own unit, usually a millisecond. Here it is
/// one that all streams' units are multiples of. Subtitles begin with the movie, with none.
void CompositionFile::refineMovieTime() {
  int64_t unit = 1000;
  for (const auto& [index, lane] : lanes_) {
    const AVStream& stream = *lane.copier.stream();
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE) continue;
    const int rate = stream.codecpar->sample_rate;
    unit = std::lcm(unit, int64_t{rate > 0 ? rate : std::max(stream.time_base.den, 1)});
    if (unit > kFinestMovieTime) return;
  }
  av_opt_set_int(muxer_.context(), "movie_timescale", unit, AV_OPT_SEARCH_CHILDREN);
}

void CompositionFile::describeSeveral() {
  for (auto& [index, lane] : lanes_) lane.copier.describeSeveral();
}

/// A container without times has no place for pictures of two rates.
bool CompositionFile::beginInput(const AVStream& input, int stream) {
  const AVRational own = this->stream(stream).avg_frame_rate;
  const AVRational other = input.avg_frame_rate;
  const bool areKnown = own.num > 0 && own.den > 0 && other.num > 0 && other.den > 0;
  if (storesOnlyOrder() && areKnown && std::abs(av_q2d(own) / av_q2d(other) - 1) > kSameRate)
    return refuse(fmt::format("the {} format has one rate of pictures, not {:.3f} and {:.3f}",
                              muxer_.context()->oformat->name, av_q2d(own), av_q2d(other)),
                  LMMovieComposition::kDoesNotJoin);
  lanes_.at(stream).copier.beginInput(input);
  return true;
}

int64_t CompositionFile::picturesEncodedToHide() const {
  int64_t count = 0;
  for (const auto& [index, lane] : lanes_) count += lane.copier.encoded();
  return count;
}

int64_t CompositionFile::refusedPackets() const {
  int64_t count = 0;
  for (const auto& [index, lane] : lanes_) count += lane.copier.refused();
  return count;
}

bool CompositionFile::storesOnlyOrder() const {
  return kestrel::storesOnlyOrder(*muxer_.context()->oformat);
}

/// Whether sound is played where it lies in the file.
bool CompositionFile::placesByOrder() const {
  return storesOnlyOrder() || placesSoundByOrder(*muxer_.context()->oformat);
}

/// Whether a packet lies where a container without times has it: behind the one before, the first
/// at the beginning. Gaps between pictures are filled by the container itself.
bool CompositionFile::staysInTime(const AVPacket& packet, int stream) {
  const int64_t stamp = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
  if (!placesByOrder() || stamp == AV_NOPTS_VALUE) return true;
  Lane& lane = lanes_.at(stream);
  const bool isSound = this->stream(stream).codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
  const int64_t time = av_rescale_q(stamp, timeBase(stream), kMicroseconds);
  if (time - lane.end > kOrdinaryGap && (isSound || !lane.hasBegun))
    return refuse(fmt::format("the {} format has no place for the gap before {:.2f} s",
                              muxer_.context()->oformat->name, lm_ff_time_to_double(time)),
                  LMMovieComposition::kDoesNotJoin);
  lane.hasBegun = true;
  // Packets whose times lie too close are played one after the other all the same.
  lane.end =
      std::max(isSound ? lane.end : time, time) + packetDuration(packet, this->stream(stream));
  return true;
}

bool CompositionFile::write(AVPacket& packet, int stream) {
  if (!staysInTime(packet, stream)) return false;
  Lane& lane = lanes_.at(stream);
  PacketPtr taken = makePacket();
  if (!taken) return errors_.succeeded(AVERROR(ENOMEM));
  av_packet_move_ref(taken.get(), &packet);
  if (!errors_.succeeded(lane.copier.push(std::move(taken)))) return false;
  if (const Error& error = lane.copier.error())
    return refuse(error.message, LMMovieComposition::kDoesNotJoin);
  return writeReady(lane);
}

bool CompositionFile::writeReady(Lane& lane) {
  while (const PacketPtr packet = lane.copier.pop()) {
    muxer_.write(*packet, *lane.copier.stream());
    if (errors_.get()) return false;
  }
  return true;
}

void CompositionFile::finish() {
  for (auto& [index, lane] : lanes_) {
    errors_.succeeded(lane.copier.finish());
    errors_.note(lane.copier.error());
    writeReady(lane);
  }
  muxer_.complete();
  muxer_.close();
}

}  // namespace kestrel
