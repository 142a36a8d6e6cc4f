#include <kestrel/EffectManager.h>
#include <kestrel/convert/Disc.h>
#include <kestrel/convert/DiscInfo.h>
#include <kestrel/convert/Encoders.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/Presets.h>
#include <kestrel/convert/Text.h>

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

using Words = std::vector<std::string>;

/// A value that fits, and what it is.
struct Value {
  std::string text;
  std::string remark = {};
};
using Values = std::vector<Value>;

Values presets() {
  Values values;
  for (const Preset& preset : readPresets()) values.push_back({preset.name, preset.description});
  return values;
}

Values effects() {
  Values values;
  for (const auto& name : EffectManager::allFilterNames())
    values.push_back({name, EffectManager::descriptionOf(name)});
  return values;
}

/// The codecs and the encoders that work here, of pictures or of sound, or of both.
Values encoders(std::optional<StreamInfo::Kind> kind) {
  Values values;
  const auto add = [&](const std::string& text, const std::string& remark) {
    if (std::ranges::count(values, text, &Value::text) == 0) values.push_back({text, remark});
  };
  for (const EncoderInfo& encoder : readEncoders()) {
    if (!encoder.isUsable() || (kind && encoder.kind != *kind)) continue;
    add(encoder.codec, "codec");
    add(encoder.name, encoder.longName);
  }
  if (kind == StreamInfo::Kind::kAudio) add("auto", "copied where nothing changes it");
  if (kind) {
    add("copy", "as it is");
    add("none", "left out");
  }
  return values;
}

/// A word as it was typed in a shell, without what keeps blanks together.
std::string unquoted(const std::string& word) {
  std::string text;
  for (size_t i = 0; i < word.size(); ++i) {
    if (word[i] == '\\' && i + 1 < word.size())
      ++i;
    else if (word[i] == '"' || word[i] == '\'')
      continue;
    text += word[i];
  }
  return text;
}

/// The first of the words, behind the verb, that is something to read.
std::string inputAmong(const Words& words) {
  for (size_t i = 1; i < words.size(); ++i)
    for (const std::string& path : {words[i], unquoted(words[i])}) {
      std::error_code ignored;
      if (!path.starts_with('-') && std::filesystem::exists(path, ignored)) return path;
    }
  return {};
}

Values titles(const Words& words) {
  const std::string input = inputAmong(words);
  if (input.empty() || !isDisc(input)) return {};
  Values values{{"main", "the main feature"}};
  for (const DiscTitleInfo& title : readDiscInfo(input).titles) {
    const int64_t wholeSeconds = title.duration / 1'000'000;
    values.push_back(
        {std::to_string(title.number), formatTime(static_cast<double>(wholeSeconds)) +
                                           (title.whyMain.empty() ? "" : ", the main feature")});
  }
  return values;
}

/// The tracks of a kind: their numbers, and the languages that they are in.
Values tracks(const Words& words, StreamInfo::Kind kind) {
  const std::string input = inputAmong(words);
  if (input.empty() || isDisc(input)) return {};
  Values numbers;
  Values languages;
  for (const StreamInfo& stream : readMediaInfo(input, std::nullopt, interrupted).streams) {
    if (stream.kind != kind) continue;
    numbers.push_back({std::to_string(numbers.size()), stream.languageName});
    if (!stream.language.empty() &&
        std::ranges::count(languages, stream.language, &Value::text) == 0)
      languages.push_back({stream.language, stream.languageName});
  }
  languages.insert(languages.end(), numbers.begin(), numbers.end());
  return languages;
}

/// The presets of the encoder that is named among the words.
Values encoderPresets(const Words& words) {
  const auto option = std::ranges::find(words, "--video-codec");
  if (words.end() - option < 2) return {};
  Values values;
  for (const EncoderInfo& encoder : readEncoders(*(option + 1))) {
    for (const std::string& name : encoder.presets)
      values.push_back({name, name == encoder.usualPreset ? "usual" : ""});
    if (!values.empty()) break;
  }
  return values;
}

Values answer(const std::string& question, const Words& words) {
  if (question == "presets") return presets();
  if (question == "effects") return effects();
  if (question == "encoders") return encoders(std::nullopt);
  if (question == "video-encoders") return encoders(StreamInfo::Kind::kVideo);
  if (question == "audio-encoders") return encoders(StreamInfo::Kind::kAudio);
  if (question == "encoder-presets") return encoderPresets(words);
  if (question == "titles") return titles(words);
  if (question == "sound-tracks") return tracks(words, StreamInfo::Kind::kAudio);
  if (question == "subtitle-tracks") return tracks(words, StreamInfo::Kind::kSubtitle);
  return {};
}

/// A line each: the value and, behind a tab, what it is. Whoever types has no use for a reason why
/// there is none.
int complete(const Words& asked) {
  std::string text;
  try {
    for (const auto& [value, remark] : answer(asked.front(), {asked.begin() + 1, asked.end()})) {
      std::string line = printable(value) + "\t" + printable(remark);
      std::ranges::replace(line, '\n', ' ');
      text += line + "\n";
    }
  } catch (const Failure&) {
    text.clear();
  }
  writeStandardOutput(text);
  return kDone;
}

}  // namespace

void addCompleteVerb(CommandLine& line) {
  const auto words = std::make_shared<Words>();
  Verb verb = line.addHiddenVerb("complete");
  verb.option("words", *words, "a question, and behind '--' what is typed").required();
  verb.runs([words] { return complete(*words); });
}
