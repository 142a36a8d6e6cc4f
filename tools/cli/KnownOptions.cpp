#include "tools/cli/KnownOptions.h"

#include <fmt/format.h>

#include <algorithm>

#include "tools/terminal/Outcome.h"

using namespace kestrel;

namespace {

void addOption(Verb verb, const OptionInfo& known) {
  const std::string name = "--" + known.name;
  if (known.form == OptionForm::kSwitch) {
    verb.flag(name, known.text);
    return;
  }
  Option option = verb.option(name, known.text).type(known.value);
  if (known.form == OptionForm::kList) option.repeatable();
}

}  // namespace

void addOptions(Verb verb, const std::vector<OptionInfo>& known,
                const std::vector<std::string>& headings) {
  for (const std::string& heading : headings) {
    verb.group(heading);
    for (const OptionInfo& option : known)
      if (option.group == heading) addOption(verb, option);
  }
}

void addLookOptions(Verb verb) { addOptions(verb, knownLookOptions(), {"Look"}); }

void addSubtitleOptions(Verb verb) {
  for (const OptionInfo& option : knownLookOptions())
    if (option.name == "subtitles" || option.name == "subtitle-track") addOption(verb, option);
}

void requireSubtitles(const Verb& verb) {
  if (verb.isGiven("--subtitles") || verb.isGiven("--subtitle-track")) return;
  for (const OptionInfo& option : knownLookOptions())
    if (option.stylesSubtitles && verb.isGiven("--" + option.name))
      throw wrongUsage(fmt::format("--{} needs --subtitles or --subtitle-track", option.name));
}

ConversionOptions givenOptions(const Verb& verb, const std::vector<OptionInfo>& known) {
  ConversionOptions options;
  for (const Verb::Given& given : verb.given())
    if (std::ranges::count(known, given.name, &OptionInfo::name) > 0)
      for (const std::string& value : given.values) options.push_back({given.name, value});
  return options;
}
