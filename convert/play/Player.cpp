#include <kestrel/convert/Player.h>

#include <kestrel/AudioGraph.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieImageProvider.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/LMOutputAudioGraph.h>
#include <kestrel/convert/Failure.h>
#include <kestrel/convert/MediaInfo.h>

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <mutex>
#include <utility>

#include "convert/look/Look.h"
#include "convert/look/LookTable.h"
#include "convert/probe/Input.h"
#include "convert/probe/InputEnd.h"
#include "convert/probe/Streams.h"
#include "convert/settings/Require.h"
#include "support/FFmpegCompat.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

/// How far a movie has been played whose clock, which counts silence behind the input, stands at
/// `clock`; none where nothing was decoded since the last seek. On the decode queue.
std::optional<int64_t> playedEnd(const LMFFMovie& movie, int64_t clock) {
  std::optional<int64_t> end;
  for (const auto& media : movie.medias()) {
    for (const auto& stream : media->streams()) {
      const AVFrame& frame = *stream->frame();
      if (!stream->enable() || stream->isSubtitle()) continue;
      // Pictures that nobody draws are not decoded, and take their time all the same.
      const bool isPassed = stream->isVideo() && !media->isAtEnd();
      if (!isPassed && !frame.data[0]) continue;
      const int64_t time =
          av_rescale_q(frame.pts + frameDuration(frame), toAV(stream->timebase()), kMicroseconds);
      const int64_t own = isPassed ? media->duration() : time - media->start_time();
      end = std::max(end.value_or(0), std::min(media->movie_position() + own, clock));
    }
  }
  return end;
}

}  // namespace

class Player::Playback {
 public:
  Playback(PlayerSettings settings, const Interrupt& interrupt)
      : settings_(std::move(settings)),
        source_(openInput(settings_, interrupt)),
        info_(mediaInfoOf(*source_)) {
    openMovie();
    if (movie_.duration() > 0 && movie_.duration() < LMFFMedia::kUnknownDuration)
      duration_ = movie_.duration();
    provider_->movieMediaEffectImage = [this](LMFFMovie&,
                                              const std::shared_ptr<const Image>& image) {
      if (image && draw_) draw_(image);
    };
  }

  ~Playback() {
    movie_.pause();
    movie_.flushOperation();
  }

  LMFFMovie& movie() { return movie_; }
  const LMFFMovie& movie() const { return movie_; }
  const std::optional<int64_t>& duration() const { return duration_; }

  int64_t time() const {
    const int64_t now = std::max<int64_t>(movie_.currentTime(), 0);
    return duration_ ? std::min(now, *duration_) : now;
  }

  void seek(int64_t time) {
    time = std::max<int64_t>(time, 0);
    movie_.seek(duration_ ? std::min(time, *duration_) : time);
    const std::lock_guard guard(lock_);
    ++seeks_;
    inputEnd_.reset();
  }

  bool isAtEnd() {
    lookForEnd();
    const int64_t now = movie_.currentTime();
    if (duration_ && now >= *duration_) return true;
    const std::lock_guard guard(lock_);
    return inputEnd_ && now >= *inputEnd_;
  }

  Report report() {
    InputEnd end;
    std::optional<int64_t> played;
    std::optional<int64_t> inputEnd;
    bool hasSought = false;
    movie_.decodeImage(
        [&] {
          const std::lock_guard guard(lock_);
          inputEnd = inputEnd_;
          hasSought = seeks_ > 0;
          end = faultsOf(movie_);
          end.reached = inputEnd.value_or(time());
          played = playedEnd(movie_, end.reached);
        },
        true);
    if (inputEnd && !played && end.refused > 0) return reportNothing();
    end.reached = played.value_or(end.reached);
    // After a seek, packets may need others that were not read.
    if (hasSought) end.refused = end.mended = end.incomplete = 0;
    // Where the end was not reached, nobody missed anything.
    const auto wanted = inputEnd ? std::nullopt : std::optional<int64_t>(0);
    Report report;
    judgeInput(report, settings_.input, {*source_, *source_->formatContext(), streams_, wanted},
               end);
    return report;
  }

  double displayAspect() const {
    if (!pictures_) return 0;
    const Look look(settings_.look, *pictures_);
    return look.pixelAspect() * look.size().width / look.size().height;
  }

  void drawPicture(Size size, std::function<void(const std::shared_ptr<const Image>&)> draw) {
    if (!pictures_ || size.width < 1 || size.height < 1 || isDrawing_.exchange(true)) return;
    movie_.decodeImage(
        [this, size, draw = std::move(draw)]() mutable {
          const Drawing drawing(*this, std::move(draw));
          if (!(size == pictureSize_)) Look(settings_.look, *pictures_).apply(movie_, size);
          pictureSize_ = size;
          movie_.decodeImageAtTime(time(), provider_);
        },
        false);
  }

 private:
  /// One picture is being drawn for as long as this lives, whatever the host's `draw` throws.
  class Drawing {
   public:
    Drawing(Playback& playback, std::function<void(const std::shared_ptr<const Image>&)> draw)
        : playback_(playback) {
      playback_.draw_ = std::move(draw);
    }
    ~Drawing() {
      playback_.draw_ = nullptr;
      playback_.isDrawing_ = false;
    }
    Drawing(const Drawing&) = delete;
    Drawing& operator=(const Drawing&) = delete;

   private:
    Playback& playback_;
  };

  /// Of an input that was read and whose packets no decoder took.
  Report reportNothing() const {
    Report report;
    const int64_t promised = promisedLength(*source_->formatContext(), streams_).time;
    if (promised > 0) report.promised = promised;
    report.find(fmt::format("nothing could be decoded from '{}'", settings_.input));
    return report;
  }

  void openMovie() {
    streams_ = chosenAudios(settings_.audioTracks, *source_);
    IndexSet tracks;
    for (uint32_t track = 0; track < streams_.size(); ++track) tracks.insert(track);
    const auto& video = info_.mainVideo;
    if (settings_.withPictures && !video)
      throw Failure::input(settings_.input, fmt::format("'{}' has no pictures", settings_.input));
    // Without sound it is the pictures that say how long the movie is.
    if (video && (settings_.withPictures || streams_.empty())) streams_.insert(*video);
    if (settings_.withPictures) pictures_ = info_.streams[*video].video;
    if (!streams_.empty()) movie_.openMedias(source_->createMediasWithStreams(streams_));
    movie_.setSelectAudioStreams(tracks);
    for (const auto& media : movie_.videos())
      media->videoStream()->setTreatment({.deinterlacing = Deinterlacing::kCombed});
    if (!movie_.hasAudio() && !movie_.hasVideo())
      throw Failure::input(
          settings_.input,
          fmt::format("cannot play '{}': none of its streams can be decoded", settings_.input));
    openLook();
  }

  /// What cannot be drawn is refused here: later there is nobody to tell.
  void openLook() {
    require(settings_.look);
    if (settings_.look.autoCrop)
      throw Failure::settings("autoCrop: black bars are looked for before playing begins",
                              "autoCrop");
    if (!pictures_) return;
    const Look look(settings_.look, *pictures_);
    pictureSize_ = look.size();
    look.apply(movie_, pictureSize_);
  }

  /// Has the decode queue find out whether the input has ended. Nobody waits for it: what is being
  /// decoded may take long.
  void lookForEnd() {
    if (isLooking_.exchange(true)) return;
    movie_.decodeImage(
        [this, seeks = seeks_] {
          findInputEnd(seeks);
          isLooking_ = false;
        },
        false);
  }

  /// An input may end before the time that it states, or state none: what is left then is what has
  /// been read and not been heard. On the decode queue.
  void findInputEnd(int seeks) {
    if (!movie_.isPlay()) return;
    const auto medias = movie_.medias();
    const auto hasPlayed = [now = movie_.currentTime()](const auto& media) {
      // Behind its stated length, which may be 0, nobody reads it.
      if (now >= media->movie_position() + media->duration()) return true;
      return media->isAtEnd() && std::ranges::all_of(media->audios(), [](const auto& stream) {
               return stream->outputSamples() == 0;
             });
    };
    const bool hasEnded = std::ranges::all_of(medias, hasPlayed);
    if (!hasEnded) return;
    const double unheard = movie_.audioOutputGraph()->unheardFrames();
    const double rate = movie_.defaultOutputFormat().sample_rate;
    const int64_t end = movie_.currentTime() + static_cast<int64_t>(unheard / rate * 1e6);
    const std::lock_guard guard(lock_);
    if (!inputEnd_ && seeks == seeks_) inputEnd_ = end;
  }

  const PlayerSettings settings_;
  const std::shared_ptr<LMMediaSource> source_;
  const MediaInfo info_;
  IndexSet streams_;                   // those that play
  std::optional<VideoInfo> pictures_;  // where they were asked for
  std::optional<int64_t> duration_;

  std::atomic<bool> isLooking_{false};
  std::mutex lock_;                  // of the next, and of changing `seeks_`
  std::optional<int64_t> inputEnd_;  // where the input turned out to end
  int seeks_ = 0;

  std::atomic<bool> isDrawing_{false};

  // Of the decode queue alone.
  Size pictureSize_;
  std::function<void(const std::shared_ptr<const Image>&)> draw_;
  std::shared_ptr<LMFFMovieImageProvider> provider_ = std::make_shared<LMFFMovieImageProvider>();

  LMFFMovie movie_;  // the first to go: its queue uses all the others
};

Player::Player(const PlayerSettings& settings, const Interrupt& interrupt)
    : playback_(std::make_unique<Playback>(settings, interrupt)) {}

Player::~Player() = default;

void Player::play() { playback_->movie().play(); }

void Player::pause() { playback_->movie().pause(); }

bool Player::isPlaying() const { return playback_->movie().isPlay(); }

int64_t Player::time() const { return playback_->time(); }

std::optional<int64_t> Player::duration() const { return playback_->duration(); }

void Player::seek(int64_t time) { playback_->seek(time); }

void Player::setRate(double rate) {
  if (std::isnan(rate)) return;
  playback_->movie().setRate(static_cast<float>(std::clamp(rate, kSlowest, kFastest)));
}

double Player::rate() const { return playback_->movie().rate(); }

void Player::setVolume(double volume) {
  if (!std::isnan(volume)) playback_->movie().setPlayVolume(std::max(volume, 0.0));
}

float Player::takePeak(int channel) {
  return playback_->movie().audioOutputGraph()->graph().takePeak(channel);
}

bool Player::lacksDevice() const {
  return playback_->movie().hasAudio() &&
         playback_->movie().audioOutputGraph()->graph().lacksDevice();
}

bool Player::isAtEnd() { return playback_->isAtEnd(); }

Report Player::report() { return playback_->report(); }

double Player::displayAspect() const { return playback_->displayAspect(); }

void Player::drawPicture(Size size,
                         std::function<void(const std::shared_ptr<const Image>& image)> draw) {
  playback_->drawPicture(size, std::move(draw));
}

LMFFMovie& Player::movie() { return playback_->movie(); }

}  // namespace kestrel
