#include <kestrel/convert/Presets.h>
#include <kestrel/convert/Text.h>

#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;
using nlohmann::ordered_json;

namespace {

/// What its file holds, with the name and where it comes from.
ordered_json documentOf(const Preset& preset) {
  ordered_json document{{"name", preset.name}, {"path", nullptr}};
  if (!preset.path.empty()) document["path"] = preset.path;
  document["preset"] = ordered_json::parse(presetText(preset));
  return document;
}

void listPresets(bool asJson) {
  const auto presets = readPresets();
  if (asJson) {
    ordered_json document{{"folder", presetFolder()}};
    auto& list = document["presets"] = ordered_json::array();
    for (const Preset& preset : presets) list.push_back(documentOf(preset));
    return writeDocument(document);
  }
  std::vector<std::vector<std::string>> rows;
  for (const Preset& preset : presets)
    rows.push_back(
        {printable(preset.name), printable(preset.extension), printable(preset.description)});
  writeStandardOutput(tableText(rows));
}

int run(const std::string& name, bool asJson) {
  if (name.empty()) {
    listPresets(asJson);
  } else {
    const Preset preset = readPreset(name);
    if (asJson)
      writeDocument(documentOf(preset));
    else
      writeStandardOutput(presetText(preset));
  }
  return kDone;
}

struct Typed {
  std::string name;
  bool json = false;
};

}  // namespace

void addPresetsVerb(CommandLine& line) {
  const auto typed = std::make_shared<Typed>();
  Verb verb = line.addVerb("presets", "List the presets of 'kestrel convert --preset'");
  verb.option("name", typed->name, "what one of them sets").type("NAME|FILE").asks("presets");
  verb.flag("--json", typed->json, "print one JSON document");
  verb.footer(
      "What is printed of one may be saved, changed, and given as a file.\n\n"
      "Example:\n  kestrel presets\n  kestrel presets web-720p");
  verb.runs([typed] { return run(typed->name, typed->json); });
}
