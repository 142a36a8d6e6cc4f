#include "tools/drawing/DemoPicture.h"

#include <fmt/format.h>
#include <kestrel/Geometry.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <new>
#include <numbers>
#include <string>

using kestrel::BitmapContext;
using kestrel::Rect;

namespace {

struct Shade {
  double r = 0;
  double g = 0;
  double b = 0;
};

// From the bottom: the band of ball and counter, the grey scale, the bars.
constexpr double kBandHeight = 0.26;
constexpr double kBarBottom = 0.34;

constexpr Shade kBlack{0.05, 0.05, 0.05};
constexpr Shade kWhite{1, 1, 1};
constexpr Shade kInk{0.95, 0.95, 0.95};
constexpr Shade kAccent{0.98, 0.62, 0.13};

/// Which of a digit's seven strokes are lit: top, upper right, lower right, bottom, lower left,
/// upper left, middle, from the lowest bit on.
constexpr std::array<unsigned, 10> kStrokes{0x3F, 0x06, 0x5B, 0x4F, 0x66,
                                            0x6D, 0x7D, 0x07, 0x7F, 0x6F};

/// Draws in fractions of the surface: x from 0 to `width()`, y from 0 to 1, lower-left origin, so
/// that shapes keep their proportions at any size.
class Painter {
 public:
  explicit Painter(BitmapContext& surface) : surface_(surface), scale_(surface.height()) {}

  double width() const { return surface_.width() / scale_; }

  /// Its edges fall on whole pixels, so that neighbours meet without a seam.
  void fill(double x, double y, double width, double height, const Shade& shade) {
    fillPixels(std::round(x * scale_), std::round(y * scale_), std::round((x + width) * scale_),
               std::round((y + height) * scale_), shade);
  }

  void disc(double x, double y, double radius, const Shade& shade) {
    const double top = (y + radius) * scale_;
    for (double row = std::floor((y - radius) * scale_); row < top; ++row) {
      const double offset = (row + 0.5) / scale_ - y;
      const double half = std::sqrt(std::max(radius * radius - offset * offset, 0.0));
      fillPixels((x - half) * scale_, row, (x + half) * scale_, row + 1, shade);
    }
  }

 private:
  void fillPixels(double left, double bottom, double right, double top, const Shade& shade) {
    const Rect rect{{left, bottom}, {right - left, top - bottom}};
    surface_.fillRect(rect, shade.r, shade.g, shade.b);
  }

  BitmapContext& surface_;
  double scale_;  // pixels of the surface's height
};

/// Seven bars at three quarters of full colour: what every analyser knows.
void drawBars(Painter& painter) {
  constexpr double kLevel = 0.75;
  const double width = painter.width() / 7;
  for (int bar = 0; bar < 7; ++bar) {
    const int color = 7 - bar;  // green is worth most, then red, then blue
    const auto level = [&](int bit) { return color & bit ? kLevel : 0.0; };
    painter.fill(bar * width, kBarBottom, width, 1 - kBarBottom, {level(2), level(4), level(1)});
  }
}

void drawGreys(Painter& painter) {
  constexpr int kSteps = 16;
  const double width = painter.width() / kSteps;
  for (int step = 0; step < kSteps; ++step) {
    const double level = static_cast<double>(step) / (kSteps - 1);
    painter.fill(step * width, kBandHeight, width, kBarBottom - kBandHeight, {level, level, level});
  }
}

void drawDial(Painter& painter, double second, bool isFlash) {
  constexpr double kRadius = 0.2;
  const double x = painter.width() / 2;
  const double y = 0.67;
  painter.disc(x, y, kRadius, isFlash ? kWhite : kBlack);
  const auto onDial = [&](double turn, double distance, double radius, const Shade& shade) {
    const double angle = turn * 2 * std::numbers::pi;
    painter.disc(x + distance * std::sin(angle), y + distance * std::cos(angle), radius, shade);
  };
  for (int hour = 0; hour < 12; ++hour)
    onDial(hour / 12.0, kRadius * 0.88, hour % 3 == 0 ? 0.012 : 0.006, isFlash ? kBlack : kInk);
  constexpr int kBeads = 24;
  for (int bead = 0; bead <= kBeads; ++bead)
    onDial(second, kRadius * 0.72 * bead / kBeads, 0.009, kAccent);
}

void drawBall(Painter& painter, double second) {
  constexpr double kRadius = 0.06;
  constexpr double kLeft = 1.0;
  constexpr double kSecondsThere = 2;
  const double phase = std::fmod(second / kSecondsThere, 2);
  const double way = phase < 1 ? phase : 2 - phase;
  const double room = painter.width() - 0.06 - kRadius - kLeft;
  painter.disc(kLeft + way * room, 0.13, kRadius, kAccent);
}

void drawDigit(Painter& painter, double x, double y, double height, unsigned digit) {
  const double stroke = height / 8;
  const double half = height / 2;
  const double width = half;
  const unsigned lit = kStrokes[digit];
  const auto draw = [&](int bit, double left, double bottom, double w, double h) {
    if (lit >> bit & 1U) painter.fill(x + left, y + bottom, w, h, kInk);
  };
  draw(0, 0, height - stroke, width, stroke);
  draw(1, width - stroke, half, stroke, half);
  draw(2, width - stroke, 0, stroke, half);
  draw(3, 0, 0, width, stroke);
  draw(4, 0, 0, stroke, half);
  draw(5, 0, half, stroke, half);
  draw(6, 0, half - stroke / 2, width, stroke);
}

void drawCounter(Painter& painter, int64_t frame, int framesPerSecond) {
  constexpr double kHeight = 0.14;
  constexpr double kBottom = 0.06;
  const int64_t seconds = frame / framesPerSecond;
  double x = 0.06;
  for (const char c :
       fmt::format("{:02}:{:02}:{:02}", seconds / 60, seconds % 60, frame % framesPerSecond)) {
    if (c == ':') {
      painter.fill(x, kBottom + kHeight * 0.25, 0.018, 0.018, kInk);
      painter.fill(x, kBottom + kHeight * 0.65, 0.018, 0.018, kInk);
      x += 0.04;
    } else {
      drawDigit(painter, x, kBottom, kHeight, static_cast<unsigned>(c - '0'));
      x += kHeight / 2 + 0.025;
    }
  }
}

}  // namespace

DemoPicture::DemoPicture(int width, int height, int framesPerSecond)
    : background_(width, height), framesPerSecond_(framesPerSecond) {
  if (!background_.data()) throw std::bad_alloc();
  Painter painter(background_);
  painter.fill(0, 0, painter.width(), kBandHeight, kBlack);
  drawGreys(painter);
  drawBars(painter);
}

void DemoPicture::draw(BitmapContext& surface, int64_t frame) const {
  const auto bytes = static_cast<size_t>(background_.bytesPerRow()) * background_.height();
  std::memcpy(surface.data(), background_.data(), bytes);
  Painter painter(surface);
  const double second = static_cast<double>(frame) / framesPerSecond_;
  drawDial(painter, second, frame % framesPerSecond_ == 0);
  drawBall(painter, second);
  drawCounter(painter, frame, framesPerSecond_);
}
