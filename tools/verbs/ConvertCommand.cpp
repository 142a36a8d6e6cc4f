#include <fmt/format.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <kestrel/convert/Conversion.h>
#include "tools/cli/LookOptions.h"
#include "tools/cli/Text.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/terminal/Say.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

/// The options as they were typed; they are read when the command runs, so that a wrong one is told
/// of like any other failure.
struct Arguments {
  ConversionSettings settings;
  std::string videoCodec, audioCodec, audioTracks, mix, subtitlesKept = "all", channels, title;
  std::string size, fps, maxFps, aspect, videoBitrate, audioBitrate, start, end, duration, chapters;
  std::string deinterlace;
  std::string progress = "bar";
  std::vector<std::string> videoOptions, audioOptions;
  std::function<LookSettings()> look;
  bool noMetadata = false;
  bool noAttachments = false;
};

std::pair<std::string, std::string> parseKeyValue(const std::string& option,
                                                  const std::string& text) {
  const size_t equals = text.find('=');
  if (equals == std::string::npos || equals == 0)
    throw wrongUsage(option + ": '" + text + "' is not of the form KEY=VALUE");
  return {text.substr(0, equals), text.substr(equals + 1)};
}

std::optional<Deinterlacing> parseDeinterlacing(const std::string& text) {
  if (text.empty()) return std::nullopt;
  if (text == "auto") return Deinterlacing::kAuto;
  if (text == "on") return Deinterlacing::kOn;
  if (text == "off") return Deinterlacing::kOff;
  throw wrongUsage("--deinterlace: '" + text + "' is none of auto, on and off");
}

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

void requireEffect(const Verb& verb, const Arguments& arguments) {
  requireEncoding(verb, "--video-codec", arguments.videoCodec, {"Picture", "Look"});
  requireEncoding(verb, "--audio-codec", arguments.audioCodec, {"Sound"});
}

/// What `text` says becomes of a stream: "copy", "none", a codec's name, or nothing.
void takeCodec(const std::string& text, std::optional<StreamAction>& action, std::string& codec) {
  if (text == "copy")
    action = StreamAction::kCopy;
  else if (text == "none")
    action = StreamAction::kNone;
  else
    codec = text;
}

/// Which tracks of sound and subtitles go along.
void takeTracks(const Arguments& arguments, ConversionSettings& settings) {
  if (!arguments.audioTracks.empty() && !arguments.mix.empty())
    throw wrongUsage("--audio-tracks and --mix both choose the sound");
  if (arguments.audioTracks == "none")
    settings.audio = StreamAction::kNone;
  else if (!arguments.audioTracks.empty())
    settings.audioTracks = parseTrackChoice(arguments.audioTracks);
  settings.mixesAudio = !arguments.mix.empty();
  if (settings.mixesAudio) settings.audioTracks = parseTrackChoice(arguments.mix);
  settings.keepsSubtitles = arguments.subtitlesKept != "none";
  if (settings.keepsSubtitles) settings.subtitleTracks = parseTrackChoice(arguments.subtitlesKept);
}

ConversionSettings settingsOf(const Arguments& arguments) {
  ConversionSettings settings = arguments.settings;
  settings.look = arguments.look();
  takeCodec(arguments.videoCodec, settings.video, settings.videoCodec);
  takeCodec(arguments.audioCodec, settings.audio, settings.audioCodec);
  takeTracks(arguments, settings);
  settings.channelLayout = parseChannels("--channels", arguments.channels);
  settings.title = parseTitle("--title", arguments.title);
  if (!arguments.size.empty()) {
    const PictureBox size = parseSize("--size", arguments.size);
    settings.width = size.width;
    settings.height = size.height;
  }
  const auto parse = [](const char* option, const std::string& text, auto read, auto& value) {
    if (!text.empty()) value = read(option, text);
  };
  if (arguments.fps != "source") parse("--fps", arguments.fps, parseRate, settings.fps);
  parse("--max-fps", arguments.maxFps, parseRate, settings.maxFps);
  parse("--aspect", arguments.aspect, parseAspect, settings.aspect);
  parse("--video-bitrate", arguments.videoBitrate, parseBitRate, settings.videoBitrate);
  parse("--audio-bitrate", arguments.audioBitrate, parseBitRate, settings.audioBitrate);
  parse("--start", arguments.start, parseTime, settings.start);
  parse("--end", arguments.end, parseTime, settings.end);
  parse("--duration", arguments.duration, parseTime, settings.duration);
  parse("--chapters", arguments.chapters, parseChapters, settings.chapters);
  settings.deinterlacing = parseDeinterlacing(arguments.deinterlace);
  for (const auto& option : arguments.videoOptions)
    settings.videoOptions.insert_or_assign(parseKeyValue("--video-option", option).first,
                                           parseKeyValue("--video-option", option).second);
  for (const auto& option : arguments.audioOptions)
    settings.audioOptions.insert_or_assign(parseKeyValue("--audio-option", option).first,
                                           parseKeyValue("--audio-option", option).second);
  settings.keepsMetadata = !arguments.noMetadata;
  settings.keepsAttachments = !arguments.noAttachments;
  return settings;
}

void addVideoOptions(Verb verb, Arguments& arguments) {
  verb.group("Picture");
  ConversionSettings& settings = arguments.settings;
  verb.option("--video-codec", arguments.videoCodec,
              "codec (h264, hevc, vp9, av1 …), encoder (libx264 …), 'copy' or 'none'")
      .type("NAME");
  verb.option("--size", arguments.size, "size in pixels; a side '-' keeps the shape").type("WxH");
  verb.option("--fps", arguments.fps,
              "pictures per second (default: source, each picture at its own time)")
      .type("N[/D]");
  verb.option("--max-fps", arguments.maxFps, "pictures per second at most").type("N[/D]");
  verb.option("--aspect", arguments.aspect, "display aspect (default: the source's)").type("W:H");
  verb.option("--quality", settings.quality,
              "how good the pictures are, 0 to 100, alike for all encoders (default: 60)")
      .type("N");
  verb.option("--crf", settings.crf, "the same in the encoder's own numbers").type("N");
  verb.option("--video-bitrate", arguments.videoBitrate, "bits per second, in place of a quality")
      .type("RATE");
  verb.option("--encoder-preset", settings.encoderPreset,
              "the encoder's preset (see 'kestrel encoders')")
      .type("NAME");
  verb.option("--keyframes", settings.keyframes, "seconds between key pictures (default: 10)")
      .type("SECONDS");
  verb.flag("--compatible", settings.isCompatible,
            "8-bit 4:2:0 pictures, which every player shows");
  verb.option("--deinterlace", arguments.deinterlace,
              "auto: interlaced pictures; on: all; off (default: off, for discs auto)")
      .type("WHEN");
  verb.option("--video-option", arguments.videoOptions, "an option of the encoder's own")
      .type("KEY=VALUE")
      .repeatable();
}

void addAudioOptions(Verb verb, Arguments& arguments) {
  verb.group("Sound");
  ConversionSettings& settings = arguments.settings;
  verb.option("--audio-codec", arguments.audioCodec,
              "codec (aac, mp3, opus, flac …), 'copy' or 'none'")
      .type("NAME");
  verb.option("--audio-tracks", arguments.audioTracks,
              "tracks to keep (default: all): numbers from 0, a language code, 'all' or 'none'")
      .type("0,2|LANG");
  verb.option("--mix", arguments.mix, "tracks that become one, chosen likewise").type("0,2|all");
  verb.option("--audio-bitrate", arguments.audioBitrate,
              "bits per second (default: 96k for each channel)")
      .type("RATE");
  verb.option("--sample-rate", settings.sampleRate, "Hz (default: the track's own)")
      .type("HZ")
      .within(1000, 768000);
  verb.option("--channels", arguments.channels,
              "layout: mono, stereo, 5.1 … (default: the track's own)")
      .type("LAYOUT");
  verb.option("--volume", settings.volume, "factor on the loudness (default: 1)").type("X");
  verb.option("--audio-option", arguments.audioOptions, "an option of the encoder's own")
      .type("KEY=VALUE")
      .repeatable();
}

void addOtherOptions(Verb verb, Arguments& arguments) {
  verb.group("Other streams");
  verb.option("--subtitles-keep", arguments.subtitlesKept,
              "subtitles that go along (default: all the container holds): numbers from 0, a "
              "language code, 'all' or 'none'")
      .type("0,2|LANG");
  verb.flag("--no-attachments", arguments.noAttachments, "leave covers and fonts out");
  verb.group("Span and file");
  ConversionSettings& settings = arguments.settings;
  verb.option("--start", arguments.start, "seconds or [hh:]mm:ss.mmm").type("TIME");
  verb.option("--end", arguments.end, "where to stop, in the source's time").type("TIME");
  verb.option("--duration", arguments.duration, "how much to convert").type("TIME");
  verb.option("--chapters", arguments.chapters, "chapters to convert, counted from 1")
      .type("A[-B]");
  verb.option("--title", arguments.title, "of a disc: a number (see 'kestrel dvd') or 'main'")
      .type("N|main");
  verb.flag("--no-metadata", arguments.noMetadata, "leave tags and chapters out");
  verb.flag("--force", settings.replaces, "replace an existing target");
  verb.option("--progress", arguments.progress, "bar (on a terminal), json (a line each) or none")
      .type("STYLE");
}

}  // namespace

void addConvertVerb(CommandLine& line) {
  Verb verb = line.addVerb("convert", "Convert a movie or sound file into another");
  verb.footer(
      "The container follows the target's extension. Without options the result plays\n"
      "everywhere: H.264 and AAC where the container is mp4.\n\n"
      "Example:\n"
      "  kestrel demo example.mp4 && kestrel convert example.mp4 small.mp4 --size 640x-");
  auto arguments = std::make_shared<Arguments>();
  verb.option("input", arguments->settings.input, "the file or disc to read").required();
  verb.option("output", arguments->settings.output, "the file to write").required();
  addVideoOptions(verb, *arguments);
  arguments->look = addLookOptions(verb);
  addAudioOptions(verb, *arguments);
  addOtherOptions(verb, *arguments);
  verb.runs([arguments, verb] {
    requireEffect(verb, *arguments);
    const ConversionSettings settings = settingsOf(*arguments);
    ProgressDisplay progress(parseProgressStyle("--progress", arguments->progress));
    Events events = progress.events();
    events.note = say;
    return finish(progress, Conversion(settings).run(events));
  });
}
