#include "ComposeCommand.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieComposition.h>
#include <kestrel/LMMovieCompositionTrack.h>

#include <CLI/CLI.hpp>

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Codecs.h"
#include "Failure.h"
#include "Input.h"
#include "InputEnd.h"
#include "Interrupt.h"
#include "OutputFile.h"
#include "Placement.h"
#include "Progress.h"

extern "C" {
#include <libavformat/avformat.h>
}

using namespace kestrel;

namespace {

struct Arguments {
  std::vector<std::string> tracks;
  std::string output, save, load;
  std::string progress = "bar";
  bool force = false;
};

/// The tracks that placements stand for, their files opened and read no further than needed.
LMMovieComposition::TrackList openTracks(const std::vector<Placement>& placements) {
  LMMovieComposition::TrackList tracks;
  for (const Placement& placement : placements) {
    auto track = std::make_shared<LMMovieCompositionTrack>();
    track->setSource(openInput(placement.path));
    track->source()->fillInTimes();
    track->setTrack(placement.track);
    track->setPosition(placement.position);
    track->setRate(placement.rate);
    const AVFormatContext& context = *track->source()->formatContext();
    const AVStream* stream = track->avstream();
    if (!stream)
      throw Failure{kFailed,
                    fmt::format("'{}' has no stream {}: the last one is {}", placement.path,
                                placement.track, static_cast<int>(context.nb_streams) - 1)};
    for (unsigned i = 0; i < context.nb_streams; ++i)
      if (context.streams[i] != stream) context.streams[i]->discard = AVDISCARD_ALL;
    tracks.push_back(std::move(track));
  }
  return tracks;
}

double lengthOf(const LMMovieCompositionTrack& track) {
  const int64_t duration = track.source()->formatContext()->duration;
  return duration == AV_NOPTS_VALUE ? 0 : static_cast<double>(duration) / AV_TIME_BASE;
}

/// Whether the tracks were read to their ends; says where not.
int judgeTracks(const LMMovieComposition::TrackList& tracks) {
  int status = kDone;
  for (const auto& track : tracks) {
    const auto reached = static_cast<int64_t>(track->reached() * 1e6);
    const int64_t promised = promisedLength(*track->source()->formatContext(), *track->avstream());
    const InputEnd end{reached, track->source()->lastError(), 0};
    if (judgeInput(track->path(), promised, end) != kDone) status = kDoneInPart;
  }
  return status;
}

/// AVI stores pictures in the order of decoding and no times: where that is not the order in which
/// they are shown, only another AVI can take them.
void requireTimes(LMMovieCompositionTrack& track, const AVOutputFormat& container) {
  const std::string_view input = track.source()->formatContext()->iformat->name;
  if (input == "avi" && track.avstream()->codecpar->video_delay > 0 &&
      std::string_view(container.name) != "avi")
    throw Failure{kFailed, fmt::format("'{}' does not tell when its pictures are shown; 'convert' "
                                       "or 'join' encodes them anew",
                                       track.path())};
}

int compose(const LMMovieComposition::TrackList& tracks, const Arguments& arguments) {
  LMMovieComposition composition;
  double length = 0;
  const AVOutputFormat& container = outputFormatFor(arguments.output);
  for (const auto& track : tracks) {
    requireContainerHolds(container, track->avstream()->codecpar->codec_id, arguments.output);
    requireTimes(*track, container);
    length = std::max(length, track->position() + lengthOf(*track));
  }
  OutputFile target(arguments.output, arguments.force);
  Progress progress(parseProgressStyle("--progress", arguments.progress), length);
  composition.setTracks(tracks);
  composition.setKeepsDurations(true);
  composition.setInterrupt(interrupted);
  composition.setProgress(
      [&](double seconds, int64_t pictures) { progress.update(seconds, pictures); });
  composition.exportToFile(target.path());
  if (interrupted()) return kInterrupted;
  if (const Error error = composition.lastError())
    throw Failure{kFailed, fmt::format("cannot write '{}': {}", arguments.output, error.message)};
  progress.finish();
  target.commit();
  return judgeTracks(tracks);
}

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
    if (!(placement.position >= 0)) throw wrongUsage("a position is 0 or more");
    paths.push_back(placement.path);
  }
  if (!arguments.output.empty()) requireNoInput(arguments.output, paths);
  if (!arguments.save.empty()) requireNoInput(arguments.save, paths);
  if (!arguments.save.empty() && isSameFile(arguments.save, arguments.output))
    throw wrongUsage("--save and -o name the same file");
  return placements;
}

int run(const Arguments& arguments) {
  const std::vector<Placement> placements = placementsOf(arguments);
  const auto tracks = openTracks(placements);
  std::optional<OutputFile> stored;
  if (!arguments.save.empty()) {
    stored.emplace(arguments.save, arguments.force);
    savePlacements(placements, stored->path());
  }
  const int status = arguments.output.empty() ? kDone : compose(tracks, arguments);
  if (stored && status != kInterrupted) stored->commit();
  return status;
}

}  // namespace

void addComposeCommand(CLI::App& app, Run& run_) {
  auto* verb = app.add_subcommand("compose", "Put streams of several files on one time line");
  verb->footer(
      "Each FILE[:TRACK][@POSITION] brings one stream, by its number in the file (default: 0),\n"
      "at a position in seconds or [hh:]mm:ss.mmm (default: 0). Packets are copied, nothing is\n"
      "encoded anew.\n\n"
      "Example:\n"
      "  kestrel demo bars.mp4 && kestrel compose -o late.mp4 bars.mp4:0 bars.mp4:1@0.5");
  auto arguments = std::make_shared<Arguments>();
  verb->add_option("tracks", arguments->tracks, "the streams to place")
      ->type_name("FILE[:TRACK][@POSITION]");
  verb->add_option("-o,--output", arguments->output, "the file to write")->type_name("FILE");
  verb->add_option("--save", arguments->save, "store the composition in a property list")
      ->type_name("FILE");
  verb->add_option("--load", arguments->load, "begin with a stored composition")->type_name("FILE");
  verb->add_flag("--force", arguments->force, "replace an existing target");
  verb->add_option("--progress", arguments->progress,
                   "bar (on a terminal), json (a line each) or none")
      ->type_name("STYLE");
  verb->callback([arguments, &run_] { run_ = [arguments] { return run(*arguments); }; });
}
