#include <kestrel/convert/Values.h>
#include <kestrel/convert/WaveformFile.h>

#include <kestrel/LMMediaSource.h>
#include <kestrel/Waveform.h>

#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/cli/CommonOptions.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

constexpr char kUsualSize[] = "1200x240";  // pixels

struct Arguments {
  std::string input, output, tracks;
  TypedInput source;
  std::string size;
  TypedProgress progress;
  double pointsPerSecond = 100;
  std::optional<int> bits;
  bool splitChannels = false;
  bool force = false;
};

/// Options that would do nothing are mistakes.
void requireMeaning(const Arguments& arguments, WaveformFileSettings::Form form) {
  const bool isPicture = form == WaveformFileSettings::Form::kPicture;
  if (isPicture && arguments.bits)
    throw wrongUsage("--bits does nothing for a picture: its numbers are those of .json and .dat");
  if (!isPicture && !arguments.size.empty())
    throw wrongUsage(fmt::format("--size does nothing for {}: it is that of a .png",
                                 std::filesystem::path(arguments.output).extension().string()));
}

WaveformSettings settingsOf(const Arguments& arguments) {
  WaveformSettings settings;
  settings.pointsPerSecond = arguments.pointsPerSecond;
  settings.splitChannels = arguments.splitChannels;
  if (arguments.tracks.empty()) return settings;
  settings.tracks = parseIndexList(arguments.tracks);
  if (!settings.tracks)
    throw wrongUsage("--tracks: '" + arguments.tracks + "' is no list of numbers such as 0,2");
  return settings;
}

int run(const Arguments& arguments) {
  const auto form = waveformFormOf(arguments.output);
  requireMeaning(arguments, form);
  const PictureBox size =
      parseBothSides("--size", arguments.size.empty() ? kUsualSize : arguments.size, kUsualSize);
  ProgressDisplay progress(arguments.progress.style());
  return finish(progress, writeWaveform({.input = arguments.input,
                                         .title = arguments.source.number(),
                                         .angle = arguments.source.angleNumber(),
                                         .protocols = arguments.source.protocols.list(),
                                         .output = arguments.output,
                                         .replaces = arguments.force,
                                         .form = form,
                                         .bits = arguments.bits.value_or(16),
                                         .width = *size.width,
                                         .height = *size.height,
                                         .waveform = settingsOf(arguments)},
                                        progress.events()));
}

}  // namespace

void addWaveVerb(CommandLine& line) {
  Verb verb = line.addVerb("wave", "Draw the waveform of a file's sound");
  verb.footer(
      "The output's extension says what it becomes: .json and .dat are the two forms that web\n"
      "players of waveforms read, .png is a picture.\n\n"
      "Example:\n  kestrel demo bars.mp4 && kestrel wave bars.mp4 bars.png");
  auto arguments = std::make_shared<Arguments>();
  verb.option("input", arguments->input, "the file to read").required().type("FILE");
  verb.option("output", arguments->output, "the file to write").required().type("FILE");
  verb.option("--points-per-second", arguments->pointsPerSecond, "how fine it is (default: 100)")
      .type("N");
  verb.option("--size", arguments->size, "of a picture, in pixels (default: 1200x240)").type("WxH");
  verb.option("--bits", arguments->bits, "of a number in .json and .dat (default: 16)")
      .type("8|16")
      .words({"8", "16"});
  verb.option("--tracks", arguments->tracks,
              "sound tracks by number, from 0 (default: the one a player chooses)")
      .type("0,2")
      .asks("sound-tracks");
  addInputOptions(verb, arguments->source);
  verb.flag("--split-channels", arguments->splitChannels,
            "every channel by itself instead of their mean");
  verb.flag("--force", arguments->force, "replace an existing target");
  addProgressOption(verb, arguments->progress);
  verb.runs([arguments] { return run(*arguments); });
}
