#include "WaveCommand.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/Waveform.h>

#include <CLI/CLI.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "DrawnWave.h"
#include "Failure.h"
#include "Input.h"
#include "InputEnd.h"
#include "OutputFile.h"
#include "Progress.h"
#include "Text.h"
#include "WaveFile.h"

extern "C" {
#include <libavformat/avformat.h>
}

using namespace kestrel;

namespace {

constexpr char kUsualSize[] = "1200x240";  // pixels
constexpr int kLargestSide = 16384;
constexpr int64_t kMostPixels = int64_t{1} << 27;

struct Arguments {
  std::string input, output, tracks;
  std::string size;
  std::string progress = "bar";
  double pointsPerSecond = 100;
  std::optional<int> bits;
  bool splitChannels = false;
  bool force = false;
};

PictureSize parsePictureSize(const std::string& text) {
  PictureSize size;
  try {
    size = parseSize("--size", text.empty() ? kUsualSize : text);
  } catch (const Failure&) {
    size = {};
  }
  const bool isPossible = size.width && size.height &&
                          std::max(*size.width, *size.height) <= kLargestSide &&
                          int64_t{*size.width} * *size.height <= kMostPixels;
  if (!isPossible)
    throw wrongUsage(fmt::format(
        "--size: '{}' is not a size such as 1200x240, with up to {} pixels a side and {} in all",
        text, kLargestSide, kMostPixels));
  return size;
}

/// Options that would do nothing are mistakes.
void requireMeaning(const Arguments& arguments, const std::string& extension) {
  if (extension == ".png" && arguments.bits)
    throw wrongUsage("--bits does nothing for a picture: its numbers are those of .json and .dat");
  if (extension != ".png" && !arguments.size.empty())
    throw wrongUsage(fmt::format("--size does nothing for {}: it is that of a .png", extension));
  if (arguments.bits && *arguments.bits != 8 && *arguments.bits != 16)
    throw wrongUsage("--bits is 8 or 16");
}

WaveformSettings settingsOf(const Arguments& arguments) {
  WaveformSettings settings;
  settings.pointsPerSecond = arguments.pointsPerSecond;
  if (!(settings.pointsPerSecond > 0))
    throw wrongUsage("--points-per-second: the number must be above 0");
  settings.splitChannels = arguments.splitChannels;
  if (arguments.tracks.empty()) return settings;
  settings.tracks = parseIndexList(arguments.tracks);
  if (!settings.tracks)
    throw wrongUsage("--tracks: '" + arguments.tracks + "' is no list of numbers such as 0,2");
  return settings;
}

int run(const Arguments& arguments) {
  const std::string extension =
      lowerCased(std::filesystem::path(arguments.output).extension().string());
  if (extension != ".json" && extension != ".dat" && extension != ".png")
    throw wrongUsage(fmt::format("'{}' is neither .json nor .dat nor .png", arguments.output));
  requireMeaning(arguments, extension);
  const int bits = arguments.bits.value_or(16);
  const PictureSize size = parsePictureSize(arguments.size);
  WaveformSettings settings = settingsOf(arguments);
  const auto source = openInput(arguments.input);
  OutputFile target(arguments.output, arguments.force, arguments.input);

  const int64_t duration = source->formatContext()->duration;
  const double length =
      duration == AV_NOPTS_VALUE ? 0 : static_cast<double>(duration) / AV_TIME_BASE;
  // A picture wants a point for each of its columns.
  if (extension == ".png" && length > 0)
    settings.pointsPerSecond = std::max(settings.pointsPerSecond, *size.width / length);
  Progress progress(parseProgressStyle("--progress", arguments.progress), length);
  settings.progress = [&](double, double seconds) { progress.update(seconds, 0); };
  const auto drawn = drawWave(arguments.input, source, settings);
  if (!drawn) return kInterrupted;
  progress.finish();
  if (extension == ".json")
    writeWaveJson(drawn->waveform, bits, target.path(), arguments.output);
  else if (extension == ".dat")
    writeWaveData(drawn->waveform, bits, target.path(), arguments.output);
  else
    writeWavePicture(drawn->waveform, *size.width, *size.height, target.path(), arguments.output);
  target.commit();
  return judgeInput(arguments.input, drawn->promised, drawn->end);
}

}  // namespace

void addWaveCommand(CLI::App& app, Run& run_) {
  auto* verb = app.add_subcommand("wave", "Draw the waveform of a file's sound");
  verb->footer(
      "The output's extension says what it becomes: .json and .dat are the two forms that web\n"
      "players of waveforms read, .png is a picture.\n\n"
      "Example:\n  kestrel demo bars.mp4 && kestrel wave bars.mp4 bars.png");
  auto arguments = std::make_shared<Arguments>();
  verb->add_option("input", arguments->input, "the file to read")->required();
  verb->add_option("output", arguments->output, "the file to write")->required();
  verb->add_option("--points-per-second", arguments->pointsPerSecond,
                   "how fine it is (default: 100)")
      ->type_name("N");
  verb->add_option("--size", arguments->size, "of a picture, in pixels (default: 1200x240)")
      ->type_name("WxH");
  verb->add_option("--bits", arguments->bits, "of a number in .json and .dat (default: 16)")
      ->type_name("8|16");
  verb->add_option("--tracks", arguments->tracks,
                   "sound tracks by number, from 0 (default: the one a player chooses)")
      ->type_name("0,2");
  verb->add_flag("--split-channels", arguments->splitChannels,
                 "every channel by itself instead of their mean");
  verb->add_flag("--force", arguments->force, "replace an existing target");
  verb->add_option("--progress", arguments->progress,
                   "bar (on a terminal), json (a line each) or none")
      ->type_name("STYLE");
  verb->callback([arguments, &run_] { run_ = [arguments] { return run(*arguments); }; });
}
