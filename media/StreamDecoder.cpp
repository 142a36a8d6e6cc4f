#include "media/StreamDecoder.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <tuple>
#include <utility>

#include "platform/codec/Codec.h"
#include "support/FFmpegCompat.h"

namespace kestrel {

namespace {

/// After so many pictures without a time the stream is taken for one that has none.
constexpr size_t kMostUndated = 8;

/// What a decoder may keep back beside the pictures of its threads and of its reordering.
constexpr int64_t kSparePackets = 4;

/// A shorter duration of a picture is none: a tick of a clock that no camera had.
constexpr AVRational kShortestPicture{1, 500};

/// The decoder of a stream. WebM keeps an alpha beside the pictures, which only some decoders read.
const AVCodec* decoderOf(const AVStream& stream) {
  const AVCodecID id = stream.codecpar->codec_id;
  const AVDictionaryEntry* mode = av_dict_get(stream.metadata, "alpha_mode", nullptr, 0);
  const AVCodec* codec = nullptr;
  if (mode && std::string_view(mode->value) == "1") {
    if (id == AV_CODEC_ID_VP8) codec = avcodec_find_decoder_by_name("libvpx");
    if (id == AV_CODEC_ID_VP9) codec = avcodec_find_decoder_by_name("libvpx-vp9");
  }
  return codec ? codec : avcodec_find_decoder(id);
}

/// hqdn3d's strengths (luma and chroma in space, luma and chroma in time): its own usual ones, half
/// and twice as much.
std::vector<FilterChain::Filter> filtersFor(Denoising denoising) {
  switch (denoising) {
    case Denoising::kLight:
      return {{"hqdn3d", "2:1.5:3:2.25"}};
    case Denoising::kStrong:
      return {{"hqdn3d", "8:6:12:9"}};
    default:
      return {{"hqdn3d", "4:3:6:4.5"}};
  }
}

}  // namespace

void StreamDecoder::setStream(AVStream* stream, bool isTransport) {
  close();
  stream_ = stream;
  isTransport_ = isTransport;
  extradata_.clear();
  makeContext();
}

void StreamDecoder::setExtradata(std::vector<uint8_t> bytes, int size) {
  extradata_ = std::move(bytes);
  extradataSize_ = size;
  if (!isOpen()) makeContext();
}

void StreamDecoder::makeContext() {
  context_.reset();
  if (!stream_) return;
  context_.reset(avcodec_alloc_context3(decoderOf(*stream_)));
  if (!context_) return;
  avcodec_parameters_to_context(context_.get(), stream_->codecpar);
  context_->pkt_timebase = stream_->time_base;
  context_->thread_count = 0;  // as many as the machine suits
  if (extradata_.empty()) return;
  av_freep(&context_->extradata);
  context_->extradata_size = 0;
  auto* copy = static_cast<uint8_t*>(av_mallocz(extradata_.size()));
  if (!copy) return;
  std::memcpy(copy, extradata_.data(), extradata_.size());
  context_->extradata = copy;
  context_->extradata_size = extradataSize_;
}

void StreamDecoder::setTreatment(const PictureTreatment& treatment) {
  treatment_ = treatment;
  deinterlacer_.reset();
  denoiser_.reset();
}

bool StreamDecoder::isOpen() const { return context_ && avcodec_is_open(context_.get()); }

bool StreamDecoder::open() {
  if (isOpen()) return true;
  if (!context_ || !context_->codec_id) return false;
  const AVCodec* codec = decoderOf(*stream_);
  if (!codec) return false;
  const int result = openCodec(*context_, codec);
  if (result < 0) makeContext();
  errors_ = 0;
  mended_ = 0;
  hasSeenFirst_ = false;
  return result >= 0;
}

void StreamDecoder::close() {
  restart();
  if (isOpen()) makeContext();
}

void StreamDecoder::flush() {
  restart();
  if (!isOpen()) return;
  if (!keepsPictures_ && context_->codec_id != AV_CODEC_ID_SVQ3)
    return avcodec_flush_buffers(context_.get());
  const auto counted = std::pair(errors_, mended_);
  close();
  open();
  std::tie(errors_, mended_) = counted;
}

void StreamDecoder::send(const AVPacket& packet) {
  if (!isOpen() || ended_) return;
  if (isFirstPacket_) {
    hasOnlyDecodingTimes_ =
        !isTransport_ && packet.pts == AV_NOPTS_VALUE && packet.dts != AV_NOPTS_VALUE;
    firstTime_ = packet.dts == AV_NOPTS_VALUE ? 0 : packet.dts;
  }
  if (isFirstPacket_) mayBeCut_ = isTransport_;
  isFirstPacket_ = false;
  ++sent_;
  submit(&packet);
}

void StreamDecoder::sendEnd() {
  if (!isOpen() || ended_) return;
  ended_ = true;
  submit(nullptr);
}

void StreamDecoder::submit(const AVPacket* packet) {
  const bool mayBeCut = mayBeCut_;
  const auto take = [this](FramePtr frame) { collect(std::move(frame)); };
  int errors = decodePacket(*context_, packet, take, mark_);
  if (errors > 0 && mayBeCut) {
    --errors;
    mayBeCut_ = false;
  }
  errors_ += errors;
  if (!ended_) return;
  dateBackwards(AV_NOPTS_VALUE);
  finishTreatment();
}

void StreamDecoder::collect(FramePtr frame) {
  if (isStale(*frame)) return;
  ++received_;
  if (!mayBeCut_ && (frame->decode_error_flags & FF_DECODE_ERROR_CONCEALMENT_ACTIVE) != 0)
    ++mended_;
  mayBeCut_ = false;
  if (context_->codec_type == AVMEDIA_TYPE_VIDEO)
    addPicture(std::move(frame));
  else
    frames_.push_back(std::move(frame));
}

/// Some decoders keep a picture beyond a flush: from then on this one is opened anew instead.
bool StreamDecoder::isStale(const AVFrame& frame) {
  const int64_t mark = frameMark(frame);
  const bool isOld = mark > 0 && mark < mark_;
  keepsPictures_ |= isOld;
  return isOld;
}

bool StreamDecoder::needsFirstPacket() const {
  if (hasSeenFirst_ || !isOpen() || context_->codec_id != AV_CODEC_ID_H264) return false;
  return stream_->codecpar->profile == kProfileH264High444;
}

void StreamDecoder::showFirstPacket(const AVPacket& packet) {
  if (!isOpen()) return;
  flush();
  const auto counted = std::pair(errors_, mended_);
  submit(&packet);
  flush();
  std::tie(errors_, mended_) = counted;
  hasSeenFirst_ = true;
}

bool StreamDecoder::isFilling() const {
  if (!isOpen() || ended_) return false;
  const bool hasFrameThreads = (context_->active_thread_type & FF_THREAD_FRAME) != 0;
  const int64_t threads = hasFrameThreads ? context_->thread_count : 1;
  const int64_t held = sent_ - received_;
  return held > 0 && held <= threads + context_->has_b_frames + kSparePackets;
}

/// The first pictures after a seek may come without a time: they wait for one that has it.
void StreamDecoder::addPicture(FramePtr picture) {
  setTime(*picture);
  if (picture->pts == AV_NOPTS_VALUE && undated_.size() < kMostUndated) {
    undated_.push_back(std::move(picture));
    return;
  }
  dateBackwards(picture->pts);
  if (picture->pts == AV_NOPTS_VALUE) picture->pts = nextTime_;
  queue(std::move(picture));
}

/// Dates the pictures that wait so that they end at `end`; without a time, from where decoding
/// began.
void StreamDecoder::dateBackwards(int64_t end) {
  if (undated_.empty()) return;
  int64_t length = 0;
  for (const auto& picture : undated_) length += ownDuration(*picture);
  nextTime_ = end == AV_NOPTS_VALUE ? firstTime_ : end - length;
  for (auto& picture : std::exchange(undated_, {})) {
    picture->pts = nextTime_;
    queue(std::move(picture));
  }
}

void StreamDecoder::queue(FramePtr picture) {
  nextTime_ = picture->pts + ownDuration(*picture);
  setDuration(*picture);
  lastTime_ = picture->pts;
  treat(std::move(picture));
}

void StreamDecoder::treat(FramePtr picture) {
  std::vector<FramePtr> pictures;
  if (treatment_.deinterlacing == Deinterlacing::kOff) {
    pictures.push_back(std::move(picture));
  } else {
    if (!deinterlacer_) deinterlacer_.emplace(treatment_, stream_->time_base);
    pictures = deinterlacer_->push(std::move(picture));
  }
  denoise(std::move(pictures));
}

void StreamDecoder::finishTreatment() {
  if (deinterlacer_) denoise(deinterlacer_->finish());
  if (denoiser_) std::ranges::move(denoiser_->finish(), std::back_inserter(frames_));
}

void StreamDecoder::denoise(std::vector<FramePtr> pictures) {
  if (treatment_.denoising == Denoising::kOff) {
    std::ranges::move(pictures, std::back_inserter(frames_));
    return;
  }
  for (auto& picture : pictures) {
    if (!denoiser_) denoiser_.emplace(filtersFor(treatment_.denoising), stream_->time_base);
    std::ranges::move(denoiser_->push(std::move(picture)), std::back_inserter(frames_));
  }
}

void StreamDecoder::setTime(AVFrame& picture) {
  picture.pts =
      picture.best_effort_timestamp != AV_NOPTS_VALUE ? picture.best_effort_timestamp : picture.pts;
  if (hasOnlyDecodingTimes_) {
    // The decoder dates such a picture by the packet that pushed it out, late by its own delay.
    const int64_t delay = context_->has_b_frames * ownDuration(picture);
    picture.pts = picture.pkt_dts == AV_NOPTS_VALUE ? nextTime_ : picture.pkt_dts - delay;
  }
  if (picture.pts == AV_NOPTS_VALUE) picture.pts = nextTime_;
}

/// What the packet or else the stream says that a picture lasts, at least one tick.
int64_t StreamDecoder::ownDuration(const AVFrame& picture) const {
  if (frameDuration(picture) > 0) return frameDuration(picture);
  const AVRational rate = av_guess_frame_rate(nullptr, stream_, nullptr);
  if (rate.num <= 0) return 1;
  return std::max<int64_t>(av_rescale_q(1, av_inv_q(rate), stream_->time_base), 1);
}

/// Of pictures that are told no duration the last one, which no other follows, lasts as long as the
/// one before it.
void StreamDecoder::setDuration(AVFrame& picture) {
  const bool isTold =
      frameDuration(picture) > 0 &&
      av_compare_ts(frameDuration(picture), stream_->time_base, 1, kShortestPicture) >= 0;
  const int64_t own = ownDuration(picture);
  const bool follows = lastTime_ != AV_NOPTS_VALUE && picture.pts - lastTime_ > own;
  setFrameDuration(picture, !isTold && follows ? picture.pts - lastTime_ : own);
}

/// Forgets all that depends on the packets sent so far.
void StreamDecoder::restart() {
  frames_.clear();
  deinterlacer_.reset();
  denoiser_.reset();
  isFirstPacket_ = true;
  hasOnlyDecodingTimes_ = false;
  undated_.clear();
  nextTime_ = AV_NOPTS_VALUE;
  lastTime_ = AV_NOPTS_VALUE;
  ++mark_;
  ended_ = false;
  sent_ = 0;
  received_ = 0;
  mayBeCut_ = false;
}

FramePtr StreamDecoder::take() {
  const bool isPicture = context_ && context_->codec_type == AVMEDIA_TYPE_VIDEO;
  if (frames_.empty() || (isPicture && frames_.size() < 2 && !ended_)) return nullptr;
  FramePtr frame = std::move(frames_.front());
  frames_.pop_front();
  // The container's duration belongs to the packet, in decoding order, and is often a guess; the
  // next picture's time is the truth.
  if (isPicture && !frames_.empty() && frames_.front()->pts > frame->pts)
    setFrameDuration(*frame, frames_.front()->pts - frame->pts);
  return frame;
}

}  // namespace kestrel
