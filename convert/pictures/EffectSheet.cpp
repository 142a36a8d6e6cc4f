#include <kestrel/convert/EffectSheet.h>

#include <kestrel/EffectManager.h>
#include <kestrel/convert/ContactSheet.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "convert/files/Surface.h"
#include "convert/pictures/PictureJob.h"
#include "convert/pictures/PictureRules.h"

namespace kestrel {

namespace {

constexpr int kColumns = 5;
constexpr int kSheetWidth = 2000;  // pixels
constexpr int kMostWidth = 640;    // of a picture in it

}  // namespace

Report writeEffectSheet(const EffectSheetSettings& settings, const Events& events) {
  require(settings);
  OutputFile file = claimedPicture(settings);
  PictureJob job(settings, {}, events);
  Pictures& pictures = job.pictures();
  const int64_t time =
      settings.time ? job.timeWithin(*settings.time) : pictures.duration().value_or(0) / 2;
  const Size size = job.setSize({}, {.width = kMostWidth, .height = {}});

  const auto names = EffectManager::allFilterNames();
  const int count = static_cast<int>(names.size()) + 1;
  const int width =
      std::min(ContactSheet::pictureWidthFor(kColumns, kSheetWidth), static_cast<int>(size.width));
  const auto height = static_cast<int>(std::lround(width * size.height / size.width));
  ContactSheet sheet({.columns = kColumns,
                      .rows = (count + kColumns - 1) / kColumns,
                      .pictureWidth = width,
                      .pictureHeight = std::max(height, 1),
                      .title = fmt::format("{} effects", names.size()),
                      .facts = job.name()});
  sheet.add(*pictures.pictureAt(time), "untouched");
  for (const auto& name : names) {
    pictures.setEffect(name);
    sheet.add(*pictures.pictureAt(time), name);
  }
  return job.finish(file, *shownBy(sheet.surface()), settings.quality);
}

}  // namespace kestrel
