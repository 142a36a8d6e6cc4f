#include <kestrel/Image.h>
#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFImage.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LibMedia.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <limits>
#include <utility>

#include "media/StreamDecoder.h"
#include "media/StreamTexts.h"
#include "media/StreamTime.h"
#include "media/SubtitleContent.h"
#include "media/SubtitleHistory.h"
#include "support/FFmpegCompat.h"
#include "support/Guarded.h"

namespace kestrel {

namespace {

/// What a bitmap subtitle decoder is told of its extra data's size, whatever the text's length.
constexpr int kPaletteSize = 256;

constexpr AVRational kMilliseconds{1, 1000};

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

struct LMFFMediaStream::State {
  LMFFMedia* media = nullptr;
  std::shared_ptr<AVFormatContext> container;  // which `stream` belongs to, where that is known
  AVStream* stream = nullptr;
  StreamDecoder decoder;
  FramePtr currentFrame = makeFrame();
  bool enable = false;
  bool isCopied = false;     // by itself, whatever the movie says
  bool keepsGroups = false;  // of copied pictures
  bool hasFrame = false;
  bool isFlushed = false;             // the resampler has given what it held at the input's end
  int64_t soundEnd = AV_NOPTS_VALUE;  // where the last decoded audio frame ends, in the time base
  int64_t audio_sync_frame = 0;
  Guarded<std::shared_ptr<const Image>> subtitle;
  Guarded<std::shared_ptr<const Image>> wholeSubtitle;
  SubtitleHistory earlierSubtitles;
  Guarded<std::optional<std::string>> subtitleString;
  StreamTexts texts;
  Guarded<std::shared_ptr<LMFFAudioResample>> resample;
  Guarded<std::deque<std::shared_ptr<LMFFImage>>> rawPackets;
  std::atomic<bool> hasPacket{false};  // whether that is empty, asked for every packet read

  void store(FramePtr frame) {
    currentFrame = std::move(frame);
    hasFrame = true;
  }

  void queue(const AVPacket* packet, Rational timebase, bool isPicture) {
    auto item = LMFFImage::imageWithPacket(packet);
    item->setTime_base(timebase);
    rawPackets.with([&](auto& packets) {
      if (isPicture && !keepsGroups) packets.clear();
      if (isPicture && item->isKeyPacket()) {
        const auto key = std::find_if(packets.rbegin(), packets.rend(),
                                      [](const auto& each) { return each->isKeyPacket(); });
        if (key != packets.rend()) packets.erase(packets.begin(), std::prev(key.base()));
      }
      packets.push_back(std::move(item));
      hasPacket = true;
    });
  }

  bool storeSound(const LMFFMediaStream& self, FramePtr frame);
  bool decodeSound(const LMFFMediaStream& self);
  bool decodeSubtitle(const LMFFMediaStream& self, const AVPacket* packet);
  SubtitleSpan subtitleSpan() const { return {currentFrame->pts, frameDuration(*currentFrame)}; }
  void keepSubtitle(const LMFFMediaStream& self);
};

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

void LMFFMediaStream::fillPalette(const SubtitlePalette& palette) {
  const std::string text = subtitlePaletteText(palette);
  std::vector<uint8_t> bytes(text.begin(), text.end());
  bytes.resize(kPaletteSize + AV_INPUT_BUFFER_PADDING_SIZE);
  state_->decoder.setExtradata(std::move(bytes), kPaletteSize);
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

bool LMFFMediaStream::State::decodeSubtitle(const LMFFMediaStream& self, const AVPacket* packet) {
  if (!decoder.isOpen()) return false;
  AVSubtitle content{};
  int gotSubtitle = 0;
  const PacketPtr input(av_packet_clone(packet));
  avcodec_decode_subtitle2(decoder.context(), &content, &gotSubtitle, input.get());
  if (!gotSubtitle) return false;

  const AVRational timebase = toAV(self.timebase());
  const int64_t start = content.pts == AV_NOPTS_VALUE
                            ? AV_NOPTS_VALUE
                            : av_rescale_q(content.pts, kMicroseconds, timebase) +
                                  av_rescale_q(content.start_display_time, kMilliseconds, timebase);
  FramePtr frame = makeFrame();
  frame->pts = start;
  frame->pkt_dts = start;
  // A bitmap that is told no end stays until the next one.
  const bool isBitmap = content.num_rects > 0 && content.rects[0]->type == SUBTITLE_BITMAP;
  const bool isOpenEnded = isBitmap && content.end_display_time == 0;
  const int64_t end = isOpenEnded ? std::numeric_limits<uint32_t>::max() : content.end_display_time;
  setFrameDuration(*frame, av_rescale_q(end - content.start_display_time, kMilliseconds, timebase));
  keepSubtitle(self);
  if (isBitmap || content.num_rects == 0) {  // an empty one ends the one before
    subtitle.set(nullptr);
    wholeSubtitle.set(nullptr);
  }
  const LMFFVideoFormat format = media ? media->videoFormat() : LMFFVideoFormat{};
  const Size video{static_cast<double>(format.width), static_cast<double>(format.height)};
  std::vector<std::string> lines;
  for (unsigned i = 0; i < content.num_rects; ++i) {
    const AVSubtitleRect& rect = *content.rects[i];
    if (rect.type == SUBTITLE_ASS && rect.ass && *rect.ass) {
      subtitleString.set(subtitleTextOfLine(rect.ass));
      lines.emplace_back(rect.ass);
    } else if (rect.type == SUBTITLE_BITMAP) {
      const AVCodecContext& context = *decoder.context();
      const Size canvas{static_cast<double>(context.width), static_cast<double>(context.height)};
      subtitle.set(subtitleImageOfBitmap(rect, static_cast<int>(video.height)));
      wholeSubtitle.set(
          subtitleImageOver(subtitleImageOnVideo(rect, canvas, video), wholeSubtitle.get()));
    }
  }
  avsubtitle_free(&content);
  store(std::move(frame));
  if (!lines.empty()) texts.add(lines, subtitleSpan(), *decoder.context());
  return true;
}

/// Notes the current bitmap subtitle, or that there is none, before the next one replaces it, for
/// as long as a picture of its time may still be shown.
void LMFFMediaStream::State::keepSubtitle(const LMFFMediaStream& self) {
  const auto pictures = media ? media->videoStream() : nullptr;
  if (!pictures) return;
  earlierSubtitles.add(subtitleSpan(), wholeSubtitle.get());
  const AVFrame& picture = *pictures->frame();
  if (picture.data[0])
    earlierSubtitles.forgetBefore(
        av_rescale_q(picture.pts, ticksOf(picture, *pictures), toAV(self.timebase())));
}

std::shared_ptr<const Image> LMFFMediaStream::subtitleAt(int64_t time) const {
  const SubtitleSpan span = state_->subtitleSpan();
  if (span.start == AV_NOPTS_VALUE || time <= span.start) return state_->earlierSubtitles.at(time);
  return span.contains(time) ? state_->wholeSubtitle.get() : nullptr;
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

std::shared_ptr<const Image> LMFFMediaStream::subtitle() const { return state_->subtitle.get(); }

void LMFFMediaStream::setSubtitle(std::shared_ptr<const Image> subtitle) {
  state_->wholeSubtitle.set(subtitle);
  state_->subtitle.set(std::move(subtitle));
}

std::optional<std::string> LMFFMediaStream::subtitleString() const {
  return state_->subtitleString.get();
}

void LMFFMediaStream::setSubtitleString(std::optional<std::string> string) {
  state_->subtitleString.set(std::move(string));
}

std::optional<std::string> LMFFMediaStream::subtitleMarkupAt(int64_t time) {
  return state_->texts.markupAt(time);
}

TextSubtitle LMFFMediaStream::textSubtitleAt(int64_t time, const SubtitleCanvas& canvas) {
  if (!isOpen()) return {};
  return state_->texts.at(time, timebase(), {*codecContext(), state_->container.get()}, canvas);
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
