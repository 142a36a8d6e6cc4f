#include "tools/cli/CommonOptions.h"

#include <kestrel/Bundle.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/Values.h>

#include <algorithm>

#include "tools/cli/KnownOptions.h"
#include "tools/terminal/Outcome.h"

using namespace kestrel;

namespace {

/// Adds an option as the library tells of it, whose value goes to `value`.
template <typename Value>
Option addKnown(Verb& verb, const std::string& name, Value& value) {
  const auto known = knownConversionOptions();
  const auto option = std::ranges::find(known, name, &OptionInfo::name);
  return verb.option("--" + name, value, option->text).type(option->value).offers(choicesOf(name));
}

}  // namespace

Protocols TypedProtocols::list() const {
  Protocols list;
  for (const std::string& typed : names)
    for (std::string& name : parseProtocols("--allow-protocol", typed))
      list.push_back(std::move(name));
  return list;
}

void addProtocolOption(Verb& verb, TypedProtocols& typed) {
  addKnown(verb, "allow-protocol", typed.names).repeatable();
}

std::optional<int> TypedInput::number() const { return parseTitle("--title", title); }

void addInputOptions(Verb& verb, TypedInput& typed) {
  addKnown(verb, "title", typed.title);
  addKnown(verb, "angle", typed.angle);
  addProtocolOption(verb, typed.protocols);
}

ProgressDisplay::Style TypedProgress::style() const {
  if (text == "bar") return ProgressDisplay::Style::kBar;
  if (text == "json") return ProgressDisplay::Style::kJson;
  if (text == "none") return ProgressDisplay::Style::kNone;
  throw wrongUsage("--progress: '" + text + "' is none of bar, json and none");
}

SlurmSettings TypedSlurm::settings() const {
  return {.partition = partition,
          .arrayLimit = arrayLimit,
          .time = time,
          .program = Bundle::mainBundle().executablePath()};
}

void addSlurmOptions(Verb& verb, TypedSlurm& typed, const std::string& of) {
  verb.option("--partition", typed.partition, of + "Slurm's partition").type("NAME").notEmpty();
  verb.option("--array-limit", typed.arrayLimit, of + "how many parts are made at once at most")
      .type("N")
      .within(1, 1000000);
  verb.option("--time", typed.time, of + "the longest that a part may take, such as 1:30:00")
      .type("TIME")
      .notEmpty();
}

void addProgressOption(Verb& verb, TypedProgress& typed) {
  verb.option("--progress", typed.text,
              "bar (on a terminal; the default), json (a line each) or none")
      .type("STYLE")
      .words({"bar", "json", "none"});
}
