#pragma once

#include <kestrel/LMMovieComposition.h>

#include <deque>
#include <map>
#include <memory>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Reads the packets of tracks, several of which may be of one source. Those that begin at the same
/// position are read in one go, and what another track's turn brings along waits. One that begins
/// elsewhere has a reader of its own, where the input can be read twice, so that little waits.
class SharedInputs {
 public:
  explicit SharedInputs(const LMMovieComposition::TrackList& tracks);
  ~SharedInputs();
  SharedInputs(const SharedInputs&) = delete;
  SharedInputs& operator=(const SharedInputs&) = delete;

  /// Reads a track's next packet, as its `readFrame` does: false, and the track has finished, when
  /// there is none.
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
