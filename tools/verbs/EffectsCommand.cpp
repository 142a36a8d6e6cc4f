#include <kestrel/EffectManager.h>
#include <kestrel/ImageContext.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <memory>
#include <new>
#include <nlohmann/json.hpp>
#include <vector>

#include <kestrel/convert/ContactSheet.h>
#include <kestrel/convert/OutputFile.h>
#include <kestrel/convert/PictureFile.h>
#include <kestrel/convert/Pictures.h>
#include "tools/cli/Text.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/StandardOutput.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

constexpr int kColumns = 5;
constexpr int kSheetWidth = 2000;      // pixels
constexpr double kEffectWidth = 640;   // at which effects are applied: their sizes are in pixels
constexpr double kDefaultPlace = 0.5;  // of the movie's length

struct Typed {
  bool json = false;
  bool preview = false;
  bool force = false;
  std::string time;
  std::string input;
  std::string output;
};

int listEffects(bool asJson) {
  const auto names = EffectManager::allFilterNames();
  if (asJson) {
    nlohmann::ordered_json document;
    auto& effects = document["effects"] = nlohmann::ordered_json::array();
    for (const auto& name : names)
      effects.push_back({{"name", name}, {"description", EffectManager::descriptionOf(name)}});
    writeStandardOutput(document.dump(2) + "\n");
    return kDone;
  }
  size_t width = 0;
  for (const auto& name : names) width = std::max(width, name.size());
  std::string text;
  for (const auto& name : names)
    text += fmt::format("{:<{}}  {}\n", name, width, EffectManager::descriptionOf(name));
  writeStandardOutput(text);
  return kDone;
}

int64_t previewTime(const Typed& typed, const Pictures& input) {
  const auto duration = input.duration();
  if (typed.time.empty())
    return static_cast<int64_t>(static_cast<double>(duration.value_or(0)) * kDefaultPlace);
  const int64_t time = parseTime("--time", typed.time);
  if (duration && time > *duration)
    throw wrongUsage(
        fmt::format("--time: '{}' lies behind the end of '{}'", typed.time, typed.input));
  return time;
}

int drawPreview(const Typed& typed) {
  OutputFile target(typed.output, typed.force, typed.input);
  pictureFormatOf(typed.output);
  Pictures input({.input = typed.input}, interrupted);
  const int64_t time = previewTime(typed, input);
  const Size own = input.size();
  const double scale = std::min(1.0, kEffectWidth / own.width);
  const Size size{std::round(own.width * scale), std::max(std::round(own.height * scale), 1.0)};
  input.setOutputSize(size);

  const auto names = EffectManager::allFilterNames();
  const int count = static_cast<int>(names.size()) + 1;
  const int width =
      std::min(ContactSheet::pictureWidthFor(kColumns, kSheetWidth), static_cast<int>(size.width));
  ContactSheet sheet({.columns = kColumns,
                      .rows = (count + kColumns - 1) / kColumns,
                      .pictureWidth = width,
                      .pictureHeight = std::max(
                          static_cast<int>(std::lround(width * size.height / size.width)), 1),
                      .title = fmt::format("{} effects", names.size()),
                      .facts = std::filesystem::path(typed.input).filename().string()});
  sheet.add(*input.pictureAt(time), "untouched");
  for (const auto& name : names) {
    input.setEffect(name);
    sheet.add(*input.pictureAt(time), name);
  }
  writePicture(target, *shownBy(sheet.surface()));
  target.commit();
  return finish(input.report());
}

int effects(const Typed& typed) {
  if (!typed.preview) {
    if (!typed.input.empty()) throw wrongUsage("a file is of use with --preview only");
    return listEffects(typed.json);
  }
  if (typed.json) throw wrongUsage("--json lists the effects: it has no sense with --preview");
  if (typed.output.empty()) throw wrongUsage("--preview needs a movie and a picture to write");
  return drawPreview(typed);
}

}  // namespace

void addEffectsVerb(CommandLine& line) {
  const auto typed = std::make_shared<Typed>();
  Verb verb = line.addVerb("effects", "List the looks that pictures can be given");
  verb.flag("--json", typed->json, "print one JSON document");
  verb.flag("--preview", typed->preview, "draw a sheet of all of them on one picture of a movie");
  verb.option("--time", typed->time, "which picture (default: the one in the middle)").type("TIME");
  verb.flag("--force", typed->force, "replace an existing target");
  verb.option("input", typed->input, "the movie to preview").type("FILE");
  verb.option("output", typed->output, "the picture to write, .png or .jpg").type("FILE");
  verb.footer(
      "Example:\n  kestrel effects\n  kestrel demo bars.mp4\n"
      "  kestrel effects --preview bars.mp4 effects.png\n"
      "  kestrel convert bars.mp4 old.mp4 --effect Classical");
  verb.runs([typed] { return effects(*typed); });
}
