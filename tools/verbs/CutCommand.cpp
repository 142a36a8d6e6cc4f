#include <kestrel/convert/Cut.h>
#include <kestrel/convert/Values.h>

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
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
  std::string input, output, keep, drop;
  std::string accuracy = "exact";
  TypedProgress progress;
  TypedProtocols protocols;
  bool json = false;
  bool force = false;
};

/// "A-B": either side may be left out.
CutSpan parseSpan(const std::string& option, const std::string& text) {
  const size_t dash = text.find('-');
  if (dash == std::string::npos)
    throw wrongUsage(option + ": '" + text + "' is not a span, such as 1:20-2:05.5");
  CutSpan span;
  if (dash > 0) span.start = parseTime(option, text.substr(0, dash));
  if (dash + 1 < text.size()) span.end = parseTime(option, text.substr(dash + 1));
  return span;
}

std::vector<CutSpan> parseSpans(const std::string& option, const std::string& text) {
  std::vector<CutSpan> spans;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find(',', begin), text.size());
    spans.push_back(parseSpan(option, text.substr(begin, end - begin)));
    begin = end + 1;
  }
  return spans;
}

CutSettings::Accuracy parseAccuracy(const std::string& text) {
  if (text == "exact") return CutSettings::Accuracy::kExact;
  if (text == "key") return CutSettings::Accuracy::kKey;
  throw wrongUsage("--accuracy: '" + text + "' is none of exact and key");
}

nlohmann::ordered_json documentOf(const CutReport& report) {
  nlohmann::ordered_json document;
  auto& list = document["stretches"] = nlohmann::ordered_json::array();
  for (const CutStretch& stretch : report.stretches) {
    nlohmann::ordered_json entry{{"kind", stretch.kind},
                                 {"stream", stretch.stream},
                                 {"start", seconds(stretch.start)},
                                 {"end", seconds(stretch.end)},
                                 {"action", stretch.isEncoded ? "encoded" : "copied"},
                                 {"packets", stretch.packets}};
    if (!stretch.why.empty()) entry["why"] = stretch.why;
    if (stretch.ssim) entry["ssim"] = *stretch.ssim;
    list.push_back(std::move(entry));
  }
  document["proof"] = {
      {"seams", report.seams}, {"equal", report.equalPictures}, {"alike", report.alikePictures}};
  document["encoded"] = report.report.encoded;
  document["leftOut"] = report.report.leftOut;
  return document;
}

std::string counted(int64_t count, const char* what) {
  return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string textOf(const CutReport& report) {
  std::string text;
  for (const CutStretch& stretch : report.stretches) {
    text += fmt::format("{:<6}{:>12} to {:<12}{} {}", stretch.kind, timeText(stretch.start),
                        timeText(stretch.end), stretch.isEncoded ? "encoded" : "copied",
                        counted(stretch.packets, stretch.kind == "video" ? "picture" : "packet"));
    if (stretch.ssim) text += fmt::format(", SSIM {:.4f} at least", *stretch.ssim);
    text += stretch.why.empty() ? "\n" : fmt::format(": {}\n", stretch.why);
  }
  return text + fmt::format("proven at {}: {} copied equal, {} encoded alike\n",
                            counted(report.seams, "seam"), counted(report.equalPictures, "picture"),
                            counted(report.alikePictures, "picture"));
}

int run(const Arguments& arguments) {
  CutSettings settings{.input = arguments.input,
                       .output = arguments.output,
                       .keep = parseSpans("--keep", arguments.keep),
                       .drop = parseSpans("--drop", arguments.drop),
                       .accuracy = parseAccuracy(arguments.accuracy),
                       .replaces = arguments.force,
                       .protocols = arguments.protocols.list()};
  ProgressDisplay progress(arguments.progress.style());
  const CutReport report = cut(settings, progress.events());
  const int status = finish(progress, report.report);
  if (report.report.outcome == Report::Outcome::kInterrupted) return status;
  if (arguments.json)
    writeDocument(documentOf(report));
  else
    writeStandardOutput(textOf(report));
  return status;
}

}  // namespace

void addCutVerb(CommandLine& line) {
  Verb verb = line.addVerb("cut", "Cut a movie without encoding it, and prove it");
  verb.footer(
      "Groups of pictures within a span are copied; only what a border leaves of a group is\n"
      "encoded, in the movie's own form. Each seam is decoded again and compared with the "
      "input.\n\n"
      "Example:\n"
      "  kestrel demo bars.mp4 && kestrel cut bars.mp4 part.mp4 --keep 0.5-1.5,2-3.2");
  auto arguments = std::make_shared<Arguments>();
  verb.option("input", arguments->input, "the movie to cut").required().type("FILE");
  verb.option("output", arguments->output, "the file to write").required().type("FILE");
  verb.option("--keep", arguments->keep, "what stays; either side of a span may be left out")
      .type("A-B[,C-D...]")
      .notEmpty();
  verb.option("--drop", arguments->drop, "what goes").type("A-B[,C-D...]").notEmpty();
  verb.option("--accuracy", arguments->accuracy,
              "exact, or key: whole groups of pictures, so that none is encoded")
      .type("HOW")
      .words({"exact", "key"});
  verb.flag("--json", arguments->json, "print one JSON document");
  addProtocolOption(verb, arguments->protocols);
  verb.flag("--force", arguments->force, "replace an existing target");
  addProgressOption(verb, arguments->progress);
  verb.runs([arguments] { return run(*arguments); });
}
