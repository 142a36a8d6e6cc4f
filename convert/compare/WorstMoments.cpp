#include "convert/compare/WorstMoments.h"

#include <kestrel/convert/ContactSheet.h>
#include <kestrel/convert/PictureFile.h>
#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>
#include <vector>

#include "convert/files/Surface.h"

namespace kestrel {

namespace {

constexpr size_t kMostMoments = 3;
constexpr int kStrength = 4;
constexpr double kWidestPicture = 960;

/// What two pictures of one size differ by, around black.
std::shared_ptr<const BitmapImage> differenceOf(const BitmapImage& one, const BitmapImage& other) {
  const int bytesPerRow = 4 * one.width();
  const auto pixels = std::make_shared_for_overwrite<uint8_t[]>(static_cast<size_t>(bytesPerRow) *
                                                                static_cast<size_t>(one.height()));
  for (int y = 0; y < one.height(); ++y) {
    const uint8_t* const a = one.row(y);
    const uint8_t* const b = other.row(y);
    uint8_t* const out = pixels.get() + static_cast<size_t>(y) * static_cast<size_t>(bytesPerRow);
    for (int i = 0; i < bytesPerRow; ++i)
      out[i] =
          i % 4 == 3 ? 255 : static_cast<uint8_t>(std::min(kStrength * std::abs(a[i] - b[i]), 255));
  }
  return BitmapImage::sharing(pixels, one.width(), one.height(), bytesPerRow);
}

std::vector<PictureScore> worstOf(const Comparison& comparison) {
  std::vector<PictureScore> moments;
  for (const WorstSpan& span : comparison.worst) {
    if (moments.size() == kMostMoments) break;
    const PictureScore* worst = nullptr;
    for (const PictureScore& each : comparison.scores)
      if (each.time >= span.start && each.time <= span.end && (!worst || each.score < worst->score))
        worst = &each;
    if (worst) moments.push_back(*worst);
  }
  return moments;
}

}  // namespace

void writeWorstMoments(const Comparison& comparison, Pictures& original, Pictures& copy,
                       OutputFile& file) {
  const auto moments = worstOf(comparison);
  const Size whole = original.size();
  const double scale = std::min(kWidestPicture / whole.width, 1.0);
  const Size size{std::max(std::round(whole.width * scale), 1.0),
                  std::max(std::round(whole.height * scale), 1.0)};
  original.setOutputSize(size);
  copy.setOutputSize(size);
  const std::string name = std::filesystem::path(file.target()).stem().string();
  ContactSheet sheet({.columns = 3,
                      .rows = static_cast<int>(moments.size()),
                      .pictureWidth = static_cast<int>(size.width),
                      .pictureHeight = static_cast<int>(size.height),
                      .title = name,
                      .facts = "original, copy, and what they differ by, four times as strong"});
  for (const PictureScore& moment : moments) {
    // Held beyond the next call.
    const auto before = original.pictureAt(moment.time)->copy();
    const auto after = copy.pictureAt(moment.distortedTime)->copy();
    if (!before || !after) throw std::bad_alloc();
    sheet.add(*before, fmt::format("{:.3f} s", static_cast<double>(moment.time) / 1e6));
    sheet.add(*after, fmt::format("scores {:.2f}", moment.score));
    sheet.add(*differenceOf(*before, *after), "");
  }
  writePicture(file, *shownBy(sheet.surface()));
}

}  // namespace kestrel
