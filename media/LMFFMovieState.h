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
  /// The clock: its two values, and how they hang together with what is played. Read and written
  /// together.
  struct Clock {
    int64_t seek_point = 0;  // microseconds
    double decode_samples = 0;
    double pumped = 0;           // those of decode_samples that went into the playback buffer
    double pumping = 0;          // those that are being decoded for it, and are not in it yet
    bool isPumping = false;      // what is read now is for playback
    bool isPositioning = false;  // a seek's work waits: nothing counts until it is done
    uint64_t seeks = 0;          // how often a seek was asked for

    void setOrigin(int64_t time);
    void forward(double samples);
    /// What was pumped will not be played.
    void forgetPumped();
  };

  explicit State(LMFFMovie& owner) : movie(owner) {}

  void decodeMoreAudioDataToAudioOutput() override;
  void audioOutputForwordSample(double frames) override { movie.forwardAudioDecodeTime(frames); }

  /// Where the next sound is read, microseconds: ahead of the clock by what has not been heard.
  int64_t readTime() const;
  /// Has a media that the clock has just entered take over what is played.
  void playFrom(int64_t time);
  /// Tops the playback buffer up for some time to come. On the queue.
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
  Guarded<Error> subtitleError;  // why `openSubtitle` found none
  Guarded<std::shared_ptr<LMFFEffectVideoStream>> videoEffectStream;
  Guarded<std::shared_ptr<LMOutputAudioGraph>> audioOutputGraph;
  Guarded<std::shared_ptr<OperationQueue>> decodeQueue;
  Guarded<std::weak_ptr<LMFFMovieImageProvider>> delegate;
  std::vector<float> scratch;  // one media's sound before it is mixed
  ImageContext imageContext;   // of thumbnails
  std::mutex playing;          // of starting and stopping, which are several steps each
  std::atomic<bool> isFillQueued{false};
  SoundPump pump;
};

}  // namespace kestrel
