#pragma once

#include <kestrel/LMMovieComposition.h>

#include <deque>
#include <map>
#include <memory>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Reads the packets of tracks, several of which may share a source. Tracks at the same position
/// are read together: packets of other tracks wait for their turn. A track at another position gets
/// its own reader, if the input can be read twice, so that few packets wait.
class SharedInputs {
 public:
  explicit SharedInputs(const LMMovieComposition::TrackList& tracks);
  ~SharedInputs();
  SharedInputs(const SharedInputs&) = delete;
  SharedInputs& operator=(const SharedInputs&) = delete;

  /// Reads a track's next packet like `LMMovieCompositionTrack::readFrame`: if there is none,
  /// returns false and marks the track as finished.
  bool read(LMMovieCompositionTrack& track, AVPacket& packet);

 private:
  struct Reader;
  struct Lane {
    std::shared_ptr<Reader> reader;
    std::deque<PacketPtr> waiting;
  };

  std::shared_ptr<Reader> readerFor(const LMMovieCompositionTrack& track) const;
  bool readAhead(const Reader& reader);

  std::map<const LMMovieCompositionTrack*, Lane> lanes_;
};

}  // namespace kestrel
