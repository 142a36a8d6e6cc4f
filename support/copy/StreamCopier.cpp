#include "support/copy/StreamCopier.h"

#include <algorithm>
#include <utility>

#include "support/Containers.h"
#include "support/FFmpegCompat.h"
#include "support/FFmpegError.h"
#include "support/LibraryLog.h"
#include "support/copy/CodecData.h"
#include "support/copy/CodecTag.h"

namespace kestrel {

namespace {

/// AVI has something for each tick, pictures or nothing, so that ticks are to be few. Pictures that
/// are decoded before they are shown begin at its first moment, one a tick.
constexpr int kAviTicks = 8;

/// No pictures come faster; what claims so counts in other units.
constexpr double kFastest = 240;

bool hasLengths(const AVCodecParameters& parameters) {
  return parameters.extradata_size > 0 && parameters.extradata[0] == 1;
}

/// The bitstream filter that makes a stream's packets what a container wants; null for none.
const char* filterFor(const AVCodecParameters& parameters, const AVOutputFormat& container) {
  const bool describes = describesStreams(container);
  const bool wantsStartCodes = hasLengths(parameters) && !describes;
  switch (parameters.codec_id) {
    case AV_CODEC_ID_H264:
      return wantsStartCodes ? "h264_mp4toannexb" : nullptr;
    case AV_CODEC_ID_HEVC:
      return wantsStartCodes ? "hevc_mp4toannexb" : nullptr;
    case AV_CODEC_ID_AAC:
      // The muxer would do the same, but fails as a whole where a header is damaged.
      return describes && parameters.extradata_size == 0 ? "aac_adtstoasc" : nullptr;
    case AV_CODEC_ID_MPEG4:
      // Only AVI knows pictures that lie in the packet of another.
      return isAvi(container) ? nullptr : "mpeg4_unpack_bframes";
    default:
      return nullptr;
  }
}

bool isRate(AVRational rate) { return rate.num > 0 && rate.den > 0 && av_q2d(rate) <= kFastest; }

/// How long each picture of a stream lasts, or the longest time that all their times are multiples
/// of; 0 where that is not known.
AVRational pictureDuration(const AVStream& stream) {
  const AVRational average = stream.avg_frame_rate;
  const AVRational base = stream.r_frame_rate;
  const AVFieldOrder order = stream.codecpar->field_order;
  const bool hasFields = order != AV_FIELD_UNKNOWN && order != AV_FIELD_PROGRESSIVE;
  if (isRate(average) && hasFields) return av_inv_q(average);
  return isRate(base) ? av_inv_q(base) : AVRational{0, 1};
}

/// The unit in which a container is to count the times of pictures.
AVRational timeBaseFor(const AVStream& stream, const AVOutputFormat& container) {
  const AVRational duration = pictureDuration(stream);
  if (isOfStudios(container)) {
    if (duration.num > 0) return duration;
    return isRate(stream.avg_frame_rate) ? av_inv_q(stream.avg_frame_rate) : stream.time_base;
  }
  if (!isAvi(container) || duration.num == 0) return stream.time_base;
  const bool isReordered = stream.codecpar->video_delay > 0;
  const AVRational tick = isReordered ? av_mul_q(duration, {1, kAviTicks}) : duration;
  return av_cmp_q(tick, stream.time_base) > 0 ? tick : stream.time_base;
}

}  // namespace

bool storesOnlyOrder(const AVOutputFormat& container) {
  return isAvi(container) || (container.flags & AVFMT_NOTIMESTAMPS) != 0;
}

bool hidesFirstPictures(const AVOutputFormat& container) { return isMpeg4(container); }

StreamCopier::StreamCopier(const AVStream& input, AVStream& output, const AVOutputFormat& container)
    : output_(output),
      container_(container),
      tag_(input.codecpar->codec_tag),
      decoding_(output),
      parameters_(avcodec_parameters_alloc()) {
  int result = avcodec_parameters_copy(output.codecpar, input.codecpar);
  if (result >= 0) {
    describe(input);
    if (const char* name = filterFor(*output.codecpar, container)) openFilter(name);
    result =
        parameters_ ? avcodec_parameters_copy(parameters_.get(), output.codecpar) : AVERROR(ENOMEM);
  }
  if (result < 0) {
    error_ = libraryError(result);
    return;
  }
  parameters_->codec_tag = tag_;
  if (parameters_->codec_type == AVMEDIA_TYPE_VIDEO)
    hidden_.emplace(*parameters_, output, hidesFirstPictures(container));
  beginInput(input);
  if (!storesOnlyOrder(container)) display_.emplace(*output.codecpar);
}

void StreamCopier::describe(const AVStream& input) {
  AVCodecParameters& parameters = *output_.codecpar;
  parameters.extradata_size = static_cast<int>(codecDataOf(parameters).size());
  parameters.codec_tag = 0;
  copySideData(input, output_);
  // The container's word counts where it and the pictures' own differ; muxers refuse both at once.
  if (input.sample_aspect_ratio.num > 0) parameters.sample_aspect_ratio = input.sample_aspect_ratio;
  output_.sample_aspect_ratio = parameters.sample_aspect_ratio;
  output_.time_base = input.time_base;
  output_.avg_frame_rate = input.avg_frame_rate;
  output_.r_frame_rate = input.r_frame_rate;
}

void StreamCopier::describeSeveral() {
  // Pictures in the packet of another wait for a packet of their own, which a cut may have taken
  // away: to a decoder the next input's first picture would be it.
  const bool mayBePacked = output_.codecpar->codec_id == AV_CODEC_ID_MPEG4 && !filter_;
  if (mayBePacked) openFilter("mpeg4_unpack_bframes");
  widenCodecData(*output_.codecpar);
  if (output_.codecpar->codec_id == AV_CODEC_ID_FLAC) flac_.emplace(*output_.codecpar);
}

void StreamCopier::settle() {
  AVCodecParameters& parameters = *output_.codecpar;
  parameters.codec_tag = codecTagFor(container_, parameters.codec_id, tag_);
  if (parameters.codec_type == AVMEDIA_TYPE_VIDEO)
    output_.time_base = timeBaseFor(output_, container_);
}

void StreamCopier::openFilter(const char* name) {
  const AVBitStreamFilter* filter = av_bsf_get_by_name(name);
  AVBSFContext* context = nullptr;
  const LibraryLog log;
  int result = filter ? av_bsf_alloc(filter, &context) : AVERROR_BSF_NOT_FOUND;
  filter_.reset(context);
  if (result >= 0) result = avcodec_parameters_copy(context->par_in, output_.codecpar);
  if (result >= 0) {
    context->time_base_in = output_.time_base;
    result = av_bsf_init(context);
  }
  if (result >= 0) result = avcodec_parameters_copy(output_.codecpar, context->par_out);
  output_.codecpar->codec_tag = 0;
  if (result >= 0) return;
  filter_.reset();
  error_ = log.explain(result, name);
}

void StreamCopier::beginInput(const AVStream& input) {
  // What is left of the input before belongs to none of the next one's packets.
  if (filter_) av_bsf_flush(filter_.get());
  if (hidden_) hidden_->beginInput(input);
  takeShown();
  // What is shown last need not wait for the next input, which may begin later.
  if (display_) display_->finish();
  takeDisplayed();
}

int StreamCopier::push(PacketPtr packet) {
  decoding_.push(std::move(packet));
  return filterTimed();
}

int StreamCopier::finish() {
  decoding_.finish();
  filterTimed();
  if (filter_) send(nullptr);
  if (hidden_) hidden_->finish();
  takeShown();
  if (display_) display_->finish();
  takeDisplayed();
  describeAll();
  return hasDelivered_ ? 0 : refusal_;
}

/// Gives a container that writes codec data last those of all that it has got, in a packet with
/// nothing else in it.
void StreamCopier::describeAll() {
  const AVCodecParameters& parameters = *output_.codecpar;
  const auto size = static_cast<size_t>(std::max(parameters.extradata_size, 0));
  if (!flac_ || !hasDelivered_ || size == 0 || !takesLateCodecData(container_)) return;
  PacketPtr packet = makePacket();
  uint8_t* const data =
      packet ? av_packet_new_side_data(packet.get(), AV_PKT_DATA_NEW_EXTRADATA, size) : nullptr;
  if (!data) return;
  std::copy_n(parameters.extradata, size, data);
  const auto info = flacInfoIn({data, size});
  if (!info.empty()) flac_->describe(info);
  packet->pts = packet->dts = last_;
  deliver(std::move(packet));
}

PacketPtr StreamCopier::pop() {
  if (ready_.empty()) return nullptr;
  PacketPtr packet = std::move(ready_.front());
  ready_.pop_front();
  return packet;
}

/// Sends on what has its decoding time.
int StreamCopier::filterTimed() {
  while (PacketPtr packet = decoding_.pop()) {
    if (!filter_) {
      show(std::move(packet));
      continue;
    }
    const int result = send(packet.get());
    if (result == AVERROR(ENOMEM)) return result;
    if (result >= 0) continue;
    ++refused_;
    refusal_ = result;
  }
  return 0;
}

/// Gives the filter a packet, or the end, and takes what comes out of it.
int StreamCopier::send(AVPacket* packet) {
  int result = av_bsf_send_packet(filter_.get(), packet);
  if (result == AVERROR(EAGAIN)) {  // it still holds the damaged packet before
    av_bsf_flush(filter_.get());
    result = av_bsf_send_packet(filter_.get(), packet);
  }
  return result < 0 ? result : receive();
}

int StreamCopier::receive() {
  while (PacketPtr packet = makePacket()) {
    const int result = av_bsf_receive_packet(filter_.get(), packet.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return 0;
    if (result < 0) return result;
    show(std::move(packet));
  }
  return AVERROR(ENOMEM);
}

/// Sends on what is shown, and what that needs.
void StreamCopier::show(PacketPtr packet) {
  if (hidden_) {
    hidden_->push(std::move(packet));
    return takeShown();
  }
  // Sound that is hidden behind other sound is needed by none.
  const bool isHidden = (packet->flags & AV_PKT_FLAG_DISCARD) != 0;
  if (isHidden && hasShown_) return;
  hasShown_ = !isHidden;
  if (flac_) flac_->take(*packet);
  display(std::move(packet));
}

void StreamCopier::takeShown() {
  while (PacketPtr packet = hidden_ ? hidden_->pop() : nullptr) display(std::move(packet));
}

void StreamCopier::display(PacketPtr packet) {
  if (!display_ || packet->dts == AV_NOPTS_VALUE) return deliver(std::move(packet));
  display_->push(std::move(packet));
  takeDisplayed();
}

void StreamCopier::takeDisplayed() {
  while (PacketPtr packet = display_ ? display_->pop() : nullptr) deliver(std::move(packet));
}

/// No container takes a decoding time twice, but for subtitles, nor one behind that of showing.
void StreamCopier::deliver(PacketPtr packet) {
  hasDelivered_ = true;
  const bool maybeSame = output_.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE;
  if (packet->dts != AV_NOPTS_VALUE) {
    // Behind the last time that there is comes none: the muxer refuses that packet.
    const int64_t earliest = maybeSame || last_ == INT64_MAX ? last_ : last_ + 1;
    if (last_ != AV_NOPTS_VALUE) packet->dts = std::max(packet->dts, earliest);
    last_ = packet->dts;
    if (packet->pts != AV_NOPTS_VALUE) packet->pts = std::max(packet->pts, packet->dts);
  }
  packet->pos = -1;
  ready_.push_back(std::move(packet));
}

}  // namespace kestrel
