#include "convert/pictures/PictureJob.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/BestPicture.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include "convert/settings/Require.h"

namespace kestrel {

namespace {

constexpr int kCandidatesOfSpan = 5;

/// The largest size of the picture's shape that fits into the box.
Size fitted(Size picture, const PictureBox& box) {
  double scale = box.width ? *box.width / picture.width : HUGE_VAL;
  if (box.height) scale = std::min(scale, *box.height / picture.height);
  if (!std::isfinite(scale)) return picture;
  const auto side = [&](double length) { return std::max(std::round(length * scale), 1.0); };
  return {side(picture.width), side(picture.height)};
}

/// The sides that a box has for a picture.
PictureBox boxOf(const PictureBox& asked, Size own) {
  const auto whole = [](double side) { return std::max(static_cast<int>(std::lround(side)), 1); };
  if (asked.scale)
    return {.width = whole(own.width * *asked.scale), .height = whole(own.height * *asked.scale)};
  if (!asked.lines) return asked;
  const int longer = whole(*asked.lines * 16.0 / 9);
  const bool isUpright = own.height > own.width;
  return {.width = isUpright ? *asked.lines : longer, .height = isUpright ? longer : *asked.lines};
}

}  // namespace

std::string PictureJob::name() const { return std::filesystem::path(path_).filename().string(); }

int64_t PictureJob::length() const {
  const auto duration = pictures_.duration();
  if (!duration)
    throw Failure::input(
        path_, fmt::format("how long '{}' is cannot be known: there is no sheet of it", path_));
  return *duration;
}

int64_t PictureJob::timeWithin(const Moment& moment) const {
  const auto duration = pictures_.duration();
  const int64_t time = kestrel::timeOf("time", moment, duration, path_);
  if (duration && time > *duration)
    throw Failure::settings(fmt::format("time: '{}' lies behind the end of '{}', which is at {}",
                                        formatTime(lm_ff_time_to_double(time)), path_,
                                        formatTime(lm_ff_time_to_double(*duration))),
                            "time");
  return time;
}

int64_t PictureJob::timeOf(const Span& span, bool best) {
  if (!best) return span.start + (span.end - span.start) / 2;
  return bestPictureTime(pictures_,
                         {.from = span.start, .to = span.end, .candidates = kCandidatesOfSpan});
}

Size PictureJob::sizeFor(const PictureBox& asked, const PictureBox& usual) const {
  const Size own = pictures_.size();
  const PictureBox box = boxOf(asked, own);
  if (zooms_ && box.width && box.height)
    return {static_cast<double>(*box.width), static_cast<double>(*box.height)};
  if (box.width || box.height) return fitted(own, box);
  const Size size = fitted(own, usual);
  return size.width > own.width ? own : size;
}

Size PictureJob::setSize(const PictureBox& asked, const PictureBox& usual) {
  const Size size = sizeFor(asked, usual);
  pictures_.setOutputSize(size);
  return size;
}

Report PictureJob::finish(OutputFile& file, const BitmapImage& picture,
                          std::optional<int> quality) const {
  writePicture(file, picture, quality);
  file.commit();
  return pictures_.report();
}

}  // namespace kestrel
