#include <kestrel/convert/Sprites.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <new>
#include <string_view>

#include <kestrel/BitmapContext.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/ContactSheet.h>
#include <kestrel/convert/Failure.h>
#include "convert/files/Surface.h"
#include "convert/pictures/PictureJob.h"
#include "convert/pictures/PictureRules.h"
#include "convert/settings/Require.h"

namespace kestrel {

namespace {

constexpr int64_t kSecond = 1000000;
constexpr int64_t kMinute = 60 * kSecond;
constexpr int64_t kUsualCount = 100;
constexpr int kColumns = 10;
constexpr int64_t kShortestRest = kSecond / 2;
constexpr int64_t kLongestSide = 16384;  // pixels: what browsers decode everywhere
constexpr PictureBox kUsualBox{.width = 160, .height = 90};

/// "01:02:03.500", as WebVTT wants it.
std::string cueTime(int64_t time) {
  const int64_t milliseconds = time / 1000;
  const int64_t seconds = milliseconds / 1000;
  return fmt::format("{:02}:{:02}:{:02}.{:03}", seconds / 3600, seconds / 60 % 60, seconds % 60,
                     milliseconds % 1000);
}

/// A file's name as the address of something in the same folder.
std::string addressOf(std::string_view name) {
  constexpr std::string_view kPlain = "-._~";
  std::string address;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isPlain = byte < 0x80 && (std::isalnum(byte) || kPlain.find(c) != kPlain.npos);
    address += isPlain ? std::string(1, c) : fmt::format("%{:02X}", byte);
  }
  return address;
}

}  // namespace

int64_t usualSpan(int64_t duration) {
  constexpr std::array<int64_t, 7> kSeconds{1, 2, 5, 10, 15, 20, 30};
  for (const int64_t seconds : kSeconds)
    if (duration <= seconds * kSecond * kUsualCount) return seconds * kSecond;
  return ((duration - 1) / (kMinute * kUsualCount) + 1) * kMinute;
}

SpritePlan planSprites(int64_t duration, int64_t span, int width, int height) {
  if (duration < 0) refuse("duration", "it is below 0");
  if (span <= 0) refuse("span", "pictures must be some time apart");
  requireNumber("width", width, 1, kLongestSide);
  requireNumber("height", height, 1, kLongestSide);
  // A rest much shorter than the others gets no picture of its own.
  const bool hasRest = duration % span > std::min(span / 10, kShortestRest);
  const int64_t count = std::max<int64_t>(duration / span + (hasRest ? 1 : 0), 1);
  const int64_t columns = std::min<int64_t>(count, kColumns);
  const int64_t rows = count / columns + (count % columns != 0 ? 1 : 0);
  if (rows > kLongestSide || std::max(columns * width, rows * height) > kLongestSide)
    throw Failure::settings(
        fmt::format("{} pictures of {}x{} are too many for one sheet: choose a longer step or a "
                    "smaller size",
                    count, width, height),
        "span");
  SpritePlan plan{.sprites = {},
                  .columns = static_cast<int>(columns),
                  .rows = static_cast<int>(rows),
                  .width = width,
                  .height = height};
  for (int64_t i = 0; i < count; ++i)
    plan.sprites.push_back({.start = i * span,
                            .end = i + 1 < count ? (i + 1) * span : duration,
                            .x = static_cast<int>(i % columns) * width,
                            .y = static_cast<int>(i / columns) * height});
  return plan;
}

std::string spriteText(const SpritePlan& plan, const std::string& sheet) {
  std::string text = "WEBVTT\n";
  const std::string address = addressOf(sheet);
  for (const auto& sprite : plan.sprites)
    text += fmt::format("\n{} --> {}\n{}#xywh={},{},{},{}\n", cueTime(sprite.start),
                        cueTime(sprite.end), address, sprite.x, sprite.y, plan.width, plan.height);
  return text;
}

Report writeSprites(const SpritesSettings& settings, const Events& events) {
  require(settings);
  const std::filesystem::path sheet = settings.output;
  OutputFile file = claimedPicture(settings);
  OutputFile text(std::filesystem::path(sheet).replace_extension(".vtt").string(),
                  settings.replaces, settings.input);
  PictureJob job(settings, settings.look, events);
  const int64_t length = job.length();
  const Size size = job.setSize(settings.size, kUsualBox);
  const int64_t step =
      timeOf("every", settings.every.value_or(usualSpan(length)), length, settings.input);
  const SpritePlan plan = planSprites(length, std::max<int64_t>(step, 1),
                                      static_cast<int>(size.width), static_cast<int>(size.height));
  BitmapContext surface(plan.columns * plan.width, plan.rows * plan.height);
  if (!surface.data()) throw std::bad_alloc();
  int64_t count = 0;
  for (const auto& sprite : plan.sprites) {
    const int64_t time = job.timeOf({sprite.start, sprite.end}, settings.best);
    const double bottom = surface.height() - sprite.y - plan.height;
    surface.drawImage(*job.pictures().pictureAt(time),
                      {{static_cast<double>(sprite.x), bottom}, size});
    if (events.progress)
      events.progress({.time = lm_ff_time_to_double(sprite.end),
                       .duration = lm_ff_time_to_double(length),
                       .pictures = ++count});
  }
  text.write(spriteText(plan, sheet.filename().string()));
  Report report = job.finish(file, *shownBy(surface), settings.quality);
  text.commit();
  return report;
}

}  // namespace kestrel
