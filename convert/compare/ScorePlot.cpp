#include "convert/compare/ScorePlot.h"

#include <kestrel/AttributedString.h>
#include <kestrel/BitmapContext.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/PictureFile.h>
#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "convert/files/Surface.h"
#include "convert/files/Svg.h"

namespace kestrel {

namespace {

constexpr int kWidth = 1200;
constexpr int kHeight = 420;
constexpr int kLeft = 64;
constexpr int kRight = 24;
constexpr int kTop = 44;
constexpr int kBottom = 40;
constexpr int kPlotWidth = kWidth - kLeft - kRight;
constexpr int kPlotHeight = kHeight - kTop - kBottom;

constexpr PlotColor kRange{168, 200, 236};
constexpr PlotColor kMean{28, 94, 170};
constexpr PlotColor kPercentile{206, 84, 46};

/// The scores of the time that a column of the plot stands for.
struct Column {
  double least;
  double most;
  double mean;
};

/// A comparison's scores, laid out.
class Plot {
 public:
  explicit Plot(const Comparison& comparison) : comparison_(comparison) {
    first_ = comparison.scores.front().time;
    last_ = std::max(comparison.scores.back().time, first_ + 1);
    fillColumns();
    double least = finite(comparison.least);
    double most = least;
    for (const auto& column : columns_)
      if (column) most = std::max(most, column->most);
    step_ = stepFor(most - least);
    low_ = std::floor(least / step_) * step_;
    high_ = std::max(std::ceil(most / step_) * step_, low_ + step_);
  }

  const std::vector<std::optional<Column>>& columns() const { return columns_; }

  /// How far above the plot's lower edge a score lies, pixels.
  double heightOf(double score) const {
    return kPlotHeight * (std::clamp(finite(score), low_, high_) - low_) / (high_ - low_);
  }

  struct Mark {
    double place;  ///< pixels from the left or the lower edge
    std::string text;
  };

  std::vector<Mark> scoreMarks() const {
    std::vector<Mark> marks;
    const int digits = step_ < 1 ? static_cast<int>(std::ceil(-std::log10(step_))) : 0;
    for (int i = 0; low_ + i * step_ <= high_ + step_ / 2; ++i)
      marks.push_back(
          {heightOf(low_ + i * step_), fmt::format("{:.{}f}", low_ + i * step_, digits)});
    return marks;
  }

  std::vector<Mark> timeMarks() const {
    std::vector<Mark> marks;
    constexpr int kMarks = 6;
    const bool inTenths = last_ - first_ < 2 * kMarks * 1'000'000;
    for (int i = 0; i <= kMarks; ++i) {
      const double seconds = lm_ff_time_to_double(first_ + (last_ - first_) * i / kMarks);
      marks.push_back(
          {static_cast<double>(kPlotWidth) * i / kMarks,
           inTenths ? fmt::format("{:.1f} s", seconds) : formatTime(std::round(seconds))});
    }
    return marks;
  }

  std::string title() const {
    const char* names[] = {"SSIMULACRA 2", "SSIM", "PSNR, dB"};
    const int digits = comparison_.metric == PictureMetric::kSsim ? 4 : 2;
    return fmt::format("{}: mean {:.{}f}, 5th percentile {:.{}f}, least {:.{}f}, {} pictures",
                       names[static_cast<int>(comparison_.metric)], comparison_.mean, digits,
                       comparison_.percentile5, digits, comparison_.least, digits,
                       comparison_.scores.size());
  }

  double percentileHeight() const { return heightOf(comparison_.percentile5); }

 private:
  /// Equal pictures have no end of decibels; what is drawn of them has.
  static double finite(double score) { return std::isfinite(score) ? score : 100; }

  static double stepFor(double range) {
    const double wanted = std::max(range, 0.01) / 5;
    const double power = std::pow(10, std::floor(std::log10(wanted)));
    for (const double factor : {1.0, 2.0, 5.0})
      if (factor * power >= wanted) return factor * power;
    return 10 * power;
  }

  void fillColumns() {
    columns_.resize(kPlotWidth);
    std::vector<int> counts(columns_.size());
    for (const PictureScore& each : comparison_.scores) {
      const auto x =
          static_cast<size_t>((each.time - first_) * (kPlotWidth - 1) / (last_ - first_));
      const double score = finite(each.score);
      auto& column = columns_[x];
      if (!column) column = Column{score, score, 0};
      column->least = std::min(column->least, score);
      column->most = std::max(column->most, score);
      column->mean += (score - column->mean) / ++counts[x];
    }
  }

  const Comparison& comparison_;
  std::vector<std::optional<Column>> columns_;
  int64_t first_ = 0;
  int64_t last_ = 1;
  double step_ = 1;
  double low_ = 0;
  double high_ = 1;
};

std::string svgOf(const Plot& plot) {
  constexpr double kFoot = kHeight - kBottom;
  std::string svg = svgStart(kWidth, kHeight);
  svg += svgText(kLeft, kTop - 16, "start", plot.title());
  for (const auto& mark : plot.scoreMarks()) {
    svg += svgLine(kLeft, kFoot - mark.place, kWidth - kRight, kFoot - mark.place, kPlotGrid);
    svg += svgText(kLeft - 8, kFoot - mark.place + 5, "end", mark.text);
  }
  for (const auto& mark : plot.timeMarks())
    svg += svgText(kLeft + mark.place, kFoot + 22, "middle", mark.text);
  std::string ranges;
  std::string means;
  for (size_t x = 0; x < plot.columns().size(); ++x) {
    const auto& column = plot.columns()[x];
    if (!column) continue;
    const double at = kLeft + static_cast<double>(x) + 0.5;
    ranges += fmt::format("M{:.1f} {:.1f}V{:.1f}", at, kFoot - plot.heightOf(column->most) - 0.5,
                          kFoot - plot.heightOf(column->least) + 0.5);
    means += fmt::format("{}{:.1f} {:.1f}", means.empty() ? 'M' : 'L', at,
                         kFoot - plot.heightOf(column->mean));
  }
  svg += fmt::format("<path d=\"{}\" stroke=\"{}\" fill=\"none\"/>\n", ranges, colorText(kRange));
  svg += fmt::format("<path d=\"{}\" stroke=\"{}\" fill=\"none\"/>\n", means, colorText(kMean));
  const double percentile = kFoot - plot.percentileHeight();
  svg += svgLine(kLeft, percentile, kWidth - kRight, percentile, kPercentile,
                 " stroke-dasharray=\"6 4\"");
  return svg + "</svg>\n";
}

/// Draws on a bitmap whose y runs upwards from the lower edge.
class Canvas {
 public:
  Canvas() : context_(kWidth, kHeight) {
    if (!context_.data()) throw std::bad_alloc();
    fill(0, 0, kWidth, kHeight, kPlotGround);
  }

  void fill(double x, double y, double width, double height, const PlotColor& color) {
    context_.fillRect({{x, y}, {width, height}}, color.red / 255.0, color.green / 255.0,
                      color.blue / 255.0);
  }

  /// Within the plot, from left to right: a bar for each column.
  void line(const Point& from, const Point& to) {
    const double steps = std::max(to.x - from.x, 1.0);
    for (int i = 0; i <= to.x - from.x; ++i) {
      const double y = from.y + (to.y - from.y) * (i - 0.5) / steps;
      const double next = from.y + (to.y - from.y) * (i + 0.5) / steps;
      fill(kLeft + from.x + i, kBottom + std::min(y, next) - 0.75, 1, std::abs(next - y) + 1.5,
           kMean);
    }
  }

  void text(double x, double y, double width, TextAlignment alignment, const std::string& text) {
    const AttributedString string(
        text, {.font = Font::systemFontOfSize(kPlotFontSize),
               .foregroundColor = {kPlotText.red / 255.0, kPlotText.green / 255.0,
                                   kPlotText.blue / 255.0, 1},
               .paragraphStyle = {alignment, LineBreakMode::kByTruncatingTail}});
    string.drawInRect({{x, y - kPlotFontSize * 0.8}, {width, kPlotFontSize * 1.6}}, context_);
  }

  BitmapContext& context() { return context_; }

 private:
  BitmapContext context_;
};

void draw(const Plot& plot, Canvas& canvas) {
  canvas.text(kLeft, kHeight - kTop + 20, kPlotWidth, TextAlignment::kLeft, plot.title());
  for (const auto& mark : plot.scoreMarks()) {
    canvas.fill(kLeft, std::round(kBottom + mark.place), kPlotWidth, 1, kPlotGrid);
    canvas.text(0, kBottom + mark.place, kLeft - 8, TextAlignment::kRight, mark.text);
  }
  for (const auto& mark : plot.timeMarks())
    canvas.text(kLeft + mark.place - 60, kBottom - 18, 120, TextAlignment::kCenter, mark.text);
  size_t from = 0;
  std::optional<double> before;
  for (size_t x = 0; x < plot.columns().size(); ++x) {
    const auto& column = plot.columns()[x];
    if (!column) continue;
    const double low = plot.heightOf(column->least);
    canvas.fill(kLeft + static_cast<double>(x), kBottom + low, 1,
                std::max(plot.heightOf(column->most) - low, 1.0), kRange);
    const double mean = plot.heightOf(column->mean);
    canvas.line({static_cast<double>(from), before.value_or(mean)}, {static_cast<double>(x), mean});
    before = mean;
    from = x;
  }
  for (int x = 0; x < kPlotWidth; x += 10)
    canvas.fill(kLeft + x, std::round(kBottom + plot.percentileHeight()),
                std::min(6, kPlotWidth - x), 1, kPercentile);
}

}  // namespace

bool isSvg(const std::string& target) {
  if (std::filesystem::path(target).extension() == ".svg") return true;
  pictureFormatOf(target);
  return false;
}

void writeScorePlot(const Comparison& comparison, OutputFile& file) {
  const Plot plot(comparison);
  if (isSvg(file.target())) return file.write(svgOf(plot));
  Canvas canvas;
  draw(plot, canvas);
  writePicture(file, *shownBy(canvas.context()));
}

}  // namespace kestrel
