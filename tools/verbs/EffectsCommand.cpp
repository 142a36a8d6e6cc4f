#include <kestrel/EffectManager.h>
#include <kestrel/convert/EffectSheet.h>
#include <kestrel/convert/Values.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "tools/cli/CommonOptions.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

struct Typed {
  bool json = false;
  bool preview = false;
  bool force = false;
  std::string time;
  std::string input;
  TypedInput source;
  std::string output;
};

int listEffects(bool asJson) {
  const auto names = EffectManager::allFilterNames();
  if (asJson) {
    nlohmann::ordered_json document;
    auto& effects = document["effects"] = nlohmann::ordered_json::array();
    for (const auto& name : names)
      effects.push_back({{"name", name}, {"description", EffectManager::descriptionOf(name)}});
    writeDocument(document);
    return kDone;
  }
  std::vector<std::vector<std::string>> rows;
  for (const auto& name : names) rows.push_back({name, EffectManager::descriptionOf(name)});
  writeStandardOutput(tableText(rows));
  return kDone;
}

int drawPreview(const Typed& typed) {
  EffectSheetSettings settings{.input = typed.input,
                               .title = typed.source.number(),
                               .angle = typed.source.angleNumber(),
                               .protocols = typed.source.protocols.list(),
                               .output = typed.output,
                               .replaces = typed.force};
  if (!typed.time.empty()) settings.time = parseMoment("--time", typed.time);
  try {
    return finish(writeEffectSheet(settings, {.interrupt = interrupted}));
  } catch (const Failure& failure) {
    throw withTypedTime(failure, typed.time);
  }
}

int effects(const Typed& typed) {
  if (!typed.preview) {
    if (!typed.input.empty()) throw wrongUsage("a file is of use with --preview only");
    if (!typed.source.title.empty() || typed.source.angle)
      throw wrongUsage("a title is of use with --preview only");
    return listEffects(typed.json);
  }
  if (typed.json) throw wrongUsage("--json lists the effects: it makes no sense with --preview");
  if (typed.output.empty()) throw wrongUsage("--preview needs a movie and a picture to write");
  return drawPreview(typed);
}

}  // namespace

void addEffectsVerb(CommandLine& line) {
  const auto typed = std::make_shared<Typed>();
  Verb verb = line.addVerb("effects", "List the looks that pictures can be given");
  verb.flag("--json", typed->json, "print one JSON document");
  verb.flag("--preview", typed->preview, "draw a sheet of all of them on one picture of a movie");
  addInputOptions(verb, typed->source);
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
