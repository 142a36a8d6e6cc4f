#include <kestrel/convert/Scenes.h>

#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/ContactSheet.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/OutputFile.h>
#include <kestrel/convert/PictureFile.h>
#include <kestrel/convert/Pictures.h>
#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

#include "convert/files/Surface.h"
#include "convert/scenes/SceneFinder.h"
#include "convert/scenes/ScenesWithin.h"
#include "convert/settings/Require.h"

namespace kestrel {

namespace {

constexpr int kMostColumns = 100;
constexpr size_t kMostPictures = 400;
constexpr int kSheetWidth = 1600;

PicturesSettings picturesOf(const ScenesSettings& settings) {
  return {.input = settings.input,
          .source = settings.source,
          .title = settings.title,
          .angle = settings.angle,
          .protocols = settings.protocols,
          .deinterlacing = Deinterlacing::kOff};
}

SmallPicture smallPicture(const BitmapImage& bitmap, int64_t time) {
  SmallPicture picture{time, {}};
  picture.luma.reserve(static_cast<size_t>(bitmap.width()) * static_cast<size_t>(bitmap.height()));
  for (int y = 0; y < bitmap.height(); ++y) {
    const uint8_t* pixel = bitmap.row(y);
    for (int x = 0; x < bitmap.width(); ++x, pixel += 4)
      picture.luma.push_back(
          static_cast<uint8_t>((2126 * pixel[0] + 7152 * pixel[1] + 722 * pixel[2]) / 10000));
  }
  return picture;
}

/// So many of a movie's scenes, from the first to the last.
std::vector<Scene> someOf(const std::vector<Scene>& scenes, size_t most) {
  if (scenes.size() <= most) return scenes;
  std::vector<Scene> some;
  for (size_t i = 0; i < most; ++i) some.push_back(scenes[i * (scenes.size() - 1) / (most - 1)]);
  return some;
}

/// Draws a picture of each scene.
void drawSheet(const ScenesSettings& settings, const std::vector<Scene>& scenes,
               const Events& events, OutputFile& file) {
  Pictures pictures(picturesOf(settings), events.interrupt);
  const auto shown = someOf(scenes, kMostPictures);
  const auto count = static_cast<int>(shown.size());
  const int columns = std::min(settings.columns, count);
  const Size whole = pictures.size();
  const int width = std::min(ContactSheet::pictureWidthFor(settings.columns, kSheetWidth),
                             static_cast<int>(whole.width));
  const int height = std::max(static_cast<int>(std::lround(whole.height * width / whole.width)), 1);
  pictures.setOutputSize({static_cast<double>(width), static_cast<double>(height)});
  ContactSheet sheet({.columns = columns,
                      .rows = (count + columns - 1) / columns,
                      .pictureWidth = width,
                      .pictureHeight = height,
                      .title = std::filesystem::path(settings.input).filename().string(),
                      .facts = fmt::format("{} scenes", scenes.size())});
  for (const Scene& scene : shown)
    sheet.add(*pictures.pictureAt((scene.start + scene.end) / 2),
              formatTime(std::round(lm_ff_time_to_double(scene.start) * 10) / 10));
  writePicture(file, *shownBy(sheet.surface()));
}

}  // namespace

Scenes scenesWithin(const ScenesSettings& settings, int64_t from, std::optional<int64_t> to,
                    const Events& events) {
  Pictures pictures(picturesOf(settings), events.interrupt);
  pictures.setOutputSize({SmallPicture::kWidth, SmallPicture::kHeight});
  const auto duration = to ? to : pictures.duration();
  SceneFinder finder;
  std::optional<int64_t> start;
  int64_t end = 0;
  int64_t count = 0;
  if (from > 0) {
    start = end = from;
    finder.add(smallPicture(*pictures.pictureAt(from), from));
  }
  while (const auto shown = pictures.next()) {
    if (to && shown->start >= *to) break;
    if (!start) start = shown->start;
    // Times that go back are damage.
    if (shown->end <= end) continue;
    end = shown->end;
    finder.add(smallPicture(*pictures.drawn(*shown), shown->start));
    if (events.progress)
      events.progress({.time = lm_ff_time_to_double(shown->start - from),
                       .duration = duration ? std::optional(lm_ff_time_to_double(*duration - from))
                                            : std::nullopt,
                       .pictures = ++count});
  }
  if (!start)
    throw Failure::input(settings.input,
                         fmt::format("nothing could be decoded from '{}'", settings.input));
  Scenes result;
  int64_t first = *start;
  for (const int64_t boundary : finder.boundaries()) {
    result.scenes.push_back({first, boundary});
    first = boundary;
  }
  result.scenes.push_back({first, to ? std::min(end, *to) : end});
  result.report = pictures.report();
  return result;
}

Scenes findScenes(const ScenesSettings& settings, const Events& events) {
  requireNumber("columns", settings.columns, 1, kMostColumns);
  std::optional<OutputFile> sheet;
  if (!settings.sheet.empty()) {
    pictureFormatOf(settings.sheet);
    sheet.emplace(settings.sheet, settings.replaces, settings.input);
  }
  try {
    Scenes scenes = scenesWithin(settings, 0, std::nullopt, events);
    if (sheet) {
      drawSheet(settings, scenes.scenes, events, *sheet);
      sheet->commit();
    }
    return scenes;
  } catch (const Failure& failure) {
    if (failure.kind() != Failure::Kind::kInterrupted) throw;
    return {{}, Report::interrupted()};
  }
}

}  // namespace kestrel
