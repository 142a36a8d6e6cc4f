#include <kestrel/convert/ContactSheet.h>

#include <kestrel/AttributedString.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <new>
#include <utility>

#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/Text.h>
#include "convert/files/Surface.h"
#include "convert/pictures/PictureJob.h"
#include "convert/pictures/PictureRules.h"
#include "convert/settings/Require.h"

namespace kestrel {

namespace {

constexpr double kGround = 0.11;
constexpr Color kBright{0.96, 0.96, 0.96, 1};
constexpr Color kDim{0.70, 0.70, 0.72, 1};
constexpr int64_t kLongestSide = 32768;

constexpr double kGapShare = 1 / 40.0;      // of a picture's width
constexpr double kCaptionShare = 1 / 20.0;  // of a picture's width
constexpr double kTitleShare = 1 / 55.0;    // of the sheet's width
constexpr double kLineHeight = 1.7;         // of a font's size

int gapFor(int pictureWidth) {
  return std::max(4, static_cast<int>(std::lround(pictureWidth * kGapShare)));
}

double captionSize(int pictureWidth) {
  return std::clamp(pictureWidth * kCaptionShare, 10.0, 28.0);
}

double titleSize(int sheetWidth) { return std::clamp(sheetWidth * kTitleShare, 13.0, 40.0); }

double factsSize(int sheetWidth) { return titleSize(sheetWidth) * 0.7; }

int lineHeight(double fontSize) { return static_cast<int>(std::ceil(fontSize * kLineHeight)); }

struct Line {
  Font font;
  Color color;
  TextAlignment alignment;
  LineBreakMode lineBreakMode;
};

/// Draws a line of text in the middle of a box's height.
void drawLine(BitmapContext& surface, const Rect& box, const std::string& text, const Line& line) {
  const AttributedString string(text, {.font = line.font,
                                       .foregroundColor = line.color,
                                       .paragraphStyle = {line.alignment, line.lineBreakMode}});
  const double height = string.boundingRectWithSize(box.size).size.height;
  Rect place = box;
  place.origin.y += std::floor((box.size.height - height) / 2);
  place.size.height = height;
  string.drawInRect(place, surface);
}

}  // namespace

int ContactSheet::pictureWidthFor(int columns, int sheetWidth) {
  requireNumber("columns", columns, 1, kLongestSide);
  const double gaps = (columns + 1) * kGapShare;
  return std::max(1, static_cast<int>(sheetWidth / (columns + gaps)));
}

ContactSheet::ContactSheet(Layout layout)
    : layout_(std::move(layout)),
      gap_(gapFor(layout_.pictureWidth)),
      captionHeight_(lineHeight(captionSize(layout_.pictureWidth))) {
  require(layout_);
  const int64_t width = gap_ + int64_t{layout_.columns} * (int64_t{layout_.pictureWidth} + gap_);
  const int known = static_cast<int>(std::min(width, kLongestSide));
  headerHeight_ = gap_ + lineHeight(titleSize(known)) + lineHeight(factsSize(known));
  const int64_t height = headerHeight_ +
                         int64_t{layout_.rows} * (int64_t{layout_.pictureHeight} + captionHeight_) +
                         gap_;
  if (std::max(width, height) > kLongestSide)
    throw Failure::settings(fmt::format("a sheet of {}x{} pixels is too large", width, height),
                            width > kLongestSide ? "columns" : "rows");
  surface_ = std::make_unique<BitmapContext>(known, static_cast<int>(height));
  if (!surface_->data()) throw std::bad_alloc();
  surface_->fillRect({{}, {static_cast<double>(width), static_cast<double>(height)}}, kGround,
                     kGround, kGround);
  drawHeader();
}

void ContactSheet::drawHeader() {
  const int width = surface_->width();
  const double inner = width - 2.0 * gap_;
  const int titleHeight = lineHeight(titleSize(width));
  const int factsHeight = lineHeight(factsSize(width));
  const double top = surface_->height() - gap_;
  Font font = Font::systemFontOfSize(titleSize(width));
  font.weight = 700;
  drawLine(
      *surface_,
      {{static_cast<double>(gap_), top - titleHeight}, {inner, static_cast<double>(titleHeight)}},
      layout_.title, {font, kBright, TextAlignment::kLeft, LineBreakMode::kByTruncatingMiddle});
  drawLine(*surface_,
           {{static_cast<double>(gap_), top - titleHeight - factsHeight},
            {inner, static_cast<double>(factsHeight)}},
           layout_.facts,
           {Font::systemFontOfSize(factsSize(width)), kDim, TextAlignment::kLeft,
            LineBreakMode::kByTruncatingTail});
}

void ContactSheet::add(const BitmapImage& picture, const std::string& caption) {
  if (count_ >= layout_.columns * layout_.rows) return;
  const int column = count_ % layout_.columns;
  const int row = count_ / layout_.columns;
  ++count_;
  const double x = gap_ + column * (layout_.pictureWidth + gap_);
  const int above = headerHeight_ + gap_ / 2 + row * (layout_.pictureHeight + captionHeight_);
  const double top = surface_->height() - above;
  const double width = layout_.pictureWidth;
  const double height = layout_.pictureHeight;
  surface_->drawImage(picture, {{x, top - height}, {width, height}});
  drawLine(*surface_,
           {{x, top - height - captionHeight_}, {width, static_cast<double>(captionHeight_)}},
           caption,
           {Font::systemFontOfSize(captionSize(layout_.pictureWidth)), kDim, TextAlignment::kCenter,
            LineBreakMode::kByTruncatingTail});
}

namespace {

constexpr int64_t kSecond = 1000000;
constexpr int kUsualWidth = 1600;  // pixels, of a sheet whose pictures' size is left open

/// "0:07" or, where whole seconds are too coarse, "0:07.3".
std::string timeText(int64_t time, bool inTenths) {
  const int64_t seconds = time / kSecond;
  const std::string text = formatTime(static_cast<double>(seconds));
  return inTenths ? fmt::format("{}.{}", text, time % kSecond * 10 / kSecond) : text;
}

/// "1:02:03  ·  1920 × 1080  ·  25 fps".
std::string factsOf(const Pictures& pictures, int64_t length) {
  const Size size = pictures.size();
  const Rational rate = pictures.frameRate();
  std::string facts = fmt::format("{}  ·  {} × {}", timeText(length, length < 10 * kSecond),
                                  size.width, size.height);
  if (rate.num > 0 && rate.den > 0)
    facts += fmt::format("  ·  {} fps", formatNumber(static_cast<double>(rate.num) / rate.den, 2));
  return facts;
}

}  // namespace

Report writeContactSheet(const ContactSheetSettings& settings, const Events& events) {
  require(settings);
  OutputFile file = claimedPicture(settings);
  PictureJob job(settings, settings.look, events);
  const int64_t length = job.length();
  const Size size = job.setSize(
      settings.size,
      {.width = ContactSheet::pictureWidthFor(settings.columns, kUsualWidth), .height = {}});
  ContactSheet sheet({.columns = settings.columns,
                      .rows = settings.rows,
                      .pictureWidth = static_cast<int>(size.width),
                      .pictureHeight = static_cast<int>(size.height),
                      .title = job.name(),
                      .facts = factsOf(job.pictures(), length)});
  const int64_t count = int64_t{settings.columns} * settings.rows;
  // In a short movie neighbours are less than a second apart.
  const bool inTenths = length / count < 2 * kSecond;
  for (int64_t i = 0; i < count; ++i) {
    const int64_t time = job.timeOf({length * i / count, length * (i + 1) / count}, settings.best);
    sheet.add(*job.pictures().pictureAt(time), timeText(time, inTenths));
    if (events.progress)
      events.progress({.time = lm_ff_time_to_double(time),
                       .duration = lm_ff_time_to_double(length),
                       .pictures = i + 1});
  }
  return job.finish(file, *shownBy(sheet.surface()), settings.quality);
}

}  // namespace kestrel
