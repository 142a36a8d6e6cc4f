#include <kestrel/convert/Compare.h>
#include <kestrel/convert/Text.h>
#include <kestrel/convert/Values.h>

#include <fmt/format.h>

#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/CommonOptions.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/verbs/Facts.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

struct Arguments {
  std::string original, distorted;
  TypedProtocols protocols;
  std::string metric = "ssimulacra2";
  std::optional<double> offset;
  std::optional<double> atLeast;
  std::optional<int> every;
  std::string plot, worst;
  TypedProgress progress;
  bool json = false;
  bool pictures = false;
  bool force = false;
};

constexpr const char* kMetrics[] = {"ssimulacra2", "ssim", "psnr"};

PictureMetric parseMetric(const std::string& text) {
  std::vector<std::string> names;
  for (size_t i = 0; i < std::size(kMetrics); ++i) {
    names.emplace_back(kMetrics[i]);
    if (text == names.back()) return static_cast<PictureMetric>(i);
  }
  throw wrongUsage(fmt::format("--metric: '{}' is not ssimulacra2, ssim or psnr{}", text,
                               nearestNames(text, names)));
}

/// A score as a number of JSON, which has none for infinity.
nlohmann::ordered_json number(double score) {
  if (std::isfinite(score)) return score;
  return "inf";
}

nlohmann::ordered_json documentOf(const Comparison& comparison, bool withPictures) {
  nlohmann::ordered_json document{{"metric", kMetrics[static_cast<int>(comparison.metric)]},
                                  {"mean", number(comparison.mean)},
                                  {"harmonic_mean", number(comparison.harmonicMean)},
                                  {"percentile_5", number(comparison.percentile5)},
                                  {"least", number(comparison.least)},
                                  {"pairs", comparison.scores.size()},
                                  {"offset", comparison.offset},
                                  {"original_pictures", comparison.originalPictures},
                                  {"distorted_pictures", comparison.distortedPictures},
                                  {"unpaired_originals", comparison.unpairedOriginals},
                                  {"unpaired_distorted", comparison.unpairedDistorted},
                                  {"notes", comparison.notes},
                                  {"findings", comparison.report.findings}};
  for (const ComponentScore& each : comparison.components)
    document["components"][each.name] = number(each.score);
  auto& worst = document["worst"] = nlohmann::ordered_json::array();
  for (const WorstSpan& span : comparison.worst)
    worst.push_back({{"start", seconds(span.start)},
                     {"end", seconds(span.end)},
                     {"mean", number(span.mean)},
                     {"least", number(span.least)}});
  if (!withPictures) return document;
  auto& pictures = document["pictures"] = nlohmann::ordered_json::array();
  for (const PictureScore& each : comparison.scores)
    pictures.push_back({{"time", seconds(each.time)},
                        {"distorted_time", seconds(each.distortedTime)},
                        {"score", number(each.score)}});
  return document;
}

std::string textOf(const Comparison& comparison) {
  const bool isSsim = comparison.metric == PictureMetric::kSsim;
  const auto shown = [&](double score) { return fmt::format("{:.{}f}", score, isSsim ? 5 : 2); };
  const char* const names[] = {"SSIMULACRA 2", "SSIM", "PSNR, dB"};
  std::string text = fmt::format(
      "{}: {} pairs of pictures\n"
      "  mean            {}\n  harmonic mean   {}\n  5th percentile  {}\n  least           {}\n",
      names[static_cast<int>(comparison.metric)], comparison.scores.size(), shown(comparison.mean),
      shown(comparison.harmonicMean), shown(comparison.percentile5), shown(comparison.least));
  for (const ComponentScore& each : comparison.components)
    text += fmt::format("  {:<14}  {}\n", each.name == "all" ? "all together" : each.name,
                        shown(each.score));
  text += "worst:\n";
  for (const WorstSpan& span : comparison.worst)
    text += fmt::format("  {} to {}  {}\n", timeText(span.start), timeText(span.end),
                        shown(span.least));
  if (comparison.unpairedOriginals > 0)
    text += fmt::format("{} of {} pictures of the original have none in the copy\n",
                        comparison.unpairedOriginals, comparison.originalPictures);
  if (comparison.unpairedDistorted > 0)
    text += fmt::format("{} of {} pictures of the copy have none in the original\n",
                        comparison.unpairedDistorted, comparison.distortedPictures);
  return text;
}

int run(const Arguments& arguments) {
  if (arguments.pictures && !arguments.json)
    throw wrongUsage("--pictures does nothing without --json");
  ProgressDisplay progress(arguments.progress.style());
  const Comparison comparison = compare({.original = arguments.original,
                                         .distorted = arguments.distorted,
                                         .protocols = arguments.protocols.list(),
                                         .metric = parseMetric(arguments.metric),
                                         .every = arguments.every.value_or(1),
                                         .offset = arguments.offset,
                                         .plot = arguments.plot,
                                         .worst = arguments.worst,
                                         .replaces = arguments.force},
                                        progress.events());
  const int status = finish(progress, comparison.report);
  if (comparison.report.outcome == Report::Outcome::kInterrupted) return status;
  if (arguments.json) {
    writeDocument(documentOf(comparison, arguments.pictures));
  } else {
    for (const std::string& note : comparison.notes) writeStandardOutput(note + "\n");
    writeStandardOutput(textOf(comparison));
  }
  const bool isEnough = !arguments.atLeast || comparison.percentile5 >= *arguments.atLeast;
  return isEnough ? status : kTooLow;
}

}  // namespace

void addCompareVerb(CommandLine& line) {
  Verb verb = line.addVerb("compare", "Measure how like its original a copy of a movie looks");
  verb.footer(
      "SSIMULACRA 2 tells what people see: 90 and above cannot be told apart, 70 is high quality,\n"
      "50 medium, 30 low. Rates, sizes and offsets may differ.\n\n"
      "Example:\n"
      "  kestrel demo bars.mp4 && kestrel convert bars.mp4 small.mp4 --quality 40 &&\n"
      "  kestrel compare bars.mp4 small.mp4 --plot scores.svg");
  auto arguments = std::make_shared<Arguments>();
  verb.option("original", arguments->original, "the movie as it was").required().type("FILE");
  verb.option("distorted", arguments->distorted, "the copy of it").required().type("FILE");
  verb.option("--metric", arguments->metric, "ssimulacra2 (default), ssim or psnr")
      .type("NAME")
      .words({"ssimulacra2", "ssim", "psnr"});
  verb.option("--every", arguments->every, "compare only every N-th pair (default: 1)").type("N");
  verb.option("--offset", arguments->offset,
              "by how much the copy's pictures come later, seconds (default: looked for)")
      .type("SECONDS");
  verb.option("--at-least", arguments->atLeast,
              "end with status 4 where the 5th percentile is below")
      .type("SCORE");
  verb.option("--plot", arguments->plot, "draw the scores over time into this .svg or picture")
      .type("FILE");
  verb.option("--worst", arguments->worst,
              "show the worst moments, side by side and what differs, in this picture")
      .type("FILE");
  verb.flag("--json", arguments->json, "print one JSON document");
  verb.flag("--pictures", arguments->pictures, "with each pair's score in it");
  addProtocolOption(verb, arguments->protocols);
  verb.flag("--force", arguments->force, "replace existing files");
  addProgressOption(verb, arguments->progress);
  verb.runs([arguments] { return run(*arguments); });
}
