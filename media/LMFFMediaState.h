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
  bool hasRead = false;        // the demuxer has left its beginning
  bool inputEnded = false;     // it has nothing more
  bool decodersEmpty = false;  // and neither have the decoders
  /// The time, in microseconds, of the newest packet of pictures, as long as the decoder needs more
  /// of them before it gives one; `AV_NOPTS_VALUE` otherwise.
  int64_t fillingUntil = AV_NOPTS_VALUE;
  /// What reading the input through found, for this media and its copies; none before.
  std::shared_ptr<std::atomic<int64_t>> measuredDuration =
      std::make_shared<std::atomic<int64_t>>(AV_NOPTS_VALUE);
};

}  // namespace kestrel
