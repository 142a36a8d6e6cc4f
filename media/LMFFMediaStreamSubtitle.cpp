// Subtitles of a stream: decoded, kept while pictures of their time may be shown, and asked for.

#include <kestrel/LMFFMedia.h>
#include <kestrel/LibMedia.h>

#include <limits>

#include "media/LMFFMediaStreamState.h"
#include "media/SubtitleContent.h"

namespace kestrel {

namespace {

/// What a bitmap subtitle decoder is told of its extra data's size, whatever the text's length.
constexpr int kPaletteSize = 256;

constexpr AVRational kMilliseconds{1, 1000};

}  // namespace

void LMFFMediaStream::fillPalette(const SubtitlePalette& palette) {
  const std::string text = subtitlePaletteText(palette);
  std::vector<uint8_t> bytes(text.begin(), text.end());
  bytes.resize(kPaletteSize + AV_INPUT_BUFFER_PADDING_SIZE);
  state_->decoder.setExtradata(std::move(bytes), kPaletteSize);
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

}  // namespace kestrel
