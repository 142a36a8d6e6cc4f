#include "output/CopiedStream.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "support/LibraryLog.h"

namespace kestrel {

namespace {

/// The containers in which each unit of H.264 and HEVC follows its length. In all others it follows
/// a start code.
constexpr std::array<std::string_view, 10> kLengthContainers = {
    "mp4", "mov", "ipod", "psp", "3gp", "3g2", "f4v", "ismv", "matroska", "flv"};

bool hasLengths(const AVCodecParameters& parameters) {
  return parameters.extradata_size > 0 && parameters.extradata[0] == 1;
}

bool wantsLengths(const AVOutputFormat& muxer) {
  return std::find(kLengthContainers.begin(), kLengthContainers.end(), muxer.name) !=
         kLengthContainers.end();
}

bool isAvi(const AVOutputFormat& muxer) { return std::string_view(muxer.name) == "avi"; }

/// The bitstream filter that makes a stream's packets what a container wants; null for none.
const char* filterFor(const AVCodecParameters& parameters, const AVOutputFormat& muxer) {
  const bool wantsStartCodes = hasLengths(parameters) && !wantsLengths(muxer);
  switch (parameters.codec_id) {
    case AV_CODEC_ID_H264:
      return wantsStartCodes ? "h264_mp4toannexb" : nullptr;
    case AV_CODEC_ID_HEVC:
      return wantsStartCodes ? "hevc_mp4toannexb" : nullptr;
    case AV_CODEC_ID_MPEG4:
      // Only AVI knows pictures that lie in the packet of another.
      return isAvi(muxer) ? nullptr : "mpeg4_unpack_bframes";
    default:
      return nullptr;
  }
}

bool needsDisplayTimes(const AVOutputFormat& muxer) {
  return !(muxer.flags & AVFMT_NOTIMESTAMPS) && !isAvi(muxer);
}

}  // namespace

CopiedStream::CopiedStream(AVStream* stream, const AVOutputFormat& muxer) : stream_(stream) {
  if (const char* name = filterFor(*stream->codecpar, muxer)) openFilter(name);
  if (needsDisplayTimes(muxer)) times_.emplace(*stream->codecpar);
}

void CopiedStream::openFilter(const char* name) {
  const AVBitStreamFilter* filter = av_bsf_get_by_name(name);
  AVBSFContext* context = nullptr;
  const LibraryLog log;
  int result = filter ? av_bsf_alloc(filter, &context) : AVERROR_BSF_NOT_FOUND;
  filter_.reset(context);
  if (result >= 0) result = avcodec_parameters_copy(context->par_in, stream_->codecpar);
  if (result >= 0) {
    context->time_base_in = stream_->time_base;
    result = av_bsf_init(context);
  }
  if (result >= 0) result = avcodec_parameters_copy(stream_->codecpar, context->par_out);
  stream_->codecpar->codec_tag = 0;
  if (result >= 0) return;
  filter_.reset();
  error_ = log.explain(result, name);
}

int CopiedStream::push(PacketPtr packet) {
  if (!filter_) {
    deliver(std::move(packet));
    return 0;
  }
  const int result = send(packet.get());
  if (result >= 0 || result == AVERROR(ENOMEM)) return std::min(result, 0);
  ++refused_;
  refusal_ = result;
  return 0;
}

int CopiedStream::finish() {
  if (filter_) send(nullptr);
  if (times_) {
    times_->finish();
    while (PacketPtr packet = times_->pop()) ready_.push_back(std::move(packet));
  }
  return hasDelivered_ ? 0 : refusal_;
}

/// Gives the filter a packet, or the end, and takes what comes out of it.
int CopiedStream::send(AVPacket* packet) {
  int result = av_bsf_send_packet(filter_.get(), packet);
  if (result == AVERROR(EAGAIN)) {  // it still holds the damaged packet before
    av_bsf_flush(filter_.get());
    result = av_bsf_send_packet(filter_.get(), packet);
  }
  return result < 0 ? result : receive();
}

PacketPtr CopiedStream::pop() {
  if (ready_.empty()) return nullptr;
  PacketPtr packet = std::move(ready_.front());
  ready_.pop_front();
  return packet;
}

int CopiedStream::receive() {
  while (PacketPtr packet = makePacket()) {
    const int result = av_bsf_receive_packet(filter_.get(), packet.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return 0;
    if (result < 0) return result;
    deliver(std::move(packet));
  }
  return AVERROR(ENOMEM);
}

void CopiedStream::deliver(PacketPtr packet) {
  hasDelivered_ = true;
  if (!times_) {
    ready_.push_back(std::move(packet));
    return;
  }
  times_->push(std::move(packet));
  while (PacketPtr ready = times_->pop()) ready_.push_back(std::move(ready));
}

}  // namespace kestrel
