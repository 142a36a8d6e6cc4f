#include "convert/target/SampleReport.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "convert/files/Svg.h"

namespace kestrel {

namespace {

using nlohmann::ordered_json;

constexpr double kWidth = 800;
constexpr double kHeight = 420;
constexpr double kLeft = 84;
constexpr double kRight = 24;
constexpr double kTop = 44;
constexpr double kBottom = 52;
constexpr int kMarks = 5;

constexpr PlotColor kCurve{28, 94, 170};
constexpr PlotColor kWhole{60, 64, 72};
constexpr PlotColor kChosen{206, 84, 46};

double seconds(int64_t time) { return static_cast<double>(time) / 1e6; }

struct Place {
  double score;
  double kilobits;  ///< a second
};

/// What is drawn, and where on the picture.
class Curve {
 public:
  explicit Curve(const SampleReport& report) : target_(report.settings.score) {
    for (const QualityPoint& point : report.probes)
      probes_.push_back({point.score, point.bytesPerSecond * 8 / 1000});
    for (const SampleReport::Encode& each : report.encodes) {
      encodes_.push_back({each.percentile5, static_cast<double>(each.bytes) * 8 / 1000 /
                                                std::max(report.length, 1e-3)});
      if (each.crf == report.reached.crf) chosen_ = encodes_.size() - 1;
    }
    double low = target_;
    double high = target_;
    for (const auto* places : {&probes_, &encodes_})
      for (const Place& place : *places) {
        low = std::min(low, place.score);
        high = std::max(high, place.score);
        most_ = std::max(most_, place.kilobits);
      }
    low_ = std::floor((low - 1) / kMarks) * kMarks;
    high_ = std::max(std::ceil((high + 1) / kMarks) * kMarks, low_ + kMarks);
    most_ *= 1.1;
  }

  std::string svg(const std::string& title) const {
    std::string text = svgStart(kWidth, kHeight);
    text += svgText(kLeft, kTop - 16, "start", title);
    for (int i = 0; i <= kMarks; ++i) {
      const double score = low_ + (high_ - low_) * i / kMarks;
      const double kilobits = most_ * i / kMarks;
      text += svgLine(kLeft, y(kilobits), kWidth - kRight, y(kilobits), kPlotGrid);
      text += svgText(kLeft - 8, y(kilobits) + 5, "end", fmt::format("{:.0f}", kilobits));
      text += svgText(x(score), kHeight - kBottom + 20, "middle", fmt::format("{:g}", score));
    }
    text += svgText(kWidth - kRight, kHeight - 10, "end",
                    "kbit/s against the 5th percentile of SSIMULACRA 2; dots: samples, "
                    "squares: the whole file");
    text += svgLine(x(target_), kTop, x(target_), kHeight - kBottom, kChosen,
                    " stroke-dasharray=\"6 4\"");
    std::string path;
    for (const Place& place : probes_)
      path += fmt::format("{}{:.1f} {:.1f}", path.empty() ? 'M' : 'L', x(place.score),
                          y(place.kilobits));
    text += fmt::format("<path d=\"{}\" stroke=\"{}\" fill=\"none\"/>\n", path, colorText(kCurve));
    for (const Place& place : probes_)
      text += fmt::format("<circle cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"4\" fill=\"{}\"/>\n",
                          x(place.score), y(place.kilobits), colorText(kCurve));
    for (size_t i = 0; i < encodes_.size(); ++i)
      text +=
          fmt::format("<rect x=\"{:.1f}\" y=\"{:.1f}\" width=\"10\" height=\"10\" fill=\"{}\"/>\n",
                      x(encodes_[i].score) - 5, y(encodes_[i].kilobits) - 5,
                      colorText(i == chosen_ ? kChosen : kWhole));
    return text + "</svg>\n";
  }

 private:
  double x(double score) const {
    return kLeft + (kWidth - kLeft - kRight) * (score - low_) / (high_ - low_);
  }
  double y(double kilobits) const {
    return kHeight - kBottom - (kHeight - kTop - kBottom) * kilobits / most_;
  }

  const double target_;
  std::vector<Place> probes_;
  std::vector<Place> encodes_;
  size_t chosen_ = 0;
  double low_ = 0;
  double high_ = 0;
  double most_ = 1;
};

}  // namespace

std::string documentOf(const SampleReport& report) {
  const QualityReached& reached = report.reached;
  ordered_json json{{"target", report.settings.score},
                    {"per", report.settings.per == TargetQuality::Per::kScene ? "scene" : "file"},
                    {"encoder", report.encoder},
                    {"duration", report.length},
                    {"scenes", report.scenes}};
  auto& samples = json["samples"] = ordered_json::array();
  for (const Sample& each : report.samples)
    samples.push_back(
        {{"start", seconds(each.start)}, {"end", seconds(each.end)}, {"scene", each.scene + 1}});
  auto& probes = json["probes"] = ordered_json::array();
  for (const QualityPoint& each : report.probes)
    probes.push_back({{"crf", each.crf},
                      {"percentile_5", each.score},
                      {"bytes_per_second", std::llround(each.bytesPerSecond)}});
  auto& encodes = json["encodes"] = ordered_json::array();
  for (const SampleReport::Encode& each : report.encodes)
    encodes.push_back({{"crf", each.crf},
                       {"percentile_5", each.percentile5},
                       {"mean", each.mean},
                       {"least", each.least},
                       {"measured", each.measured},
                       {"size", each.bytes}});
  json["copy_size"] = report.copyBytes ? ordered_json(*report.copyBytes) : ordered_json();
  json["chosen"] = {{"crf", reached.crf},
                    {"percentile_5", reached.percentile5},
                    {"copied", reached.isCopied},
                    {"remark", reached.remark}};
  return json.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

std::string curveOf(const SampleReport& report) {
  const QualityReached& reached = report.reached;
  return Curve(report).svg(fmt::format("{}: {:.1f} of {:g} at crf {:.4g}", report.encoder,
                                       reached.percentile5, report.settings.score, reached.crf));
}

}  // namespace kestrel
