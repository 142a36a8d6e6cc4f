#include "convert/pictures/PictureRules.h"
#include "convert/look/LookTable.h"

#include <cstdint>
#include <utility>

#include "convert/settings/Require.h"

namespace kestrel {

namespace {

constexpr int kLongestDrawnSide = 32768;  // pixels

void requireBox(const PictureBox& box) {
  const int ways = (box.width || box.height) + box.lines.has_value() + box.scale.has_value();
  if (ways > 1) refuse("size", "it is told in more than one way");
  for (const auto& side : {box.width, box.height})
    if (side) requireNumber("size", *side, 1, kLongestDrawnSide);
  if (box.lines) requireNumber("size", *box.lines, 2, kLongestDrawnSide);
  if (box.scale) requireNumber("size", *box.scale, 0.001, 100);
}

void requireTime(const std::optional<Moment>& time) {
  if (time) requireMoment("time", *time);
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
  if (!settings.every) return;
  requireMoment("every", *settings.every);
  if (*settings.every == 0 || settings.every->share == 0)
    refuse("every", "pictures must be some time apart");
}

void require(const EffectSheetSettings& settings) {
  requireTitle(settings.title);
  requireTime(settings.time);
}

}  // namespace kestrel
