#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <kestrel/convert/Conversion.h>
#include <kestrel/convert/ConversionOptions.h>
#include <kestrel/convert/Presets.h>
#include "tools/cli/LookOptions.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/terminal/Say.h"
#include "tools/terminal/StandardOutput.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

/// What was typed beside the options of the conversion itself.
struct Typed {
  std::string input, output, preset, savedPreset;
  std::string progress = "bar";
  bool force = false;
};

/// Refuses options that shape an encoded stream where it is copied or left out: they would do
/// nothing. `groups`: the headings under which the help shows them.
void requireEncoding(const Verb& verb, const std::string& codecOption, const std::string& codec,
                     const std::vector<std::string>& groups) {
  if (codec != "copy" && codec != "none") return;
  for (const Option& option : verb.options()) {
    const bool isShaping = std::ranges::count(groups, option.group()) > 0 &&
                           option.name() != codecOption && option.name() != "--audio-tracks" &&
                           option.name() != "--mix";
    if (isShaping && option.isGiven())
      throw wrongUsage(
          fmt::format("{} does nothing beside {} {}", option.name(), codecOption, codec));
  }
}

std::string valueOf(const ConversionOptions& options, const std::string& name) {
  const auto option = std::ranges::find(options, name, &ConversionOption::name);
  return option == options.end() ? std::string() : option->value;
}

void requireEffect(const Verb& verb, const ConversionOptions& options) {
  requireEncoding(verb, "--video-codec", valueOf(options, "video-codec"), {"Picture", "Look"});
  requireEncoding(verb, "--audio-codec", valueOf(options, "audio-codec"), {"Sound"});
}

/// What was asked for: the preset with the options that were typed.
struct Request {
  Preset preset;
  ConversionOptions options;
};

Request requestOf(const Typed& typed, const Verb& verb) {
  Request request;
  request.options = givenOptions(verb, conversionOptionNames());
  requireEffect(verb, request.options);
  if (!typed.preset.empty()) request.preset = readPreset(typed.preset);
  return request;
}

/// Keeps what was typed, on top of the preset, as another preset.
int save(const Typed& typed, const Request& request) {
  Preset preset{.name = typed.savedPreset,
                .extension = request.preset.extension,
                .options = withDefaults(request.options, request.preset.options)};
  const std::string extension = std::filesystem::path(typed.output).extension().string();
  if (!extension.empty()) preset.extension = extension.substr(1);
  say(fmt::format("saved '{}'", savePreset(preset, typed.force)));
  return kDone;
}

int run(const Typed& typed, const Verb& verb) {
  const Request request = requestOf(typed, verb);
  if (!typed.savedPreset.empty()) {
    save(typed, request);
    if (typed.input.empty()) return kDone;
  }
  if (typed.input.empty()) throw wrongUsage("input is required");
  if (typed.output.empty()) throw wrongUsage("output is required");
  ConversionSettings settings = settingsWith(request.preset, request.options);
  requireSubtitles(verb);
  settings.input = typed.input;
  settings.output = targetWith(typed.output, request.preset);
  settings.replaces = typed.force;
  ProgressDisplay progress(parseProgressStyle("--progress", typed.progress));
  Events events = progress.events();
  events.note = say;
  return finish(progress, Conversion(settings).run(events));
}

void addVideoOptions(Verb verb) {
  verb.group("Picture");
  verb.option("--video-codec",
              "codec (h264, hevc, vp9, av1 …), encoder (libx264 …), 'copy' or 'none'")
      .type("NAME");
  verb.option("--size", "size in pixels; a side '-' keeps the shape; 720p fits into 1280x720")
      .type("WxH|720p|50%");
  verb.flag("--no-upscale", "pictures that are smaller than the size keep their own");
  verb.option("--fps", "pictures per second (default: source, each picture at its own time)")
      .type("N[/D]");
  verb.option("--max-fps", "pictures per second at most").type("N[/D]");
  verb.option("--aspect", "display aspect (default: the source's)").type("W:H");
  verb.option("--quality",
              "how good the pictures are, 0 to 100, alike for all encoders (default: 60)")
      .type("N");
  verb.option("--crf", "the same in the encoder's own numbers").type("N");
  verb.option("--video-bitrate", "bits per second, in place of a quality").type("RATE");
  verb.option("--size-limit", "the whole file's most bytes: 25M (25 million), 700Mi").type("SIZE");
  verb.option(
          "--passes",
          "1 or 2: how often the encoder goes through the pictures (default: 2 for a size limit)")
      .type("N");
  verb.option("--encoder-preset", "the encoder's preset (see 'kestrel encoders')").type("NAME");
  verb.option("--keyframes", "seconds between key pictures (default: 10)").type("SECONDS");
  verb.flag("--compatible", "8-bit 4:2:0 pictures, which every player shows");
  verb.option("--depth", "bits of a component: 8, 10 … (default: the source's)").type("BITS");
  verb.option("--chroma", "samples of colour: 420, 422 or 444 (default: the source's)")
      .type("SAMPLES");
  verb.option("--deinterlace",
              "auto: interlaced pictures; on: all; off (default: off, for discs auto)")
      .type("WHEN");
  verb.option("--video-option", "an option of the encoder's own").type("KEY=VALUE").repeatable();
}

void addAudioOptions(Verb verb) {
  verb.group("Sound");
  verb.option("--audio-codec", "codec (aac, mp3, opus, flac …), 'copy' or 'none'").type("NAME");
  verb.option("--audio-tracks",
              "tracks to keep (default: all): numbers from 0, a language code, 'all' or 'none'")
      .type("0,2|LANG");
  verb.option("--mix", "tracks that become one, chosen likewise").type("0,2|all");
  verb.option("--audio-bitrate", "bits per second (default: 96k for each channel)").type("RATE");
  verb.option("--sample-rate", "Hz (default: the track's own)").type("HZ").within(1000, 768000);
  verb.option("--channels", "layout: mono, stereo, 5.1 … (default: the track's own)")
      .type("LAYOUT");
  verb.option("--volume", "factor on the loudness (default: 1)").type("X");
  verb.option("--audio-option", "an option of the encoder's own").type("KEY=VALUE").repeatable();
}

void addOtherOptions(Verb verb) {
  verb.group("Other streams");
  verb.option("--subtitles-keep",
              "subtitles that go along (default: all the container holds): numbers from 0, a "
              "language code, 'all' or 'none'")
      .type("0,2|LANG");
  verb.flag("--no-attachments", "leave covers and fonts out");
  verb.group("Span and file");
  verb.option("--start", "seconds, [hh:]mm:ss.mmm or 1m30s").type("TIME");
  verb.option("--end", "where to stop, in the source's time").type("TIME");
  verb.option("--duration", "how much to convert").type("TIME");
  verb.option("--chapters", "chapters to convert, counted from 1").type("A[-B]");
  verb.option("--title", "of a disc: a number (see 'kestrel dvd') or 'main'").type("N|main");
  verb.flag("--no-metadata", "leave tags and chapters out");
}

}  // namespace

void addConvertVerb(CommandLine& line) {
  Verb verb = line.addVerb("convert", "Convert a movie or sound file into another");
  verb.footer(
      "The container follows the target's extension. Without options the result plays\n"
      "everywhere: H.264 and AAC where the container is mp4.\n\n"
      "Example:\n"
      "  kestrel demo example.mp4 && kestrel convert example.mp4 small.mp4 --size 640x-");
  const auto typed = std::make_shared<Typed>();
  verb.option("input", typed->input, "the file or disc to read");
  verb.option("output", typed->output, "the file to write");
  verb.option("--preset", typed->preset,
              "a preset (see 'kestrel presets') or its file; options that are given win")
      .type("NAME|FILE");
  verb.option("--save-preset", typed->savedPreset, "keep these options as a preset of your own")
      .type("NAME");
  addVideoOptions(verb);
  addLookOptions(verb);
  addAudioOptions(verb);
  addOtherOptions(verb);
  verb.flag("--force", typed->force, "replace an existing target");
  verb.option("--progress", typed->progress, "bar (on a terminal), json (a line each) or none")
      .type("STYLE");
  verb.runs([typed, verb] { return run(*typed, verb); });
}
