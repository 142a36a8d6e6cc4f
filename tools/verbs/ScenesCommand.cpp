#include <kestrel/convert/Scenes.h>
#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "tools/cli/CommonOptions.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/verbs/Facts.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

struct Arguments {
  std::string input;
  TypedInput source;
  std::string sheet;
  TypedProgress progress;
  bool json = false;
  bool chapters = false;
  bool force = false;
};

nlohmann::ordered_json documentOf(const Scenes& scenes) {
  nlohmann::ordered_json document;
  auto& list = document["scenes"] = nlohmann::ordered_json::array();
  for (const Scene& scene : scenes.scenes)
    list.push_back({{"start", seconds(scene.start)}, {"end", seconds(scene.end)}});
  return document;
}

/// The simple form of chapters that Matroska's and MPEG-4's tools read.
std::string chaptersOf(const Scenes& scenes) {
  std::string text;
  int number = 0;
  for (const Scene& scene : scenes.scenes) {
    const auto milliseconds = std::llround(static_cast<double>(scene.start) / 1000);
    text += fmt::format("CHAPTER{0:02}={1:02}:{2:02}:{3:02}.{4:03}\nCHAPTER{0:02}NAME=Scene {0}\n",
                        ++number, milliseconds / 3'600'000, milliseconds / 60'000 % 60,
                        milliseconds / 1000 % 60, milliseconds % 1000);
  }
  return text;
}

std::string textOf(const Scenes& scenes) {
  std::string text;
  for (const Scene& scene : scenes.scenes)
    text +=
        fmt::format("{:>10}  {:.2f} s\n", timeText(scene.start), seconds(scene.end - scene.start));
  return text;
}

int run(const Arguments& arguments) {
  if (arguments.json && arguments.chapters)
    throw wrongUsage("--json and --chapters exclude each other");
  ProgressDisplay progress(arguments.progress.style());
  const Scenes scenes = findScenes({.input = arguments.input,
                                    .title = arguments.source.number(),
                                    .angle = arguments.source.angleNumber(),
                                    .protocols = arguments.source.protocols.list(),
                                    .sheet = arguments.sheet,
                                    .replaces = arguments.force},
                                   progress.events());
  const int status = finish(progress, scenes.report);
  if (scenes.report.outcome == Report::Outcome::kInterrupted) return status;
  if (arguments.json)
    writeDocument(documentOf(scenes));
  else
    writeStandardOutput(arguments.chapters ? chaptersOf(scenes) : textOf(scenes));
  return status;
}

}  // namespace

void addScenesVerb(CommandLine& line) {
  Verb verb = line.addVerb("scenes", "Find the scenes of a movie: its cuts, dissolves and fades");
  verb.footer(
      "Example:\n"
      "  kestrel demo bars.mp4 && kestrel scenes bars.mp4 --sheet scenes.jpg");
  auto arguments = std::make_shared<Arguments>();
  verb.option("input", arguments->input, "the movie to look at").required().type("FILE");
  verb.flag("--json", arguments->json, "print one JSON document");
  verb.flag("--chapters", arguments->chapters,
            "print them as chapters, in the simple form that tools for Matroska read");
  verb.option("--sheet", arguments->sheet, "draw a contact sheet of one picture per scene")
      .type("FILE");
  addInputOptions(verb, arguments->source);
  verb.flag("--force", arguments->force, "replace an existing file");
  addProgressOption(verb, arguments->progress);
  verb.runs([arguments] { return run(*arguments); });
}
