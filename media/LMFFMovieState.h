#pragma once

#include <kestrel/ImageContext.h>
#include <kestrel/LMFFEffectVideoStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMOutputAudioGraph.h>
#include <kestrel/OperationQueue.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "media/SoundPump.h"
#include "support/Guarded.h"

namespace kestrel {

struct LMFFMovie::State : LMOutputAudioGraphDelegate {
  /// The clock: its two values and how they relate to playback. Read and written under one lock.
  struct Clock {
    int64_t seek_point = 0;  // microseconds
    double decode_samples = 0;
    double pumped = 0;           // part of decode_samples that went into the playback buffer
    double pumping = 0;          // part that is being decoded for it and not in it yet
    bool isPumping = false;      // sound that is read now is for playback
    bool isPositioning = false;  // a seek is pending: samples do not count until it is done
    uint64_t seeks = 0;          // number of seeks requested

    void setOrigin(int64_t time);
    void forward(double samples);
    /// The pumped samples will not be played.
    void forgetPumped();
  };

  explicit State(LMFFMovie& owner) : movie(owner) {}

  void decodeMoreAudioDataToAudioOutput() override;
  void audioOutputForwordSample(double frames) override { movie.forwardAudioDecodeTime(frames); }

  /// Where sound is read next, microseconds: ahead of the clock by what has not been heard.
  int64_t readTime() const;
  /// Makes a media that the clock has just entered take over playback.
  void playFrom(int64_t time);
  /// Fills the playback buffer for some time ahead. On the queue.
  void fillPlaybackBuffer();
  int32_t soundAtOnce(int32_t frames);

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
  Guarded<Error> subtitleError;  // why the last `openSubtitle` failed
  Guarded<std::shared_ptr<LMFFEffectVideoStream>> videoEffectStream;
  Guarded<std::shared_ptr<LMOutputAudioGraph>> audioOutputGraph;
  Guarded<std::shared_ptr<OperationQueue>> decodeQueue;
  Guarded<std::weak_ptr<LMFFMovieImageProvider>> delegate;
  std::vector<float> scratch;  // one media's sound before it is mixed
  ImageContext imageContext;   // of thumbnails
  std::mutex playing;          // for starting and stopping, which take several steps
  std::atomic<bool> isFillQueued{false};
  SoundPump pump;
};

}  // namespace kestrel
