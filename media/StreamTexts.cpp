#include "media/StreamTexts.h"

#include <utility>

#include "support/Entities.h"
#include "support/FFmpegOwners.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/mathematics.h>
}

namespace kestrel {

namespace {

constexpr AVRational kMilliseconds{1, 1000};

}  // namespace

void StreamTexts::add(const std::vector<std::string>& lines, const SubtitleSpan& span,
                      const AVCodecContext& decoder) {
  if (!styles_) styles_ = subtitleStylesOfHeader(subtitleHeaderOf(decoder));
  SubtitleTexts::Text text{.span = span, .markup = {}, .lines = {}};
  for (const std::string& line : lines)
    text.add(hasEntities(decoder.codec_id) ? withEntitiesRead(line) : line, *styles_);
  texts_.add(std::move(text));
}

std::optional<std::string> StreamTexts::markupAt(int64_t time) {
  texts_.forgetBefore(time);
  return texts_.at(time);
}

TextSubtitle StreamTexts::at(int64_t time, Rational timebase, const Origin& origin,
                             const SubtitleCanvas& canvas) {
  const AVRational ticks = toAV(timebase);
  const int64_t wanted = av_rescale_q_rnd(time, kMicroseconds, ticks, AV_ROUND_DOWN);
  texts_.forgetBefore(wanted);
  if (!StyledSubtitles::areAlways(origin.decoder) && !texts_.areStyledAt(wanted))
    return {texts_.shownAt(wanted)};
  if (!drawn_) drawn_.emplace(origin.decoder, origin.container);
  for (const auto& [span, markup, lines, isStyled] : texts_.takeNew())
    for (const std::string& line : lines)
      drawn_->add(line, av_rescale_q(span.start, ticks, kMilliseconds),
                  av_rescale_q(span.duration, ticks, kMilliseconds));
  return {std::nullopt,
          drawn_->at(av_rescale_q_rnd(time, kMicroseconds, kMilliseconds, AV_ROUND_DOWN), canvas)};
}

void StreamTexts::clear() {
  texts_.clear();
  if (drawn_) drawn_->clear();
}

}  // namespace kestrel
