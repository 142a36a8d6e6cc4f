#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LibMedia.h>

#include "media/LMFFMediaStreamState.h"

namespace kestrel {

namespace {

Rational positive(AVRational r) { return {r.num > 0 ? r.num : 1, r.den > 0 ? r.den : 1}; }

Rational perSecond(int32_t rate) { return {1, rate > 0 ? rate : 1}; }

/// The context's channel mask, or the default one for its channel count where it has no usable one.
int64_t validChannelLayout(const AVCodecContext& context) {
  const int64_t mask = layoutMask(context.ch_layout);
  const int channels = context.ch_layout.nb_channels;
  const bool isValid = mask != 0 && lm_get_channel_layout_nb_channels(mask) == channels;
  return isValid ? mask : lm_get_default_channel_layout(channels);
}

/// A rate in whole pictures per second, absent for an invalid one.
std::optional<float> wholeRate(AVRational rate) {
  if (rate.num < 1 || rate.den < 1) return std::nullopt;
  const int whole = rate.num / rate.den;
  return static_cast<float>(whole);
}

}  // namespace

LMFFMediaStream::LMFFMediaStream() : state_(std::make_unique<State>()) {}

LMFFMediaStream::~LMFFMediaStream() { close(); }

LMFFMedia* LMFFMediaStream::media() const { return state_->media; }

void LMFFMediaStream::setMedia(LMFFMedia* media) { state_->media = media; }

AVStream* LMFFMediaStream::stream() const { return state_->stream; }

void LMFFMediaStream::setStream(AVStream* stream) {
  close();
  const auto source = media() ? media()->source() : nullptr;
  const auto container = source ? source->sharedContext() : nullptr;
  const bool isTransport = container && (container->iformat->flags & AVFMT_TS_DISCONT);
  state_->stream = stream;
  state_->decoder.setStream(stream, isTransport);
  state_->container = container;  // the old one goes last
}

AVCodecContext* LMFFMediaStream::codecContext() const { return state_->decoder.context(); }

int LMFFMediaStream::mediaType() const {
  const AVCodecContext* context = codecContext();
  return context ? context->codec_type : AVMEDIA_TYPE_UNKNOWN;
}

bool LMFFMediaStream::isVideo() const { return mediaType() == AVMEDIA_TYPE_VIDEO; }

bool LMFFMediaStream::isAudio() const { return mediaType() == AVMEDIA_TYPE_AUDIO; }

bool LMFFMediaStream::isSubtitle() const { return mediaType() == AVMEDIA_TYPE_SUBTITLE; }

bool LMFFMediaStream::isValidAudio() const { return false; }

int LMFFMediaStream::get_codec_id() const {
  const AVCodecContext* context = codecContext();
  return context ? context->codec_id : AV_CODEC_ID_NONE;
}

int64_t LMFFMediaStream::bitrate() const {
  const AVCodecContext* context = codecContext();
  return context ? context->bit_rate : 0;
}

std::string LMFFMediaStream::codecName() const {
  const AVCodecContext* context = codecContext();
  return context && context->codec ? context->codec->name : "";
}

std::string LMFFMediaStream::language() const {
  const AVDictionaryEntry* entry =
      state_->stream ? av_dict_get(state_->stream->metadata, "language", nullptr, 0) : nullptr;
  return LibMedia::displayStringForLanguage(entry ? entry->value : "");
}

int64_t LMFFMediaStream::duration() const {
  const AVStream* stream = state_->stream;
  return stream && stream->duration != AV_NOPTS_VALUE ? stream->duration : 0;
}

float LMFFMediaStream::framerate() const {
  constexpr float kSlowest = 1;
  constexpr float kFastest = 50;
  constexpr float kOtherwise = 30;
  const AVStream* stream = state_->stream;
  if (!stream) return kOtherwise;
  // The two television rates are answered by their customary names, all others cut to whole ones.
  if (av_cmp_q(stream->r_frame_rate, {24000, 1001}) == 0) return 23.97F;
  if (av_cmp_q(stream->r_frame_rate, {30000, 1001}) == 0) return 29.97F;
  const auto isUsual = [](float rate) { return rate >= kSlowest && rate <= kFastest; };
  float rate = wholeRate(stream->r_frame_rate).value_or(0);
  if (isUsual(rate)) return rate;
  rate = wholeRate(stream->avg_frame_rate).value_or(rate);
  return isUsual(rate) ? rate : kOtherwise;
}

Rational LMFFMediaStream::timebase() const {
  return state_->stream ? positive(state_->stream->time_base) : Rational{1, 1};
}

Rational LMFFMediaStream::framebase() const { return perSecond(audioFormat().sample_rate); }

Rational LMFFMediaStream::audioOutputTimebase() const {
  return perSecond(audioOutputFormat().sample_rate);
}

LMFFAudioFormat LMFFMediaStream::audioFormat() const {
  if (!isAudio()) return {-1, 0, 0};
  const AVCodecContext& context = *codecContext();
  return {context.sample_fmt, validChannelLayout(context), context.sample_rate};
}

LMFFVideoFormat LMFFMediaStream::videoFormat() const {
  if (!isVideo()) return {-1, 0, 0};
  const AVCodecContext& context = *codecContext();
  return {context.pix_fmt, context.width, context.height};
}

LMFFAudioFormat LMFFMediaStream::audioOutputFormat() const {
  const auto resampler = resample();
  return resampler ? resampler->outputFormat() : LMFFAudioFormat{};
}

int LMFFMediaStream::channels() const {
  return lm_get_channel_layout_nb_channels(audioFormat().channel_layout);
}

void LMFFMediaStream::setAudioResampleChannels(int channels) {
  LMFFAudioFormat to = audioOutputFormat();
  to.channel_layout = lm_get_default_channel_layout(channels);
  if (const auto resampler = resample()) resampler->convertFormat(audioFormat(), to);
}

void LMFFMediaStream::open() {
  if (isOpen()) return;
  setRawPackets({});
  state_->decoder.open();
  if (isAudio()) setResample(std::make_shared<LMFFAudioResample>());
  if (state_->stream && state_->stream->disposition == AV_DISPOSITION_ATTACHED_PIC) close();
}

bool LMFFMediaStream::isOpen() const { return state_->decoder.isOpen(); }

void LMFFMediaStream::close() {
  setRawPackets({});
  setResample(nullptr);
  setSubtitle(nullptr);
  state_->earlierSubtitles.clear();
  state_->texts = {};
  setSubtitleString(std::nullopt);
  state_->decoder.close();
}

bool LMFFMediaStream::enable() const { return state_->enable; }

void LMFFMediaStream::setEnable(bool enable) {
  state_->enable = enable;
  // The demuxer need not read what would be dropped.
  if (state_->stream) state_->stream->discard = enable ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
}

void LMFFMediaStream::seek(int64_t time) {
  state_->decoder.flush();
  av_frame_unref(state_->currentFrame.get());
  state_->currentFrame->pts = time;
  state_->soundEnd = AV_NOPTS_VALUE;
  state_->isFlushed = false;
  setSubtitle(nullptr);
  state_->earlierSubtitles.clear();
  state_->texts.clear();
  setRawPackets({});
  setAudio_sync_frame(av_rescale_q(time, toAV(timebase()), toAV(audioOutputTimebase())));
  if (const auto resampler = resample()) resampler->close();
}

bool LMFFMediaStream::needsFirstPacket() const { return state_->decoder.needsFirstPacket(); }

void LMFFMediaStream::showFirstPacket(const AVPacket* packet) {
  if (packet) state_->decoder.showFirstPacket(*packet);
}

void LMFFMediaStream::setTreatment(const PictureTreatment& treatment) {
  state_->decoder.setTreatment(treatment);
}

bool LMFFMediaStream::isCopied() const {
  if (state_->isCopied) return true;
  const LMFFMovie* movie = media() ? media()->movie() : nullptr;
  if (!movie || isSubtitle()) return false;
  return isAudio() ? movie->copy_audio_stream() : movie->copy_video_stream();
}

void LMFFMediaStream::setCopied(bool copied) { state_->isCopied = copied; }

void LMFFMediaStream::setKeepsGroups(bool keeps) { state_->keepsGroups = keeps; }

bool LMFFMediaStream::decodePacket(const AVPacket* packet) {
  if (!packet || packet->size < 1) return false;
  if (isCopied()) {
    state_->queue(packet, timebase(), isVideo());
    return false;
  }
  if (isSubtitle()) return state_->decodeSubtitle(*this, packet);
  state_->decoder.send(*packet);
  return isAudio() ? state_->decodeSound(*this) : takeQueuedFrame();
}

bool LMFFMediaStream::takeQueuedFrame() {
  FramePtr frame = state_->decoder.take();
  if (!frame) return false;
  state_->store(std::move(frame));
  return true;
}

bool LMFFMediaStream::drain() {
  if (!isOpen() || isSubtitle()) return false;
  state_->decoder.sendEnd();
  if (!isAudio()) return takeQueuedFrame();
  if (state_->isFlushed) return false;
  state_->isFlushed = true;
  const int32_t before = outputSamples();
  const bool decoded = state_->decodeSound(*this);
  if (const auto resampler = resample()) resampler->flush();
  return decoded || outputSamples() > before;
}

bool LMFFMediaStream::State::decodeSound(const LMFFMediaStream& self) {
  bool decoded = false;
  while (FramePtr frame = decoder.take()) {
    storeSound(self, std::move(frame));
    decoded = true;
  }
  return decoded;
}

/// Queues one decoded frame's samples, unless it lies before the place last sought.
bool LMFFMediaStream::State::storeSound(const LMFFMediaStream& self, FramePtr frame) {
  const AVCodecContext& context = *decoder.context();
  if (const int64_t layout = self.audioFormat().channel_layout;
      lm_get_channel_layout_nb_channels(layout) == frame->ch_layout.nb_channels)
    av_channel_layout_from_mask(&frame->ch_layout, static_cast<uint64_t>(layout));
  frame->sample_rate = context.sample_rate;

  // Only the first of several frames in a packet carries a time; the others follow it.
  int64_t pts = frame->best_effort_timestamp;
  if (pts == AV_NOPTS_VALUE) pts = frame->pts;
  if (pts == AV_NOPTS_VALUE) pts = soundEnd;
  if (pts == AV_NOPTS_VALUE) pts = std::max<int64_t>(currentFrame->pts, 0);
  const int64_t duration =
      av_rescale_q(frame->nb_samples, toAV(self.framebase()), toAV(self.timebase()));
  frame->pts = pts;
  setFrameDuration(*frame, duration);
  soundEnd = pts + duration;

  // After a seek the current frame's time is the place sought: half a frame of tolerance.
  const bool isDue = static_cast<double>(duration) * 0.5 + static_cast<double>(pts) >=
                     static_cast<double>(currentFrame->pts);
  if (!isDue) return false;
  if (const auto resampler = resample.get()) resampler->writeFrame(frame.get());
  store(std::move(frame));
  return true;
}

AVFrame* LMFFMediaStream::frame() const { return state_->currentFrame.get(); }

bool LMFFMediaStream::hasFrame() const { return state_->hasFrame; }

void LMFFMediaStream::setHasFrame(bool hasFrame) { state_->hasFrame = hasFrame; }

bool LMFFMediaStream::isDecoderFilling() const { return state_->decoder.isFilling(); }

int64_t LMFFMediaStream::decodeErrors() const { return state_->decoder.errors(); }

int64_t LMFFMediaStream::mendedPictures() const { return state_->decoder.mended(); }

int64_t LMFFMediaStream::audio_sync_frame() const { return state_->audio_sync_frame; }

void LMFFMediaStream::setAudio_sync_frame(int64_t frame) { state_->audio_sync_frame = frame; }

int32_t LMFFMediaStream::outputSamples() const {
  const auto resampler = resample();
  return resampler ? resampler->outputSamples() : 0;
}

int32_t LMFFMediaStream::readSample(void* data, int32_t frame) {
  const auto resampler = resample();
  return resampler ? resampler->readSample(data, frame) : 0;
}

std::shared_ptr<LMFFAudioResample> LMFFMediaStream::resample() const {
  return state_->resample.get();
}

void LMFFMediaStream::setResample(std::shared_ptr<LMFFAudioResample> resample) {
  state_->resample.set(std::move(resample));
}

std::vector<std::shared_ptr<LMFFImage>> LMFFMediaStream::rawPackets() const {
  return state_->rawPackets.with([](const auto& packets) {
    return std::vector<std::shared_ptr<LMFFImage>>(packets.begin(), packets.end());
  });
}

void LMFFMediaStream::setRawPackets(std::vector<std::shared_ptr<LMFFImage>> packets) {
  state_->rawPackets.with([&](auto& queue) {
    queue.assign(packets.begin(), packets.end());
    state_->hasPacket = !queue.empty();
  });
}

bool LMFFMediaStream::hasPacket() const { return state_->hasPacket; }

std::shared_ptr<LMFFImage> LMFFMediaStream::popFirstRawPacket() {
  return state_->rawPackets.with([this](auto& packets) -> std::shared_ptr<LMFFImage> {
    if (packets.empty()) return nullptr;
    auto first = std::move(packets.front());
    packets.pop_front();
    state_->hasPacket = !packets.empty();
    return first;
  });
}

}  // namespace kestrel
