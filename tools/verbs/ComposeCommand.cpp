
#include <memory>
#include <string>
#include <vector>

#include <kestrel/convert/Compose.h>
#include "tools/cli/CommonOptions.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Output.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

struct Arguments {
  std::vector<std::string> tracks;
  std::string output, save, load;
  TypedProgress progress;
  TypedProtocols protocols;
  bool force = false;
};

int run(const Arguments& arguments) {
  CompositionSettings settings{
      .output = arguments.output, .replaces = arguments.force, .archive = arguments.save};
  if (settings.output.empty() && settings.archive.empty())
    throw wrongUsage("nothing to do: give -o, --save or both");
  if (!arguments.load.empty()) settings.placements = loadPlacements(arguments.load);
  for (const std::string& text : arguments.tracks)
    settings.placements.push_back(parsePlacement(text));
  for (Placement& placement : settings.placements) placement.protocols = arguments.protocols.list();
  if (settings.placements.empty()) throw wrongUsage("there is no track: name files or --load some");
  ProgressDisplay progress(arguments.progress.style());
  Events events = progress.events();
  events.note = say;
  return finish(progress, compose(settings, events));
}

}  // namespace

void addComposeVerb(CommandLine& line) {
  Verb verb = line.addVerb("compose", "Put streams of several files on one time line");
  verb.footer(
      "Each FILE[:TRACK][@POSITION] brings one stream, by its number in the file (default: 0),\n"
      "at a position in seconds or [hh:]mm:ss.mmm (default: 0). Packets are copied, nothing is\n"
      "encoded anew. DISC#3 is title 3 of a disc, DISC#main its main feature and DISC#3.2 the\n"
      "second angle of title 3.\n\n"
      "Example:\n"
      "  kestrel demo bars.mp4 && kestrel compose -o late.mp4 bars.mp4:0 bars.mp4:1@0.5");
  auto arguments = std::make_shared<Arguments>();
  verb.option("tracks", arguments->tracks, "the streams to place").type("FILE[:TRACK][@POSITION]");
  verb.option("-o,--output", arguments->output, "the file to write").type("FILE");
  verb.option("--save", arguments->save, "store the composition in a property list").type("FILE");
  verb.option("--load", arguments->load, "begin with a stored composition").type("FILE");
  addProtocolOption(verb, arguments->protocols);
  verb.flag("--force", arguments->force, "replace an existing target");
  addProgressOption(verb, arguments->progress);
  verb.runs([arguments] { return run(*arguments); });
}
