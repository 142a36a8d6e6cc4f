#include "composition/CompositionFile.h"

#include <algorithm>
#include <numeric>
#include <string_view>
#include <utility>

#include "support/FFmpegCompat.h"
#include "support/FFmpegError.h"

extern "C" {
#include <libavutil/opt.h>
}

namespace kestrel {

namespace {

constexpr int kMaximumMuxingDelay = 700000;         // microseconds
constexpr int64_t kLongestInterleaving = 10000000;  // microseconds

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

int CompositionFile::addStream(const AVStream& input) {
  AVStream* stream = context_ ? avformat_new_stream(context_.get(), nullptr) : nullptr;
  if (!stream || !succeeded(avcodec_parameters_copy(stream->codecpar, input.codecpar))) return -1;
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
  if (const auto* language = av_dict_get(input.metadata, "language", nullptr, 0))
    av_dict_set(&stream->metadata, "language", language->value, 0);
  lanes_.emplace_back();
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
  return succeeded(avio_open2(&context_->pb, context_->url, AVIO_FLAG_WRITE,
                              &context_->interrupt_callback, nullptr)) &&
         succeeded(avformat_write_header(context_.get(), nullptr));
}

/// MPEG-4 files say where a track begins in the movie's own unit, usually a millisecond. Here it is
/// one that all streams' units are multiples of.
void CompositionFile::refineMovieTime() {
  int64_t unit = 1000;
  for (unsigned i = 0; i < context_->nb_streams; ++i) {
    const AVStream& stream = *context_->streams[i];
    const int rate = stream.codecpar->sample_rate;
    unit = std::lcm(unit, int64_t{rate > 0 ? rate : std::max(stream.time_base.den, 1)});
    if (unit > kFinestMovieTime) return;
  }
  av_opt_set_int(context_.get(), "movie_timescale", unit, AV_OPT_SEARCH_CHILDREN);
}

bool CompositionFile::storesOnlyOrder() const {
  return isAvi(*context_->oformat) || (context_->oformat->flags & AVFMT_NOTIMESTAMPS) != 0;
}

/// How far packets of a stream usually lie apart, in its time base.
int64_t CompositionFile::stepOf(int stream) const {
  const AVRational rate = context_->streams[stream]->avg_frame_rate;
  const bool isKnown = rate.num > 0 && rate.den > 0;
  return isKnown ? std::max<int64_t>(av_rescale_q(1, av_inv_q(rate), timeBase(stream)), 1) : 1;
}

bool CompositionFile::write(AVPacket& packet, int stream) {
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
    if (lanes_[stream].lastDts != AV_NOPTS_VALUE)
      packet->dts = std::max(packet->dts, lanes_[stream].lastDts + 1);
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
  const int64_t time = packet.dts;
  packet.stream_index = stream;
  packet.pos = -1;
  if (!succeeded(av_interleaved_write_frame(context_.get(), &packet))) return false;
  if (time != AV_NOPTS_VALUE) limitQueue(time, stream);
  return !error_;
}

// The library's queue waits for a stream that lags behind, with some codecs without end. So that
// its memory stays bounded, it is emptied once per stretch that is too long to wait for.
void CompositionFile::limitQueue(int64_t dts, int stream) {
  const int64_t time = av_rescale_q(dts, timeBase(stream), kMicroseconds);
  lanes_[stream].lastDts = dts;
  lanes_[stream].newest = time;
  int64_t oldest = time;
  for (Lane& lane : lanes_) {
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
