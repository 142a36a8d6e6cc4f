#pragma once

#include <kestrel/ImageContext.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMOutputAudioGraph.h>
#include <kestrel/OperationQueue.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "support/Guarded.h"

namespace kestrel {

struct LMFFMovie::State : LMOutputAudioGraphDelegate {
  /// The clock's two values, read and written together.
  struct Clock {
    int64_t seek_point = 0;  // microseconds
    double decode_samples = 0;
  };

  explicit State(LMFFMovie& owner) : movie(owner) {}

  void decodeMoreAudioDataToAudioOutput() override { movie.decodeMoreAudioDataToAudioOutput(); }

  LMFFMovie& movie;
  Guarded<Clock> clock;
  std::atomic<int64_t> duration{0};
  std::atomic<bool> disableVideo{false};
  std::atomic<bool> exportMovie{false};
  std::atomic<bool> copy_video_stream{false};
  std::atomic<bool> copy_audio_stream{false};
  std::atomic<double> volume{1.0};
  Guarded<MediaList> medias;
  Guarded<std::shared_ptr<LMFFMedia>> subtitle;
  Guarded<std::shared_ptr<LMFFEffectVideoStream>> videoEffectStream;
  Guarded<std::shared_ptr<LMOutputAudioGraph>> audioOutputGraph;
  Guarded<std::shared_ptr<OperationQueue>> decodeQueue;
  Guarded<std::weak_ptr<LMFFMovieImageProvider>> delegate;
  std::vector<float> scratch;  // one media's sound before it is mixed
  ImageContext imageContext;   // of thumbnails
};

}  // namespace kestrel
