#include "convert/pictures/PictureRules.h"

#include <cstdint>
#include <utility>

#include "convert/settings/Require.h"

namespace kestrel {

namespace {

constexpr int kLongestDrawnSide = 32768;  // pixels

void requireBox(const PictureBox& box) {
  for (const auto& side : {box.width, box.height})
    if (side) requireNumber("size", *side, 1, kLongestDrawnSide);
}

void requireTime(const std::optional<int64_t>& time) {
  if (time && *time < 0) refuse("time", "the movie starts at 0");
}

}  // namespace

void require(const ContactSheet::Layout& layout) {
  for (const auto& [setting, number] : {std::pair{"columns", layout.columns},
                                        {"rows", layout.rows},
                                        {"pictureWidth", layout.pictureWidth},
                                        {"pictureHeight", layout.pictureHeight}})
    requireNumber(setting, number, 1, kLongestDrawnSide);
}

void require(const ThumbnailSettings& settings) {
  requireTitle(settings.title);
  require(settings.look);
  requireBox(settings.size);
  requireTime(settings.time);
  if (settings.time && settings.share) refuseBeside("share", "the time");
  if (settings.share) requireNumber("share", *settings.share, 0, 1);
}

void require(const ContactSheetSettings& settings) {
  requireTitle(settings.title);
  require(settings.look);
  requireBox(settings.size);
  requireNumber("columns", settings.columns, 1, kLongestDrawnSide);
  requireNumber("rows", settings.rows, 1, kLongestDrawnSide);
}

void require(const SpritesSettings& settings) {
  requireTitle(settings.title);
  require(settings.look);
  requireBox(settings.size);
  if (settings.every && *settings.every <= 0) refuse("every", "pictures must be some time apart");
}

void require(const EffectSheetSettings& settings) {
  requireTitle(settings.title);
  requireTime(settings.time);
}

}  // namespace kestrel
