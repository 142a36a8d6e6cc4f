#pragma once

#include <kestrel/LMMovieComposition.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "composition/CompositionFile.h"
#include "composition/SubtitleLane.h"

namespace kestrel {

/// Implements `LMMovieComposition::joinToFile`: inputs one after the other, each read once, in its
/// own order.
class JoinedFile {
 public:
  using TrackList = LMMovieComposition::TrackList;

  JoinedFile(const std::string& path, std::function<bool()> interrupt,
             std::function<void(double, int64_t)> progress, JoinedSound* sound);

  void write(const TrackList& tracks);

  int64_t picturesEncodedToHide() const { return file_.picturesEncodedToHide(); }
  int64_t refusedPackets() const { return file_.refusedPackets(); }

  /// Of each input that has been read.
  const std::vector<LMMovieComposition::InputTally>& tallies() const { return tallies_; }

  Error error() const { return error_ ? error_ : file_.error(); }

 private:
  /// A stream of the output and the progress of writing it.
  struct Lane {
    int stream = 0;
    bool isVideo = false;
    std::optional<SubtitleLane> subtitles;  // empty for pictures and sound
    int64_t end = AV_NOPTS_VALUE;           // end of what has been written, microseconds
    // Of the current input:
    int64_t seam = AV_NOPTS_VALUE;   // end of the previous input, microseconds
    int64_t offset = 0;              // added to its times, microseconds
    bool hasBegun = false;           // a packet of it has been written
    bool isVague = false;            // its packets have no durations
    bool lacksTimes = false;         // its packets do not all tell when they are shown
    int64_t first = AV_NOPTS_VALUE;  // time of its first packet, microseconds
    int64_t count = 0;               // packets written
  };

  /// A chapter of an input with its times in the output.
  struct Chapter {
    const AVChapter* input = nullptr;
    int64_t start = 0;  // microseconds
    int64_t end = 0;    // microseconds
  };

  bool fail(std::string why);
  bool prepare(const TrackList& input);
  bool begin(const TrackList& input);
  bool addLanes(const TrackList& input);
  bool addSounds();
  size_t paceLane() const;
  bool settleOffsets(const TrackList& input);
  bool beginStretch(const TrackList& input, int64_t begin, int64_t offset);
  void writeChapters(int64_t end);
  void finish();
  bool writeSound(int64_t reached);
  bool writeSound(size_t track, const std::function<JoinedSound::Samples()>& read);
  bool goOnWithSound();
  void tally();
  bool writeSubtitles(int64_t reached);
  int64_t firstShown(LMMovieCompositionTrack& track);
  bool read(LMMovieCompositionTrack& track, AVPacket& packet);
  bool copyInput(const TrackList& input);
  bool copyToTracks(AVPacket& packet, const TrackList& input);
  bool copyPacket(AVPacket& packet, LMMovieCompositionTrack& track, Lane& lane);
  bool beginsWell(const AVPacket& packet, const LMMovieCompositionTrack& track, const Lane& lane);
  static int64_t endOf(int64_t time, int64_t duration, Lane& lane);
  bool repeatsTheSeam(const AVPacket& packet, const AVStream& stream, Lane& lane) const;

  std::function<bool()> interrupt_;
  std::function<void(double, int64_t)> progress_;
  JoinedSound* const sound_;  // null if no sound is encoded
  CompositionFile file_;
  std::deque<Lane> lanes_;
  std::vector<int> sounds_;        // encoded streams of the output
  size_t pace_ = 0;                // index of the lane that determines the timing
  std::vector<Chapter> chapters_;  // of the current input
  std::deque<PacketPtr> ahead_;    // packets of the current input, read but not copied
  size_t count_ = 0;               // inputs begun
  bool isLast_ = false;            // the current input is the last one
  int64_t pictures_ = 0;           // video packets written
  int64_t reached_ = INT64_MIN;    // end of the pictures or sound written, microseconds
  int64_t soundReached_ = 0;       // the same of encoded sound
  std::vector<LMMovieComposition::InputTally> tallies_;
  Error error_;
};

}  // namespace kestrel
