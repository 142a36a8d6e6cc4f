#pragma once

#include <kestrel/LMFFMedia.h>
#include <kestrel/LMMediaSource.h>

#include <atomic>
#include <vector>

#include "support/FFmpegOwners.h"
#include "support/Guarded.h"

namespace kestrel {

struct LMFFMedia::State {
  using StreamList = std::vector<std::shared_ptr<LMFFMediaStream>>;

  std::atomic<bool> isCurrentSynced{false};
  std::atomic<LMFFMovie*> movie{nullptr};
  std::atomic<int64_t> movie_position{0};
  int64_t last_pts = AV_NOPTS_VALUE;
  Guarded<std::shared_ptr<LMMediaSource>> source;
  Guarded<StreamList> streams;
  Guarded<std::optional<IndexSet>> selectStreams;
  Guarded<std::optional<IndexSet>> selectAudios;
  Guarded<std::optional<IndexSet>> selectSubtitles;

  PacketPtr packet = makePacket();
  std::vector<float> scratch;  // one track's sound before it is mixed
  bool hasRead = false;        // the demuxer is no longer at its beginning
  bool inputEnded = false;     // the demuxer has nothing more to read
  bool decodersEmpty = false;  // and neither have the decoders
  /// The time, in microseconds, of the latest video packet while the decoder needs more packets
  /// before it returns a picture; `AV_NOPTS_VALUE` otherwise.
  int64_t fillingUntil = AV_NOPTS_VALUE;
  /// The duration found by reading the input through, shared with copies; `AV_NOPTS_VALUE` before.
  std::shared_ptr<std::atomic<int64_t>> measuredDuration =
      std::make_shared<std::atomic<int64_t>>(AV_NOPTS_VALUE);
};

}  // namespace kestrel
