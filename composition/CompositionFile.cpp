#include "composition/CompositionFile.h"

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMovieComposition.h>

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <string_view>
#include <utility>

#include "composition/CodecData.h"
#include "support/Chapters.h"
#include "support/FFmpegCompat.h"
#include "support/FFmpegError.h"
#include "support/LibraryLog.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace kestrel {

namespace {

constexpr int kMaximumMuxingDelay = 700000;         // microseconds
constexpr int64_t kLongestInterleaving = 10000000;  // microseconds

/// Sound that is missing for less than this (microseconds) does no harm where it isn't made up for.
constexpr int64_t kOrdinaryGap = 100000;

/// Units of a second; more of them would leave no room for hours.
constexpr int64_t kFinestMovieTime = 100000000;

/// Packets that wait for a decoding time; codecs reorder no more.
constexpr size_t kMostWaiting = 32;

/// The tag of HEVC whose parameter sets lie in the container alone: many players of MPEG-4 files
/// take no other.
constexpr uint32_t kHevcTag = MKTAG('h', 'v', 'c', '1');

int askInterrupt(void* interrupt) {
  const auto& function = *static_cast<const std::function<bool()>*>(interrupt);
  return function && function() ? 1 : 0;
}

bool isAvi(const AVOutputFormat& format) { return std::string_view(format.name) == "avi"; }

/// The filter that makes packets what AVI wants; null where there is nothing to do. Other
/// containers look after that themselves.
const char* filterFor(const AVCodecParameters& parameters, const AVOutputFormat& format) {
  const bool hasLengths = parameters.extradata_size > 0 && parameters.extradata[0] == 1;
  if (!isAvi(format) || !hasLengths) return nullptr;
  if (parameters.codec_id == AV_CODEC_ID_H264) return "h264_mp4toannexb";
  return parameters.codec_id == AV_CODEC_ID_HEVC ? "hevc_mp4toannexb" : nullptr;
}

std::string lowercaseExtension(const std::string& path) {
  const size_t dot = path.find_last_of("./");
  std::string extension = dot == std::string::npos || path[dot] == '/' ? "" : path.substr(dot + 1);
  std::ranges::transform(extension, extension.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return extension;
}

}  // namespace

CompositionFile::CompositionFile(const std::string& path, std::function<bool()> interrupt)
    : interrupt_(std::move(interrupt)) {
  AVFormatContext* context = nullptr;
  const int result =
      avformat_alloc_output_context2(&context, nullptr, nullptr, ("file:" + path).c_str());
  if (result < 0) {
    error_ = engineError(
        result, "no container format is known by the extension '" + lowercaseExtension(path) + "'");
    return;
  }
  context_.reset(context);
  context->max_delay = kMaximumMuxingDelay;
  context->interrupt_callback = {&askInterrupt, &interrupt_};
}

bool CompositionFile::succeeded(int result) {
  if (result < 0 && !error_) error_ = libraryError(result);
  return result >= 0;
}

bool CompositionFile::refuse(std::string why, int code) {
  if (!error_) error_ = engineError(code, std::move(why));
  return false;
}

void CompositionFile::setTags(const AVFormatContext& input) {
  // What the old container says of itself is not true of the new one.
  static constexpr std::string_view kOfContainer[] = {"major_brand", "minor_version",
                                                      "compatible_brands", "encoder"};
  const AVDictionaryEntry* entry = nullptr;
  while (context_ && (entry = av_dict_get(input.metadata, "", entry, AV_DICT_IGNORE_SUFFIX)))
    if (!std::ranges::count(kOfContainer, entry->key))
      av_dict_set(&context_->metadata, entry->key, entry->value, 0);
}

void CompositionFile::addChapter(const AVChapter& input, int64_t start, int64_t end) {
  if (!takesLateChapters(*context_->oformat)) return;
  if (AVChapter* chapter = kestrel::addChapter(*context_, start, end))
    av_dict_copy(&chapter->metadata, input.metadata, 0);
}

int CompositionFile::addStream(const AVStream& input) {
  AVStream* stream = context_ ? avformat_new_stream(context_.get(), nullptr) : nullptr;
  if (!stream || !succeeded(avcodec_parameters_copy(stream->codecpar, input.codecpar))) return -1;
  if (input.codecpar->codec_type == AVMEDIA_TYPE_VIDEO && input.codecpar->width <= 0) {
    refuse("the video has no size", LMMovieComposition::kContainerRefuses);
    return -1;
  }
  stream->codecpar->extradata_size = static_cast<int>(codecDataOf(*stream->codecpar).size());
  copyStreamSideData(input, *stream);
  const bool wantsHevcTag =
      av_codec_get_id(context_->oformat->codec_tag, kHevcTag) == AV_CODEC_ID_HEVC;
  stream->codecpar->codec_tag =
      input.codecpar->codec_id == AV_CODEC_ID_HEVC && wantsHevcTag ? kHevcTag : 0;
  stream->time_base = input.time_base;
  stream->avg_frame_rate = input.avg_frame_rate;
  stream->r_frame_rate = input.r_frame_rate;
  stream->sample_aspect_ratio = input.sample_aspect_ratio;
  stream->disposition = input.disposition;
  for (const char* tag : {"language", "title"})
    if (const auto* entry = av_dict_get(input.metadata, tag, nullptr, 0))
      av_dict_set(&stream->metadata, tag, entry->value, 0);
  lanes_.emplace_back();
  lanes_.back().isSparse = input.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE;
  if (const char* name = filterFor(*stream->codecpar, *context_->oformat))
    openFilter(name, *stream, lanes_.back());
  return stream->index;
}

bool CompositionFile::openFilter(const char* name, AVStream& stream, Lane& lane) {
  const AVBitStreamFilter* filter = av_bsf_get_by_name(name);
  AVBSFContext* context = nullptr;
  if (!succeeded(filter ? av_bsf_alloc(filter, &context) : AVERROR_BSF_NOT_FOUND)) return false;
  lane.filter.reset(context);
  context->time_base_in = stream.time_base;
  return succeeded(avcodec_parameters_copy(context->par_in, stream.codecpar)) &&
         succeeded(av_bsf_init(context)) &&
         succeeded(avcodec_parameters_copy(stream.codecpar, context->par_out));
}

bool CompositionFile::start() {
  if (!context_ || error_) return false;
  const AVOutputFormat& format = *context_->oformat;
  if (format.flags & AVFMT_NOFILE) {
    error_ = engineError(AVERROR(ENOSYS), std::string("the container format '") + format.name +
                                              "' does not write to one file");
    return false;
  }
  refineMovieTime();
  if (!succeeded(avio_open2(&context_->pb, context_->url, AVIO_FLAG_WRITE,
                            &context_->interrupt_callback, nullptr)))
    return false;
  const LibraryLog log;
  const int result = avformat_write_header(context_.get(), nullptr);
  if (isRefusal(result))
    return refuse(log.explain(result, format.name).message, LMMovieComposition::kContainerRefuses);
  return succeeded(result);
}

/// Whether the muxer does not take what it got, rather than that the file could not be written.
bool CompositionFile::isRefusal(int result) const {
  return result < 0 && result != AVERROR_EXIT && result != AVERROR(ENOMEM) &&
         context_->pb->error == 0;
}

/// MPEG-4 files say where a track begins in the movie's own unit, usually a millisecond. Here it is
/// one that all streams' units are multiples of. Subtitles begin with the movie, with none.
void CompositionFile::refineMovieTime() {
  int64_t unit = 1000;
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    const AVStream& stream = *context_->streams[i];
    if (lanes_[i].isSparse) continue;
    const int rate = stream.codecpar->sample_rate;
    unit = std::lcm(unit, int64_t{rate > 0 ? rate : std::max(stream.time_base.den, 1)});
    if (unit > kFinestMovieTime) return;
  }
  av_opt_set_int(context_.get(), "movie_timescale", unit, AV_OPT_SEARCH_CHILDREN);
}

bool CompositionFile::hidesPackets() const {
  static constexpr std::array<std::string_view, 6> kHaveEditLists{"mp4", "mov", "ipod",
                                                                  "psp", "3gp", "3g2"};
  return std::ranges::count(kHaveEditLists, context_->oformat->name) > 0;
}

bool CompositionFile::storesOnlyOrder() const {
  return isAvi(*context_->oformat) || (context_->oformat->flags & AVFMT_NOTIMESTAMPS) != 0;
}

/// Whether sound is played where it lies in the file.
bool CompositionFile::placesByOrder() const {
  static constexpr std::string_view kOfSamples[] = {"wav", "w64", "aiff", "au", "caf"};
  return storesOnlyOrder() || std::ranges::count(kOfSamples, context_->oformat->name) > 0;
}

/// How far packets of a stream usually lie apart, in its time base.
int64_t CompositionFile::stepOf(int stream) const {
  const AVRational rate = context_->streams[stream]->avg_frame_rate;
  const bool isKnown = rate.num > 0 && rate.den > 0;
  return isKnown ? std::max<int64_t>(av_rescale_q(1, av_inv_q(rate), timeBase(stream)), 1) : 1;
}

/// Whether a packet lies where a container without times has it: behind the one before, the first
/// at the beginning. Gaps between pictures are filled by the container itself.
bool CompositionFile::staysInTime(const AVPacket& packet, int stream) {
  const int64_t stamp = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
  if (!placesByOrder() || stamp == AV_NOPTS_VALUE) return true;
  Lane& lane = lanes_[stream];
  const bool isSound = context_->streams[stream]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO;
  const int64_t time = av_rescale_q(stamp, timeBase(stream), kMicroseconds);
  if (time - lane.end > kOrdinaryGap && (isSound || !lane.hasBegun))
    return refuse(fmt::format("the {} format has no place for the gap before {:.2f} s",
                              context_->oformat->name, lm_ff_time_to_double(time)),
                  LMMovieComposition::kDoesNotJoin);
  lane.hasBegun = true;
  lane.end = time + av_rescale_q(durationOf(packet, stream), timeBase(stream), kMicroseconds);
  return true;
}

/// How long a packet lasts, in its stream's time base.
int64_t CompositionFile::durationOf(const AVPacket& packet, int stream) const {
  AVCodecParameters& parameters = *context_->streams[stream]->codecpar;
  if (packet.duration > 0 || parameters.sample_rate <= 0) return packet.duration;
  return av_rescale_q(av_get_audio_frame_duration2(&parameters, packet.size),
                      {1, parameters.sample_rate}, timeBase(stream));
}

bool CompositionFile::write(AVPacket& packet, int stream) {
  if (!staysInTime(packet, stream)) return false;
  Lane& lane = lanes_[stream];
  if (packet.dts != AV_NOPTS_VALUE)
    return writeWaiting(packet.dts, stream) && writeFiltered(packet, stream);
  if (packet.pts == AV_NOPTS_VALUE) return writeFiltered(packet, stream);
  lane.waiting.push_back(makePacket());
  av_packet_move_ref(lane.waiting.back().get(), &packet);
  const bool isEnough = lane.waiting.size() >= kMostWaiting;
  return !isEnough ||
         writeWaiting(lane.lastDts == AV_NOPTS_VALUE
                          ? lane.waiting.front()->pts
                          : lane.lastDts + static_cast<int64_t>(kMostWaiting + 1) * stepOf(stream),
                      stream);
}

/// Writes what waits, evenly before `next`, in the stream's time base.
bool CompositionFile::writeWaiting(int64_t next, int stream) {
  const std::vector<PacketPtr> packets = std::exchange(lanes_[stream].waiting, {});
  int64_t time = next - static_cast<int64_t>(packets.size()) * stepOf(stream);
  for (const PacketPtr& packet : packets) {
    packet->dts = std::min(time, packet->pts);
    time += stepOf(stream);
    if (!writeFiltered(*packet, stream)) return false;
  }
  return true;
}

bool CompositionFile::writeFiltered(AVPacket& packet, int stream) {
  AVBSFContext* filter = lanes_[stream].filter.get();
  if (!filter) return writeThrough(packet, stream);
  if (!succeeded(av_bsf_send_packet(filter, &packet))) return false;
  int result = 0;
  while ((result = av_bsf_receive_packet(filter, &packet)) == 0) {
    if (!writeThrough(packet, stream)) return false;
  }
  return result == AVERROR(EAGAIN) || succeeded(result);
}

bool CompositionFile::writeThrough(AVPacket& packet, int stream) {
  // No container takes a decoding time twice, but for subtitles, nor one behind that of showing.
  const int64_t last = lanes_[stream].lastDts;
  if (packet.dts != AV_NOPTS_VALUE && last != AV_NOPTS_VALUE)
    packet.dts = std::max(packet.dts, lanes_[stream].isSparse ? last : last + 1);
  if (packet.dts != AV_NOPTS_VALUE && packet.pts != AV_NOPTS_VALUE)
    packet.pts = std::max(packet.pts, packet.dts);
  const int64_t time = packet.dts;
  const bool isTimeless = packet.pts == AV_NOPTS_VALUE;
  packet.stream_index = stream;
  packet.pos = -1;
  const LibraryLog log;
  const int result = av_interleaved_write_frame(context_.get(), &packet);
  if (isRefusal(result))
    return refuse(isTimeless ? "a picture or sound does not tell when it is played"
                             : log.explain(result, context_->oformat->name).message,
                  LMMovieComposition::kDoesNotJoin);
  if (!succeeded(result)) return false;
  if (time != AV_NOPTS_VALUE) limitQueue(time, stream);
  return !error_;
}

// The library's queue waits for a stream that lags behind, with some codecs without end. So that
// its memory stays bounded, it is emptied once per stretch that is too long to wait for.
void CompositionFile::limitQueue(int64_t dts, int stream) {
  const int64_t time = av_rescale_q(dts, timeBase(stream), kMicroseconds);
  lanes_[stream].lastDts = dts;
  if (lanes_[stream].isSparse) return;
  lanes_[stream].newest = time;
  int64_t oldest = time;
  for (Lane& lane : lanes_) {
    if (lane.isSparse) continue;
    if (lane.newest == AV_NOPTS_VALUE) lane.newest = time;
    oldest = std::min(oldest, lane.newest);
  }
  if (time - oldest <= kLongestInterleaving) return;
  succeeded(av_interleaved_write_frame(context_.get(), nullptr));
  for (Lane& lane : lanes_) lane.newest = std::max(lane.newest, time);
}

void CompositionFile::finish() {
  for (int stream = 0; stream < static_cast<int>(lanes_.size()); ++stream) {
    const std::vector<PacketPtr>& waiting = lanes_[stream].waiting;
    if (!waiting.empty()) writeWaiting(waiting.back()->pts, stream);
  }
  succeeded(av_interleaved_write_frame(context_.get(), nullptr));
  succeeded(av_write_trailer(context_.get()));
  succeeded(avio_closep(&context_->pb));
}

}  // namespace kestrel
