#include <kestrel/convert/Compare.h>

#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/OutputFile.h>
#include <kestrel/convert/PictureFile.h>
#include <kestrel/convert/Pictures.h>
#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <cmath>
#include <optional>
#include <string>
#include <utility>

#include "convert/compare/FindOffset.h"
#include "convert/compare/PairScorer.h"
#include "convert/compare/PicturePairs.h"
#include "convert/compare/ScorePlot.h"
#include "convert/compare/ScoreStatistics.h"
#include "convert/compare/WorstMoments.h"
#include "convert/files/SameFile.h"
#include "convert/settings/Require.h"

namespace kestrel {

namespace {

constexpr int kMostEvery = 1000000;
constexpr double kLongestOffset = 1e6;  // seconds

std::string sizeText(Size size) { return fmt::format("{}x{}", size.width, size.height); }

std::string rateText(Rational rate) {
  return rate.num > 0 && rate.den > 0 ? formatNumber(static_cast<double>(rate.num) / rate.den, 3)
                                      : "unknown";
}

bool isSameRate(Rational one, Rational other) {
  return int64_t{one.num} * other.den == int64_t{other.num} * one.den;
}

/// What has to be done to compare two movies, a sentence each.
std::vector<std::string> notesOn(const Pictures& original, const Pictures& copy, double offset) {
  std::vector<std::string> notes;
  if (original.size() != copy.size())
    notes.push_back(fmt::format("the copy is scaled from {} to {}", sizeText(copy.size()),
                                sizeText(original.size())));
  if (!isSameRate(original.frameRate(), copy.frameRate()))
    notes.push_back(fmt::format("the rates differ: {} and {} pictures a second",
                                rateText(original.frameRate()), rateText(copy.frameRate())));
  if (offset != 0)
    notes.push_back(fmt::format("the copy's pictures come {} s {}",
                                formatNumber(std::abs(offset), 3),
                                offset > 0 ? "later" : "earlier"));
  return notes;
}

/// Claims a file that is written at the end, where there is a name for it. It replaces neither
/// movie.
void claim(std::optional<OutputFile>& file, const std::string& target,
           const CompareSettings& settings) {
  if (target.empty()) return;
  requireNoInput(target, {settings.original, settings.distorted});
  file.emplace(target, settings.replaces);
}

/// Adds what a movie's own report says.
void addTo(Report& report, const Report& other) {
  for (const std::string& finding : other.findings) report.find(finding);
}

class Comparer {
 public:
  Comparer(const CompareSettings& settings, const Events& events)
      : settings_(settings),
        events_(events),
        original_(pictures(settings.original)),
        copy_(pictures(settings.distorted)) {}

  Comparison run() {
    const double offset = settings_.offset.value_or(
        lm_ff_time_to_double(settings_.offset ? 0 : findOffset(settings_, events_.interrupt)));
    Comparison result;
    result.metric = settings_.metric;
    result.offset = offset;
    result.notes = notesOn(original_, copy_, offset);
    if (events_.note)
      for (const std::string& note : result.notes) events_.note(note);
    PicturePairs pairs(original_, copy_, static_cast<int64_t>(std::llround(offset * 1e6)));
    const auto scorer = makeScorer(
        settings_.metric, original_, copy_,
        {videoOf(settings_.original).orientation, videoOf(settings_.distorted).orientation});
    for (int64_t i = 0; const auto pair = pairs.next(); ++i) {
      if (i % settings_.every != 0) continue;
      result.scores.push_back({pair->original.start, pair->copy.start, scorer->score(*pair)});
      tell(result);
    }
    pairs.readOn();
    if (result.scores.empty())
      throw Failure::input(settings_.distorted,
                           fmt::format("'{}' and '{}' have no picture at the same time",
                                       settings_.original, settings_.distorted));
    result.originalPictures = pairs.originals().read;
    result.distortedPictures = pairs.copies().read;
    result.unpairedOriginals = pairs.originals().unpaired();
    result.unpairedDistorted = pairs.copies().unpaired();
    result.components = scorer->components();
    summarise(result);
    addTo(result.report, original_.report());
    addTo(result.report, copy_.report());
    return result;
  }

  Pictures& original() { return original_; }
  Pictures& copy() { return copy_; }

 private:
  Pictures pictures(const std::string& input) const;

  VideoInfo videoOf(const std::string& input) const {
    const MediaInfo info = readMediaInfo(input, {}, events_.interrupt, 1, settings_.protocols);
    return info.mainVideo ? info.streams[*info.mainVideo].video : VideoInfo{};
  }

  void tell(const Comparison& result) const {
    if (!events_.progress) return;
    const auto duration = original_.duration();
    events_.progress(
        {.time = lm_ff_time_to_double(result.scores.back().time),
         .duration = duration ? std::optional(lm_ff_time_to_double(*duration)) : std::nullopt,
         .pictures = static_cast<int64_t>(result.scores.size())});
  }

  const CompareSettings& settings_;
  const Events& events_;
  Pictures original_;
  Pictures copy_;
};

/// Pictures as they were coded: what is to be compared is not deinterlaced.
Pictures Comparer::pictures(const std::string& input) const {
  return Pictures(
      {.input = input, .protocols = settings_.protocols, .deinterlacing = Deinterlacing::kOff},
      events_.interrupt);
}

}  // namespace

Comparison compare(const CompareSettings& settings, const Events& events) {
  requireNumber("every", settings.every, 1, kMostEvery);
  if (settings.offset && !(std::abs(*settings.offset) <= kLongestOffset))
    refuse("offset", "it is a number of seconds");
  if (!settings.plot.empty()) isSvg(settings.plot);
  if (!settings.plot.empty() && settings.plot == settings.worst) refuseBeside("worst", "plot");
  if (!settings.worst.empty()) pictureFormatOf(settings.worst);
  std::optional<OutputFile> plot;
  std::optional<OutputFile> worst;
  claim(plot, settings.plot, settings);
  claim(worst, settings.worst, settings);
  try {
    Comparer comparer(settings, events);
    Comparison result = comparer.run();
    if (plot) {
      writeScorePlot(result, *plot);
      plot->commit();
    }
    if (worst) {
      writeWorstMoments(result, comparer.original(), comparer.copy(), *worst);
      worst->commit();
    }
    return result;
  } catch (const Failure& failure) {
    if (failure.kind() != Failure::Kind::kInterrupted) throw;
    Comparison result;
    result.report = Report::interrupted();
    return result;
  }
}

}  // namespace kestrel
