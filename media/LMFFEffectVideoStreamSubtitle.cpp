#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/TextSubtitle.h>

#include <algorithm>
#include <utility>

#include "media/EffectVideoStreamState.h"
#include "support/SubtitleMarkup.h"

namespace kestrel {

AttributedString LMFFEffectVideoStream::subtitleAttributedText() const {
  TextAttributes attributes{.font = subtitleFont(),
                            .foregroundColor = subtitleColor(),
                            .paragraphStyle = ParagraphStyle::defaultParagraphStyle()};
  attributes.paragraphStyle.alignment = TextAlignment::kCenter;
  attributes.outline = state_->setting(&MovieLook::subtitleOutline);
  std::string source = subtitleCurrentString().value_or("");
  MarkedText text =
      subtitleMarkup() ? readSubtitleMarkup(source) : MarkedText{std::move(source), {}};
  return AttributedString(std::move(text.text), std::move(attributes), std::move(text.runs))
      .trimmed();
}

std::shared_ptr<const BitmapImage> LMFFEffectVideoStream::subtitleImageWithAttributedString(
    const std::optional<AttributedString>& string) const {
  if (!string) return nullptr;
  const LMFFVideoFormat output = outputFormat();
  const Size limits{output.width * (1 - 2.0 * state_->setting(&MovieLook::subtitleMargin)),
                    static_cast<double>(output.height)};
  Rect box = string->boundingRectWithSize(limits);
  const float room = static_cast<float>(output.height) * (1.0F - subtitlePosition());
  box.size.height = static_cast<double>(std::min(static_cast<float>(box.size.height), room));
  return isEmpty(box) ? nullptr : string->bitmapImageWithSize(box.size);
}

std::shared_ptr<const Image> LMFFEffectVideoStream::currentSubtitleImage() const {
  const auto text = subtitleCurrentString();
  if (!text || text->empty()) return nullptr;
  if (text == subtitleImageString()) return subtitleImage();
  // The text is noted before it is drawn: a setting that changes meanwhile takes the note away, and
  // the next picture draws the text again.
  state_->subtitleImageString.set(text);
  state_->subtitleImage.set(nullptr);
  auto image = Image::fromBitmap(subtitleImageWithAttributedString(subtitleAttributedText()));
  if (image) {
    const LMFFVideoFormat output = outputFormat();
    const Rect extent = image->extent();
    image = translateImage(
        image, {output.width * 0.5 - (extent.origin.x + extent.size.width * 0.5),
                static_cast<double>(subtitlePosition() * static_cast<float>(output.height))});
  }
  state_->subtitleImage.set(image);
  return image;
}

void LMFFEffectVideoStream::showTexts(const std::shared_ptr<LMFFMedia>& media, int64_t time) {
  TextSubtitle shown;
  const MovieLook settings = look();
  if (media && settings.subtitleStyles)
    shown = media->textSubtitleAtTime(time, subtitleCanvas());
  else if (media)
    shown.markup = settings.subtitleMarkup ? media->subtitleMarkupAtTime(time)
                                           : media->subtitleStringAtTime(time);
  setStyledSubtitle(shown.image);
  setSubtitleCurrentString(shown.markup);
}

/// The part of the output that the picture covers.
SubtitleCanvas LMFFEffectVideoStream::subtitleCanvas() const {
  const Size size = videoSize();
  const LMFFVideoFormat output = outputFormat();
  const auto picture = placed(Image::fromColor(Color::black())->cropped({{0, 0}, size}));
  const Rect whole{{0, 0}, {static_cast<double>(output.width), static_cast<double>(output.height)}};
  const Rect area = integral(intersection(picture ? picture->extent() : Rect{}, whole));
  return {area,
          size,
          subtitleFont(),
          subtitleColor(),
          static_cast<double>(state_->setting(&MovieLook::subtitleOutline)),
          static_cast<double>(state_->setting(&MovieLook::subtitleMargin)),
          static_cast<double>(subtitlePosition())};
}

void LMFFEffectVideoStream::updateSubtitle() {
  setSubtitleImageString(std::nullopt);
  setSubtitleImage(nullptr);
}

}  // namespace kestrel
