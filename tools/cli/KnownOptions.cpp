#include "tools/cli/KnownOptions.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "tools/terminal/Outcome.h"

using namespace kestrel;

namespace {

/// Of the library's options; of those that are not here nothing is known beside how a value looks.
const std::map<std::string, Choices>& allChoices() {
  static const std::map<std::string, Choices> kAll{
      {"video-codec", {.question = "video-encoders"}},
      {"audio-codec", {.question = "audio-encoders"}},
      {"encoder-preset", {.question = "encoder-presets"}},
      {"size", {.words = {"480p", "720p", "1080p", "1440p", "2160p", "50%"}}},
      {"target-quality", {.words = {"visually-lossless", "high", "good"}}},
      {"per", {.words = {"file", "scene"}}},
      {"unless-smaller", {.words = {"10%"}}},
      {"max-cost", {.words = {"35%"}}},
      {"chapters-from", {.words = {"input", "scenes"}}},
      {"passes", {.words = {"1", "2"}}},
      {"depth", {.words = {"8", "10", "12"}}},
      {"chroma", {.words = {"420", "422", "444"}}},
      {"deinterlace", {.words = {"auto", "on", "off", "bob"}}},
      {"denoise", {.words = {"light", "medium", "strong"}}},
      {"audio-tracks", {.words = {"all", "none"}, .question = "sound-tracks"}},
      {"mix", {.words = {"all"}, .question = "sound-tracks"}},
      {"channels", {.words = {"mono", "stereo", "5.1", "7.1"}}},
      {"subtitles-keep", {.words = {"all", "none"}, .question = "subtitle-tracks"}},
      {"title", {.question = "titles"}},
      {"allow-protocol", {.words = {"https", "http", "rtsp", "concat", "file"}}},
      {"format",
       {.words = {"mp4", "mkv", "mov", "webm", "ts", "mxf", "wav", "flac", "mp3", "ogg"}}},
      {"zoom", {.words = {"stretch", "fit", "16:9", "4:3", "fill-width"}}},
      {"scaler", {.words = {"lanczos3", "catmull-rom", "mitchell", "bilinear", "area"}}},
      {"hdr", {.words = {"keep", "sdr"}}},
      {"display-aspect", {.words = {"source", "4:3", "16:9"}}},
      {"effect", {.question = "effects"}},
      {"subtitle-track", {.question = "subtitle-tracks"}},
  };
  return kAll;
}

void addOption(Verb verb, const OptionInfo& known) {
  const std::string name = "--" + known.name;
  if (known.form == OptionForm::kSwitch) {
    verb.flag(name, known.text);
    return;
  }
  Option option = verb.option(name, known.text).type(known.value).offers(choicesOf(known.name));
  if (known.form == OptionForm::kList) option.repeatable();
}

}  // namespace

Choices choicesOf(const std::string& name) {
  const auto found = allChoices().find(name);
  return found == allChoices().end() ? Choices() : found->second;
}

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
