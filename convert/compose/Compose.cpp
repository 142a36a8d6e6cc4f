#include <kestrel/convert/Compose.h>

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieComposition.h>
#include <kestrel/LMMovieCompositionTrack.h>
#include <kestrel/convert/Failure.h>

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/OutputFile.h>
#include "convert/compose/ComposeRules.h"
#include "convert/probe/Codecs.h"
#include "convert/probe/Input.h"
#include "convert/probe/InputEnd.h"
#include "convert/probe/StreamsLeftOut.h"
#include "support/Containers.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

/// The tracks that placements stand for, their files opened and read no further than needed.
LMMovieComposition::TrackList openTracks(const std::vector<Placement>& placements,
                                         const Interrupt& interrupt) {
  LMMovieComposition::TrackList tracks;
  for (const Placement& placement : placements) {
    auto track = std::make_shared<LMMovieCompositionTrack>();
    track->setSource(openInput(placement, interrupt));
    track->source()->fillInTimes();
    track->setTrack(placement.track);
    track->setPosition(placement.position);
    track->setRate(placement.rate);
    const AVFormatContext& context = *track->source()->formatContext();
    const AVStream* stream = track->avstream();
    if (!stream)
      throw Failure::input(placement.path,
                           fmt::format("'{}' has no stream {}: the last one is {}", placement.path,
                                       placement.track, static_cast<int>(context.nb_streams) - 1));
    for (unsigned i = 0; i < context.nb_streams; ++i)
      if (context.streams[i] != stream) context.streams[i]->discard = AVDISCARD_ALL;
    tracks.push_back(std::move(track));
  }
  return tracks;
}

double lengthOf(const LMMovieCompositionTrack& track) {
  return lm_ff_time_to_double(mediaInfoOf(*track.source()).duration.value_or(0));
}

/// Tells of each file which of its packets, of all tracks taken from it, came incomplete.
void judgeDamage(Report& report, const LMMovieComposition::TrackList& tracks) {
  std::map<std::string, std::map<int32_t, int64_t>> counts;  // by file and stream
  for (const auto& track : tracks)
    counts[track->path()][track->track()] = track->incompletePackets();
  for (const auto& [path, streams] : counts) {
    InputEnd end;
    for (const auto& [stream, count] : streams) end.incomplete += count;
    judgeInput(report, path, 0, end);
  }
}

/// Whether the tracks were read to their ends, and what was damaged.
Report reportOn(const LMMovieComposition::TrackList& tracks) {
  Report report;
  for (const auto& track : tracks) {
    const auto reached = static_cast<int64_t>(track->reached() * 1e6);
    const LMMediaSource& source = *track->source();
    const IndexSet streams{static_cast<uint32_t>(track->track())};
    judgeInput(report, track->path(), {source, *source.formatContext(), streams, {}},
               {.reached = reached, .error = source.lastError()});
  }
  judgeDamage(report, tracks);
  return report;
}

Report composeTracks(const LMMovieComposition::TrackList& tracks,
                     const CompositionSettings& settings, const Events& events) {
  LMMovieComposition composition;
  double length = 0;
  const AVOutputFormat& container = outputFormatFor(settings.output);
  for (const auto& track : tracks) {
    requireContainerTakes(container, *track->avstream(), settings.output);
    length = std::max(length, track->position() + lengthOf(*track));
  }
  OutputFile target(settings.output, settings.replaces);
  composition.setTracks(tracks);
  composition.setKeepsDurations(true);
  composition.setInterrupt(events.interrupt);
  composition.setProgress([&](double seconds, int64_t pictures) {
    if (events.progress)
      events.progress({seconds, length > 0 ? std::optional(length) : std::nullopt, pictures});
  });
  composition.exportToFile(target.path());
  if (events.isInterrupted()) return Report::interrupted();
  if (const Error error = composition.lastError())
    throw Failure::output(settings.output,
                          fmt::format("cannot write '{}': {}", settings.output, error.message));
  Report report = reportOn(tracks);
  judgePackets(report, "what was composed", composition.refusedPackets());
  for (const auto& track : tracks)
    if (const std::string turn = lostTurn(*track->avstream(), container); !turn.empty())
      report.leftOut.push_back(leftOutOf(track->path(), turn));
  tellOfEncoded(report, events, composition.picturesEncodedToHide(), settings.output);
  target.commit();
  return report;
}

}  // namespace

Report compose(const CompositionSettings& settings, const Events& events) {
  require(settings);
  try {
    const auto tracks = openTracks(settings.placements, events.interrupt);
    std::optional<OutputFile> archive;
    if (!settings.archive.empty()) {
      archive.emplace(settings.archive, settings.replaces);
      savePlacements(settings.placements, archive->path());
    }
    Report report;
    if (!settings.output.empty()) report = composeTracks(tracks, settings, events);
    const bool isDone = report.outcome != Report::Outcome::kInterrupted;
    if (archive && isDone) archive->commit();
    return report;
  } catch (const Failure& failure) {
    if (failure.kind() != Failure::Kind::kInterrupted) throw;
    return Report::interrupted();
  }
}

}  // namespace kestrel
