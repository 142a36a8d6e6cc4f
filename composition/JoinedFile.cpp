#include "composition/JoinedFile.h"

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieCompositionTrack.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <utility>

#include "composition/InputTurn.h"
#include "composition/TrackTimes.h"
#include "support/Containers.h"
#include "support/FFmpegCompat.h"
#include "support/FFmpegError.h"
#include "support/copy/PacketTimes.h"

namespace kestrel {

namespace {

/// Streams of an input end at different times, by a packet of sound or so. What is longer than this
/// (microseconds) is meant.
constexpr int64_t kOrdinaryOverhang = 100000;

/// Positions beyond it are no times of a movie: about thirty years.
constexpr double kLongestTime = 1e9;

bool isHidden(const AVPacket& packet) { return (packet.flags & AV_PKT_FLAG_DISCARD) != 0; }

}  // namespace

JoinedFile::JoinedFile(const std::string& path, std::function<bool()> interrupt,
                       std::function<void(double, int64_t)> progress, JoinedSound* sound)
    : interrupt_(std::move(interrupt)),
      progress_(std::move(progress)),
      sound_(sound),
      file_(path, interrupt_) {}

bool JoinedFile::fail(std::string why) {
  if (!error_) error_ = engineError(LMMovieComposition::kDoesNotJoin, std::move(why));
  return false;
}

void JoinedFile::write(const TrackList& tracks) {
  const std::vector<TrackList> inputs = inputsOf(tracks);
  if (inputs.empty()) return static_cast<void>(fail("there is nothing to join"));
  std::optional<OpenInput> current;
  for (const TrackList& input : inputs) {
    isLast_ = ++count_ == inputs.size();
    const auto source = input.front()->source();
    if (!source) return static_cast<void>(fail("a track has no input"));
    OpenInput next(*source, interrupt_);
    if (!prepare(input) || (count_ == 1 && !begin(input)) || !settleOffsets(input)) return;
    current.emplace(std::move(next));  // the one before may go
    if (!copyInput(input)) return;
    tally();
  }
  finish();
}

/// Counts for the input that has been read what those before it do not account for.
void JoinedFile::tally() {
  LMMovieComposition::InputTally own{file_.picturesEncodedToHide(), file_.refusedPackets()};
  for (const auto& before : tallies_) {
    own.picturesEncodedToHide -= before.picturesEncodedToHide;
    own.refusedPackets -= before.refusedPackets;
  }
  tallies_.push_back(own);
}

/// Has the demuxer pass over what does not take part.
bool JoinedFile::prepare(const TrackList& input) {
  for (const auto& track : input)
    if (!track->avstream()) return fail(fmt::format("'{}' cannot be read", track->path()));
  const AVFormatContext& context = *input.front()->source()->formatContext();
  for (unsigned i = 0; i < context.nb_streams; ++i)
    if (std::ranges::find(input, static_cast<int32_t>(i),
                          [](const auto& track) { return track->track(); }) == input.end())
      context.streams[i]->discard = AVDISCARD_ALL;
  return true;
}

/// Begins the output like its first input.
bool JoinedFile::begin(const TrackList& input) {
  if (!addLanes(input)) return false;
  if (!isLast_) file_.describeSeveral();
  file_.setTags(*input.front()->source()->formatContext());
  return file_.start();
}

/// Adds the streams of encoded sound.
bool JoinedFile::addSounds() {
  if (!sound_ || !sounds_.empty()) return true;
  const auto tracks = sound_->tracks();
  return std::ranges::all_of(tracks, [&](const JoinedSound::Track& track) {
    return sounds_.emplace_back(file_.addSound(track)) >= 0;
  });
}

/// Pictures, then sound, then subtitles, as the input's tracks come.
bool JoinedFile::addLanes(const TrackList& input) {
  for (const auto& track : input) {
    const AVStream* stream = track->avstream();
    if (!track->isVideo() && !addSounds()) return false;
    Lane lane;
    lane.stream = file_.addStream(*stream);
    lane.isVideo = track->isVideo();
    if (lane.stream < 0) return false;
    if (stream->codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE)
      lane.subtitles.emplace(file_.stream(lane.stream));
    lanes_.push_back(std::move(lane));
  }
  if (!addSounds()) return false;
  auto pace = std::ranges::find(lanes_, true, &Lane::isVideo);
  if (pace == lanes_.end())
    pace = std::ranges::find_if(lanes_, [](const Lane& lane) { return !lane.subtitles; });
  if (pace == lanes_.end()) return fail("there are no pictures and no sound");
  pace_ = static_cast<size_t>(pace - lanes_.begin());
  return true;
}

/// The lane whose end tells where the next input begins: the one that sets the pace, or where
/// nothing of it has been written, another one.
size_t JoinedFile::paceLane() const {
  const auto isWritten = [](const Lane& lane) { return lane.end != AV_NOPTS_VALUE; };
  if (isWritten(lanes_[pace_])) return pace_;
  const auto other = std::ranges::find_if(lanes_, isWritten);
  return other == lanes_.end() ? pace_ : static_cast<size_t>(other - lanes_.begin());
}

// Pictures follow pictures, and sound is moved along with them. Where sound meets sound it does so
// to the sample: that is less than half a packet away from where the pictures have it.
bool JoinedFile::settleOffsets(const TrackList& input) {
  if (input.size() != lanes_.size())
    return fail(fmt::format("'{}' has not as many tracks as the first input", input[0]->path()));
  const double wanted = input.front()->position();
  if (wanted > kLongestTime)
    return fail(fmt::format("'{}' begins at no time", input.front()->path()));
  const int64_t start = input.front()->source()->start_time();
  const bool isBehind = !(wanted >= 0);
  int64_t begin = start;
  int64_t offset = 0;
  bool follows = count_ > 1;
  if (count_ == 1) {
    offset = (isBehind ? 0 : std::llround(wanted * 1e6)) - start;
  } else {
    const size_t pace = paceLane();
    begin = firstShown(*input[pace]);
    offset = lanes_[pace].end != AV_NOPTS_VALUE ? lanes_[pace].end - begin : -begin;
    for (size_t i = 0; i < lanes_.size(); ++i) {
      if (lanes_[i].end == AV_NOPTS_VALUE) continue;
      const int64_t without = lanes_[i].end - startOf(*input[i]);  // overlap of these
      if (without > offset + kOrdinaryOverhang) offset = without;
    }
    if (sound_ && reached_ > 0) offset = std::max(offset, reached_ - begin);
    if (!isBehind) {
      const int64_t there = std::llround(wanted * 1e6) - start;
      const int64_t tolerance = usualDuration(*input[pace]->avstream());
      if (there < offset - tolerance)
        return fail(fmt::format("'{}' begins {:.3f} s before the end of what it follows",
                                input.front()->path(), lm_ff_time_to_double(offset - there)));
      follows = there <= offset + tolerance;
      if (!follows) offset = there;
    }
  }
  if (sound_) sound_->beginInput(count_ - 1, begin + offset, begin - start, follows);
  for (size_t i = 0; i < lanes_.size(); ++i)
    if (!file_.beginInput(*input[i]->avstream(), lanes_[i].stream)) return false;
  for (Lane& lane : lanes_) {
    lane.seam = lane.end;
    lane.offset = offset;
    lane.hasBegun = false;
    lane.isVague = lane.isVideo && isAvi(*input.front()->source()->formatContext());
    lane.lacksTimes = false;
    lane.first = AV_NOPTS_VALUE;
    lane.count = 0;
  }
  return beginStretch(input, begin + offset, offset);
}

/// Cuts what lasts longer than the input before where the next one begins, and takes in its
/// chapters.
bool JoinedFile::beginStretch(const TrackList& input, int64_t begin, int64_t offset) {
  const int64_t end = isLast_ ? INT64_MAX : statedEnd(*input[pace_]->avstream());
  for (Lane& lane : lanes_)
    if (lane.subtitles)
      lane.subtitles->beginInput(begin, end == INT64_MAX ? end : av_sat_add64(end, offset));
  writeChapters(begin);
  const AVFormatContext& context = *input.front()->source()->formatContext();
  for (unsigned i = 0; i < context.nb_chapters; ++i) {
    const AVChapter& chapter = *context.chapters[i];
    const auto moved = [&](int64_t time) {
      return av_sat_add64(inMicroseconds(time, chapter.time_base), offset);
    };
    chapters_.push_back({&chapter, std::max(moved(chapter.start), begin), moved(chapter.end)});
  }
  return writeSubtitles(begin);
}

/// Writes the chapters of the current input, whose stretch ends at `end`.
void JoinedFile::writeChapters(int64_t end) {
  for (const Chapter& chapter : std::exchange(chapters_, {}))
    if (std::min(chapter.end, end) > chapter.start)
      file_.addChapter(*chapter.input, chapter.start, std::min(chapter.end, end));
}

void JoinedFile::finish() {
  if (!writeSubtitles(INT64_MAX)) return;
  const int64_t end = std::ranges::max_element(lanes_, {}, &Lane::end)->end;
  for (size_t i = 0; i < sounds_.size(); ++i) {
    if (!writeSound(i, [&] { return sound_->rest(i, std::max<int64_t>(end, 0)); })) return;
    file_.finishSound(sounds_[i]);
  }
  writeChapters(end);
  file_.finish();
}

/// Writes the subtitles that pictures and sound, which have come to `reached`, leave behind.
bool JoinedFile::writeSubtitles(int64_t reached) {
  for (Lane& lane : lanes_)
    while (const PacketPtr packet = lane.subtitles ? lane.subtitles->take(reached) : nullptr)
      if (!file_.write(*packet, lane.stream)) return false;
  return true;
}

/// When a track's first picture is shown, microseconds. It need not be the first in the file:
/// pictures behind a key picture may be shown before it.
int64_t JoinedFile::firstShown(LMMovieCompositionTrack& track) {
  constexpr int kMostAhead = 200;  // packets of all streams
  const AVStream& stream = *track.avstream();
  int64_t first = startOf(track);
  int64_t begin = AV_NOPTS_VALUE;  // of decoding
  bool lacksTimes = false;
  int missing = stream.codecpar->video_delay > 0 ? stream.codecpar->video_delay + 2 : 0;
  for (int i = 0; i < kMostAhead && missing > 0; ++i) {
    PacketPtr packet = makePacket();
    if (!track.readSourceFrame(packet.get())) break;
    if (packet->stream_index == track.track()) {
      --missing;
      if (begin == AV_NOPTS_VALUE) begin = packet->dts;
      if (packet->pts == AV_NOPTS_VALUE)
        lacksTimes = true;
      else if (!isHidden(*packet))
        first = std::min(first, inMicroseconds(packet->pts, stream.time_base));
    }
    ahead_.push_back(std::move(packet));
  }
  const bool isTold = !lacksTimes || begin == AV_NOPTS_VALUE || file_.storesOnlyOrder();
  return isTold ? first : inMicroseconds(begin, stream.time_base) + displayDelay(stream);
}

/// The input's next packet, those that were looked at ahead first.
bool JoinedFile::read(LMMovieCompositionTrack& track, AVPacket& packet) {
  if (ahead_.empty()) return track.readSourceFrame(&packet);
  av_packet_move_ref(&packet, ahead_.front().get());
  ahead_.pop_front();
  return true;
}

bool JoinedFile::copyInput(const TrackList& input) {
  const PacketPtr packet = makePacket();
  while (!(interrupt_ && interrupt_()) && read(*input.front(), *packet)) {
    const bool isFine = copyToTracks(*packet, input);
    av_packet_unref(packet.get());
    if (!isFine) return false;
  }
  for (const auto& track : input) {
    track->setFinished(true);
    track->countIncomplete(*track->source());
  }
  return !sound_ || goOnWithSound();
}

/// Has sound that is meant go on where the pictures have ended.
bool JoinedFile::goOnWithSound() {
  constexpr int64_t kStep = 20000;  // microseconds
  if (!writeSound(reached_)) return false;
  const bool isMeant = sound_->goesOn(kOrdinaryOverhang);
  while (isMeant && sound_->goesOn(0) && !(interrupt_ && interrupt_())) {
    reached_ += kStep;
    if (!writeSound(reached_)) return false;
  }
  return true;
}

/// Encodes the sound of the time up to `reached`, that of a long gap by the second, so that
/// progress is told on the way.
bool JoinedFile::writeSound(int64_t reached) {
  constexpr int64_t kSecond = 1000000;
  while (!sounds_.empty() && soundReached_ < reached) {
    soundReached_ = std::min(reached, soundReached_ + kSecond);
    for (size_t i = 0; i < sounds_.size(); ++i)
      if (!writeSound(i, [&] { return sound_->read(i, soundReached_); })) return false;
    if (interrupt_ && interrupt_()) return true;
    if (progress_ && soundReached_ < reached)
      progress_(lm_ff_time_to_double(soundReached_), pictures_);
  }
  return true;
}

/// Encodes what is read of a track, a part at a time, until there is no more.
bool JoinedFile::writeSound(size_t track, const std::function<JoinedSound::Samples()>& read) {
  while (!(interrupt_ && interrupt_())) {
    const JoinedSound::Samples samples = read();
    if (samples.empty()) return true;
    if (!file_.writeSound(samples, sounds_[track])) return false;
  }
  return true;
}

/// Copies a packet for each track that is of its stream.
bool JoinedFile::copyToTracks(AVPacket& packet, const TrackList& input) {
  const auto next = [&](size_t from) {
    while (from < input.size() && input[from]->track() != packet.stream_index) ++from;
    return from;
  };
  for (size_t i = next(0); i < input.size();) {
    const size_t track = i;
    i = next(i + 1);
    input[track]->passPacket(packet);
    // The last one has no need of a copy.
    const bool isLast = i == input.size();
    const PacketPtr copy(isLast ? nullptr : av_packet_clone(&packet));
    if (!isLast && !copy) return false;
    if (!copyPacket(isLast ? packet : *copy, *input[track], lanes_[track])) return false;
  }
  return true;
}

bool JoinedFile::beginsWell(const AVPacket& packet, const LMMovieCompositionTrack& track,
                            const Lane& lane) {
  if (!lane.isVideo || lane.hasBegun || count_ == 1) return true;
  if ((packet.flags & AV_PKT_FLAG_KEY) != 0) return true;
  return fail(fmt::format("'{}' does not begin with a key picture", track.path()));
}

/// Whether a packet of sound lies where the input before has sound, too: more than half of it.
bool JoinedFile::repeatsTheSeam(const AVPacket& packet, const AVStream& stream, Lane& lane) const {
  if (lane.isVideo || lane.hasBegun || lane.seam == AV_NOPTS_VALUE) return false;
  const int64_t time = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
  if (time == AV_NOPTS_VALUE) return false;
  const int64_t start = inMicroseconds(time, stream.time_base) + lane.offset;
  const int64_t half = packetDuration(packet, stream) / 2;
  if (start + half < lane.seam) return true;
  if (std::abs(start - lane.seam) <= half + 1) lane.offset += lane.seam - start;
  return false;
}

/// Where a packet ends, all in microseconds. AVI may count in ticks of half a picture and say that
/// each lasts for one: there the pictures' mean distance tells.
int64_t JoinedFile::endOf(int64_t time, int64_t duration, Lane& lane) {
  if (lane.count++ == 0) lane.first = time;
  const bool isMean = lane.isVague && lane.count > 1;
  return time + (isMean ? (time - lane.first) / (lane.count - 1) : duration);
}

bool JoinedFile::copyPacket(AVPacket& packet, LMMovieCompositionTrack& track, Lane& lane) {
  const AVStream& stream = *track.avstream();
  if (!beginsWell(packet, track, lane)) return false;
  if (repeatsTheSeam(packet, stream, lane)) return true;
  const AVRational base = file_.timeBase(lane.stream);
  if (packet.pts == AV_NOPTS_VALUE && !file_.storesOnlyOrder()) {
    if (stream.codecpar->video_delay > 0)
      lane.lacksTimes = true;
    else
      packet.pts = packet.dts;
  }
  const int64_t duration = packetDuration(packet, stream);
  TimeShift(stream.time_base, base, lane.offset).apply(packet);
  if (lane.subtitles) {
    lane.subtitles->hold(packet);
    return true;
  }
  lane.hasBegun = true;
  // What is decoded and not shown takes no time.
  if (isHidden(packet)) return file_.write(packet, lane.stream);
  const bool isTold = packet.pts != AV_NOPTS_VALUE && !lane.lacksTimes;
  int64_t time = isTold ? packet.pts : packet.dts;
  if (time != AV_NOPTS_VALUE) {
    time = inMicroseconds(time, base) + (lane.lacksTimes ? displayDelay(stream) : 0);
    lane.end = std::max(lane.end, endOf(time, duration, lane));
  }
  if (lane.isVideo) ++pictures_;
  if (!file_.write(packet, lane.stream)) return false;
  reached_ = std::max(reached_, lane.end);
  if (!writeSound(reached_)) return false;
  if (progress_ && time != AV_NOPTS_VALUE) progress_(lm_ff_time_to_double(time), pictures_);
  return writeSubtitles(reached_);
}

}  // namespace kestrel
