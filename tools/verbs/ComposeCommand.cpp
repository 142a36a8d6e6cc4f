
#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <kestrel/convert/OutputFile.h>
#include "tools/cli/PlacementText.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/ProgressDisplay.h"
#include "tools/terminal/Say.h"
#include "tools/verbs/Verbs.h"

using namespace kestrel;

namespace {

struct Arguments {
  std::vector<std::string> tracks;
  std::string output, save, load;
  std::string progress = "bar";
  bool force = false;
};

/// The placements that are loaded and named; throws where they cannot be meant.
std::vector<Placement> placementsOf(const Arguments& arguments) {
  if (arguments.output.empty() && arguments.save.empty())
    throw wrongUsage("nothing to do: give -o, --save or both");
  std::vector<Placement> placements;
  if (!arguments.load.empty()) placements = loadPlacements(arguments.load);
  for (const std::string& text : arguments.tracks) placements.push_back(parsePlacement(text));
  if (placements.empty()) throw wrongUsage("there is no track: name files or --load some");
  std::vector<std::string> paths;
  for (const Placement& placement : placements) {
    paths.push_back(placement.path);
  }
  if (!arguments.save.empty()) requireNoInput(arguments.save, paths);
  if (!arguments.save.empty() && isSameFile(arguments.save, arguments.output))
    throw wrongUsage("--save and -o name the same file");
  return placements;
}

int run(const Arguments& arguments) {
  const std::vector<Placement> placements = placementsOf(arguments);
  if (arguments.output.empty()) requirePlacements(placements, {.interrupt = interrupted});
  std::optional<OutputFile> stored;
  if (!arguments.save.empty()) {
    stored.emplace(arguments.save, arguments.force);
    savePlacements(placements, stored->path());
  }
  int status = kDone;
  if (!arguments.output.empty()) {
    ProgressDisplay progress(parseProgressStyle("--progress", arguments.progress));
    Events events = progress.events();
    events.note = say;
    const Report report = compose({placements, arguments.output, arguments.force}, events);
    status = finish(progress, report);
  }
  if (stored && status != kInterrupted) stored->commit();
  return status;
}

}  // namespace

void addComposeVerb(CommandLine& line) {
  Verb verb = line.addVerb("compose", "Put streams of several files on one time line");
  verb.footer(
      "Each FILE[:TRACK][@POSITION] brings one stream, by its number in the file (default: 0),\n"
      "at a position in seconds or [hh:]mm:ss.mmm (default: 0). Packets are copied, nothing is\n"
      "encoded anew.\n\n"
      "Example:\n"
      "  kestrel demo bars.mp4 && kestrel compose -o late.mp4 bars.mp4:0 bars.mp4:1@0.5");
  auto arguments = std::make_shared<Arguments>();
  verb.option("tracks", arguments->tracks, "the streams to place").type("FILE[:TRACK][@POSITION]");
  verb.option("-o,--output", arguments->output, "the file to write").type("FILE");
  verb.option("--save", arguments->save, "store the composition in a property list").type("FILE");
  verb.option("--load", arguments->load, "begin with a stored composition").type("FILE");
  verb.flag("--force", arguments->force, "replace an existing target");
  verb.option("--progress", arguments->progress, "bar (on a terminal), json (a line each) or none")
      .type("STYLE");
  verb.runs([arguments] { return run(*arguments); });
}
