#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieComposition.h>
#include <kestrel/LMMovieCompositionTrack.h>
#include <kestrel/Log.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "composition/CompositionFile.h"
#include "composition/JoinedFile.h"
#include "composition/SharedInputs.h"
#include "support/FFmpegError.h"
#include "support/Guarded.h"
#include "support/copy/PacketTimes.h"

namespace kestrel {

namespace {

/// Times beyond it are no times of a movie: about thirty years.
constexpr double kLongestTime = 1e9;

/// How far a track's packets are moved, seconds.
double shiftOf(const LMMovieCompositionTrack& track) {
  const double shift = track.position() - track.startTime();
  return std::isnan(shift) ? 0 : std::clamp(shift, -kLongestTime, kLongestTime);
}

}  // namespace

struct LMMovieComposition::State {
  Guarded<TrackList> tracks;
  bool keepsDurations = false;
  std::shared_ptr<JoinedSound> sound;
  std::function<bool()> interrupt;
  std::function<void(double, int64_t)> progress;
  Guarded<Error> lastError;
  int64_t picturesEncodedToHide = 0;
  int64_t refusedPackets = 0;
  std::vector<InputTally> inputTallies;

  bool isInterrupted() const { return interrupt && interrupt(); }

  void addStreams(const TrackList& list, CompositionFile& file) const;
  bool copySlice(LMMovieCompositionTrack& track, double limit, SharedInputs& inputs,
                 CompositionFile& file, int64_t& pictures) const;
  void copy(const TrackList& list, CompositionFile& file) const;
};

JoinedSound::~JoinedSound() = default;

LMMovieComposition::LMMovieComposition() : state_(std::make_unique<State>()) {}

LMMovieComposition::~LMMovieComposition() = default;

LMMovieComposition::TrackList LMMovieComposition::tracks() const { return state_->tracks.get(); }

void LMMovieComposition::setTracks(TrackList tracks) {
  std::erase(tracks, nullptr);
  state_->tracks.set(std::move(tracks));
}

std::shared_ptr<LMMovieCompositionTrack> LMMovieComposition::insert(const std::string& path,
                                                                    double at, double rate) {
  auto track = std::make_shared<LMMovieCompositionTrack>();
  track->setPath(path);
  track->setPosition(at);
  track->setRate(rate);
  TrackList list = tracks();
  list.push_back(track);
  setTracks(std::move(list));
  return track;
}

void LMMovieComposition::State::addStreams(const TrackList& list, CompositionFile& file) const {
  for (const auto& track : list) {
    if (track->source()) track->source()->setInterrupt(interrupt);
    const AVStream* input = track->avstream();
    const int stream = input ? file.addStream(*input) : -1;
    if (stream >= 0)
      track->setMap(stream);
    else
      track->setFinished(true);
  }
}

/// Copies a track's packets up to the first one at or behind the limit; answers whether there was
/// any.
bool LMMovieComposition::State::copySlice(LMMovieCompositionTrack& track, double limit,
                                          SharedInputs& inputs, CompositionFile& file,
                                          int64_t& pictures) const {
  if (track.finished()) return false;
  const AVStream& stream = *track.avstream();
  const double seconds = shiftOf(track);
  const TimeShift shift(stream.time_base, file.timeBase(track.map()),
                        static_cast<int64_t>(1000000 * seconds));
  const PacketPtr packet = makePacket();
  bool hasRead = false;
  while (limit - seconds > track.dts() && !isInterrupted() && inputs.read(track, *packet)) {
    hasRead = true;
    if (packet->pts == AV_NOPTS_VALUE) log("AV_NOPTS_VALUE");
    shift.apply(*packet);
    if (!keepsDurations) packet->duration = 0;
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) ++pictures;
    const bool isWritten = file.write(*packet, track.map());
    av_packet_unref(packet.get());
    if (!isWritten) break;
  }
  return hasRead;
}

void LMMovieComposition::State::copy(const TrackList& list, CompositionFile& file) const {
  int64_t pictures = 0;
  SharedInputs inputs(list);
  for (double limit = 1; !file.error() && !isInterrupted(); limit += 1) {
    bool hasRead = false;
    bool isDone = true;
    double next = std::numeric_limits<double>::infinity();
    for (const auto& track : list) {
      hasRead = copySlice(*track, limit, inputs, file, pictures) || hasRead;
      if (track->finished()) continue;
      isDone = false;
      next = std::min(next, track->dts() + shiftOf(*track));
    }
    if (isDone) return;
    if (progress) progress(limit, pictures);
    if (!hasRead) limit = std::max(limit, std::floor(next));  // nothing lies in between
  }
}

void LMMovieComposition::exportToFile(const std::string& path) {
  LMFFMovie::initialize();
  const State& state = *state_;
  const TrackList list = tracks();
  CompositionFile file(path, state.interrupt);
  state.addStreams(list, file);
  if (file.start()) {
    state.copy(list, file);
    file.finish();
  }
  state_->picturesEncodedToHide = file.picturesEncodedToHide();
  state_->refusedPackets = file.refusedPackets();
  state_->lastError.set(state.isInterrupted() ? libraryError(AVERROR_EXIT) : file.error());
}

void LMMovieComposition::joinToFile(const std::string& path) {
  LMFFMovie::initialize();
  JoinedFile joined(path, state_->interrupt, state_->progress, state_->sound.get());
  joined.write(tracks());
  state_->picturesEncodedToHide = joined.picturesEncodedToHide();
  state_->refusedPackets = joined.refusedPackets();
  state_->inputTallies = joined.tallies();
  state_->lastError.set(state_->isInterrupted() ? libraryError(AVERROR_EXIT) : joined.error());
}

bool LMMovieComposition::keepsDurations() const { return state_->keepsDurations; }

void LMMovieComposition::setKeepsDurations(bool keeps) { state_->keepsDurations = keeps; }

void LMMovieComposition::setJoinedSound(std::shared_ptr<JoinedSound> sound) {
  state_->sound = std::move(sound);
}

void LMMovieComposition::setInterrupt(std::function<bool()> interrupt) {
  state_->interrupt = std::move(interrupt);
}

void LMMovieComposition::setProgress(std::function<void(double, int64_t)> progress) {
  state_->progress = std::move(progress);
}

int64_t LMMovieComposition::picturesEncodedToHide() const { return state_->picturesEncodedToHide; }

int64_t LMMovieComposition::refusedPackets() const { return state_->refusedPackets; }

std::vector<LMMovieComposition::InputTally> LMMovieComposition::inputTallies() const {
  return state_->inputTallies;
}

Error LMMovieComposition::lastError() const { return state_->lastError.get(); }

}  // namespace kestrel
