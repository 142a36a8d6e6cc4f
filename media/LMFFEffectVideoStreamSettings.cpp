#include <utility>

#include "media/EffectVideoStreamState.h"

namespace kestrel {

namespace {

constexpr double kDefaultFontSize = 80;

}  // namespace

std::shared_ptr<LMFFMedia> LMFFEffectVideoStream::media() const { return state_->media.get(); }

void LMFFEffectVideoStream::setMedia(std::shared_ptr<LMFFMedia> media) {
  state_->media.set(std::move(media));
}

LMFFVideoFormat LMFFEffectVideoStream::outputFormat() const { return state_->outputFormat.get(); }

void LMFFEffectVideoStream::setOutputFormat(const LMFFVideoFormat& format) {
  state_->outputFormat.set(format);
}

LMFFEffectVideoStream::DataBuffer LMFFEffectVideoStream::dataBuffer() const {
  return state_->dataBuffer.get();
}

void LMFFEffectVideoStream::setDataBuffer(DataBuffer buffer) {
  state_->dataBuffer.set(std::move(buffer));
}

MovieLook LMFFEffectVideoStream::look() const { return state_->look.get(); }

void LMFFEffectVideoStream::setLook(MovieLook look) {
  state_->look.set(std::move(look));
  updateSubtitle();
}

int64_t LMFFEffectVideoStream::aspectType() const {
  return state_->setting(&MovieLook::aspectType);
}

void LMFFEffectVideoStream::setAspectType(int64_t type) {
  state_->set(&MovieLook::aspectType, type);
}

double LMFFEffectVideoStream::displayAspect() const {
  return state_->setting(&MovieLook::displayAspect);
}

void LMFFEffectVideoStream::setDisplayAspect(double aspect) {
  state_->set(&MovieLook::displayAspect, aspect);
}

Rect LMFFEffectVideoStream::cropRect() const { return state_->setting(&MovieLook::cropRect); }

void LMFFEffectVideoStream::setCropRect(const Rect& rect) {
  state_->set(&MovieLook::cropRect, rect);
}

bool LMFFEffectVideoStream::hflip() const { return state_->setting(&MovieLook::hflip); }

void LMFFEffectVideoStream::setHflip(bool flip) { state_->set(&MovieLook::hflip, flip); }

bool LMFFEffectVideoStream::vflip() const { return state_->setting(&MovieLook::vflip); }

void LMFFEffectVideoStream::setVflip(bool flip) { state_->set(&MovieLook::vflip, flip); }

float LMFFEffectVideoStream::rotate() const { return state_->setting(&MovieLook::rotate); }

void LMFFEffectVideoStream::setRotate(float degrees) { state_->set(&MovieLook::rotate, degrees); }

float LMFFEffectVideoStream::saturation() const { return state_->setting(&MovieLook::saturation); }

void LMFFEffectVideoStream::setSaturation(float value) {
  state_->set(&MovieLook::saturation, value);
}

float LMFFEffectVideoStream::brightness() const { return state_->setting(&MovieLook::brightness); }

void LMFFEffectVideoStream::setBrightness(float value) {
  state_->set(&MovieLook::brightness, value);
}

float LMFFEffectVideoStream::contrast() const { return state_->setting(&MovieLook::contrast); }

void LMFFEffectVideoStream::setContrast(float value) { state_->set(&MovieLook::contrast, value); }

float LMFFEffectVideoStream::hue() const { return state_->setting(&MovieLook::hue); }

void LMFFEffectVideoStream::setHue(float value) { state_->set(&MovieLook::hue, value); }

int32_t LMFFEffectVideoStream::zoomType() const { return state_->setting(&MovieLook::zoomType); }

void LMFFEffectVideoStream::setZoomType(int32_t type) { state_->set(&MovieLook::zoomType, type); }

std::optional<std::string> LMFFEffectVideoStream::effectName() const {
  return state_->setting(&MovieLook::effectName);
}

void LMFFEffectVideoStream::setEffectName(std::optional<std::string> name) {
  state_->set(&MovieLook::effectName, std::move(name));
}

std::shared_ptr<const Image> LMFFEffectVideoStream::watermark() const {
  return state_->setting(&MovieLook::watermark);
}

void LMFFEffectVideoStream::setWatermark(std::shared_ptr<const Image> image) {
  state_->set(&MovieLook::watermark, std::move(image));
}

std::shared_ptr<const Image> LMFFEffectVideoStream::mediaSubtitleImage() const {
  return state_->mediaSubtitleImage.get();
}

void LMFFEffectVideoStream::setMediaSubtitleImage(std::shared_ptr<const Image> image) {
  state_->mediaSubtitleImage.set(std::move(image));
}

std::shared_ptr<const Image> LMFFEffectVideoStream::styledSubtitle() const {
  return state_->styledSubtitle.get();
}

void LMFFEffectVideoStream::setStyledSubtitle(std::shared_ptr<const Image> image) {
  state_->styledSubtitle.set(std::move(image));
}

std::shared_ptr<const Image> LMFFEffectVideoStream::subtitleImage() const {
  return state_->subtitleImage.get();
}

void LMFFEffectVideoStream::setSubtitleImage(std::shared_ptr<const Image> image) {
  state_->subtitleImage.set(std::move(image));
}

std::optional<std::string> LMFFEffectVideoStream::subtitleImageString() const {
  return state_->subtitleImageString.get();
}

void LMFFEffectVideoStream::setSubtitleImageString(std::optional<std::string> text) {
  state_->subtitleImageString.set(std::move(text));
}

std::optional<std::string> LMFFEffectVideoStream::subtitleCurrentString() const {
  return state_->subtitleCurrentString.get();
}

void LMFFEffectVideoStream::setSubtitleCurrentString(std::optional<std::string> text) {
  state_->subtitleCurrentString.set(std::move(text));
}

Font LMFFEffectVideoStream::subtitleFont() const {
  const auto font = state_->setting(&MovieLook::subtitleFont);
  return font ? *font : Font::systemFontOfSize(kDefaultFontSize);
}

void LMFFEffectVideoStream::setSubtitleFont(const std::optional<Font>& font) {
  state_->set(&MovieLook::subtitleFont, font);
}

Color LMFFEffectVideoStream::subtitleColor() const {
  return state_->setting(&MovieLook::subtitleColor).value_or(Color::white());
}

void LMFFEffectVideoStream::setSubtitleColor(const std::optional<Color>& color) {
  state_->set(&MovieLook::subtitleColor, color);
}

float LMFFEffectVideoStream::subtitlePosition() const {
  return state_->setting(&MovieLook::subtitlePosition);
}

void LMFFEffectVideoStream::setSubtitlePosition(float position) {
  state_->set(&MovieLook::subtitlePosition, position);
}

bool LMFFEffectVideoStream::subtitleMarkup() const {
  return state_->setting(&MovieLook::subtitleMarkup);
}

void LMFFEffectVideoStream::setSubtitleMarkup(bool markup) {
  state_->set(&MovieLook::subtitleMarkup, markup);
}

}  // namespace kestrel
