
#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <kestrel/convert/Join.h>
#include <kestrel/convert/Text.h>
#include <kestrel/convert/Values.h>
#include "tools/cli/CommonOptions.h"
#include "tools/cli/KnownOptions.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

struct Arguments {
  std::vector<std::string> inputs;
  std::string output, size, fps, videoBitrate, audioBitrate;
  std::string reencode = "auto";
  TypedProgress progress;
  JoinEncoding format;
  TypedProtocols protocols;
  bool force = false;
};

JoinSettings::Reencode parseReencode(const std::string& text) {
  if (text == "auto") return JoinSettings::Reencode::kAuto;
  if (text == "never") return JoinSettings::Reencode::kNever;
  if (text == "always") return JoinSettings::Reencode::kAlways;
  throw wrongUsage("--reencode: '" + text + "' is none of auto, never and always");
}

JoinEncoding formatOf(const Arguments& arguments) {
  JoinEncoding format = arguments.format;
  for (const std::string& codec : {format.videoCodec, format.audioCodec})
    if (codec == "copy" || codec == "none")
      throw wrongUsage("'" + codec + "' is no codec to encode with");
  if (!arguments.size.empty()) {
    const PictureBox size = parseSize("--size", arguments.size);
    format.width = size.width;
    format.height = size.height;
    format.lines = size.lines;
    format.scale = size.scale;
  }
  if (!arguments.fps.empty()) format.fps = parseRate("--fps", arguments.fps);
  if (!arguments.videoBitrate.empty())
    format.videoBitrate = parseBitRate("--video-bitrate", arguments.videoBitrate);
  if (!arguments.audioBitrate.empty())
    format.audioBitrate = parseBitRate("--audio-bitrate", arguments.audioBitrate);
  return format;
}

int runJoin(const Arguments& arguments, bool hasFormat) {
  JoinSettings settings;
  for (const std::string& input : arguments.inputs) {
    const TitledPath titled = parseTitledPath(input);
    settings.inputs.push_back({.path = titled.path,
                               .title = titled.title,
                               .angle = titled.angle,
                               .protocols = arguments.protocols.list()});
  }
  settings.output = arguments.output;
  settings.replaces = arguments.force;
  settings.reencode = parseReencode(arguments.reencode);
  if (hasFormat && settings.reencode == JoinSettings::Reencode::kNever)
    throw wrongUsage("a format does nothing beside --reencode never");
  if (hasFormat) settings.reencode = JoinSettings::Reencode::kAlways;
  settings.format = formatOf(arguments);
  ProgressDisplay progress(arguments.progress.style());
  Events events = progress.events();
  events.table = writeStandardOutput;
  events.note = [](const std::string& sentence) {
    writeStandardOutput(printable(sentence) + "\n");
  };
  return finish(progress, join(settings, events));
}

}  // namespace

void addJoinVerb(CommandLine& line) {
  Verb verb = line.addVerb("join", "Put files one after the other into one");
  verb.footer(
      "Where all inputs fit the first one their packets are copied, where only the sound does\n"
      "not, those of the pictures; the rest is decoded and encoded anew, in the first one's\n"
      "format unless options say another. DISC#3 is title 3 of a disc, DISC#main its main\n"
      "feature and DISC#3.2 the second angle of title 3.\n\n"
      "Example:\n"
      "  kestrel demo bars.mp4 && kestrel join bars.mp4 bars.mp4 -o twice.mp4");
  auto arguments = std::make_shared<Arguments>();
  verb.option("inputs", arguments->inputs, "the files to join, in their order")
      .required()
      .type("FILE");
  verb.option("-o,--output", arguments->output, "the file to write").type("FILE").required();
  verb.option("--reencode", arguments->reencode,
              "auto (where inputs do not fit; the default), never (fail then) or always")
      .type("WHEN")
      .words({"auto", "never", "always"});
  addProtocolOption(verb, arguments->protocols);
  verb.flag("--force", arguments->force, "replace an existing target");
  addProgressOption(verb, arguments->progress);
  verb.group("Format, encoded anew");
  const std::vector<Option> formats{
      verb.option("--video-codec", arguments->format.videoCodec, "codec of the pictures")
          .type("NAME")
          .offers(choicesOf("video-codec")),
      verb.option("--size", arguments->size, "size in pixels").type("WxH|720p|50%"),
      verb.option("--fps", arguments->fps, "pictures per second").type("N[/D]"),
      verb.option("--video-bitrate", arguments->videoBitrate, "bits per second").type("RATE"),
      verb.option("--crf", arguments->format.crf, "constant quality").type("N"),
      verb.option("--audio-codec", arguments->format.audioCodec, "codec of the sound")
          .type("NAME")
          .offers(choicesOf("audio-codec")),
      verb.option("--audio-bitrate", arguments->audioBitrate, "bits per second").type("RATE")};
  verb.runs([arguments, formats] {
    return runJoin(*arguments, std::ranges::any_of(formats, &Option::isGiven));
  });
}
