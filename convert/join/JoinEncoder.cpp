#include "convert/join/JoinEncoder.h"

#include <kestrel/BitmapContext.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieFileOutput.h>
#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <kestrel/convert/Failure.h>
#include "convert/feed/JobQueue.h"
#include "convert/feed/PictureShaper.h"
#include "convert/join/JoinSounds.h"
#include "convert/look/Look.h"
#include "convert/probe/Codecs.h"
#include "convert/probe/Input.h"
#include "convert/probe/Light.h"
#include "convert/probe/Streams.h"
#include "convert/run/PlannedOutput.h"
#include "support/LastingTags.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

namespace kestrel {

namespace {

constexpr Rational kSoundAlone{50, 1};  // how often sound is written where there are no pictures
constexpr size_t kMostJobs = 4;
constexpr double kSameShape = 0.03;  // of width / height

/// Sound that begins earlier than this before the pictures is no rest of a cut; microseconds.
constexpr int64_t kLongestLead = 1000000;

/// Sound that goes on for less than this behind the last picture belongs to none; microseconds.
constexpr int64_t kOrdinaryOverhang = 100000;

/// By how much time stamps may be early, in ticks.
constexpr double kJitter = 0.05;

/// One part's pictures as they play, by the output's ticks at the part's rate.
class PartPictures {
 public:
  /// Opens what is to be shown; `start` is the part's time (microseconds) that the first tick
  /// begins at.
  PartPictures(const JoinPart& part, const ConversionPlan& plan, const LMFFMovieFileOutput& output,
               int64_t start) {
    movie_.setExportMovie(true);
    if (!part.video) return;
    movie_.openMedias(part.source->createMediasWithStreams(IndexSet{*part.video}));
    if (movie_.hasVideo()) open(part, plan, output, start);
    movie_.seek(0);
    movie_.flushOperation();
  }

  LMFFMovie& movie() { return movie_; }

  /// The next picture, null when there is none any more.
  std::shared_ptr<LMFFImage> next() {
    if (!feed_) return nullptr;
    auto picture = feed_->next();
    if (!picture) {
      reached_ = feed_->time();
      feed_.reset();
    }
    return picture;
  }

  InputEnd inputEnd() const {
    InputEnd end = faultsOf(movie_);
    end.reached = feed_ ? feed_->time() : reached_;
    return end;
  }

 private:
  void open(const JoinPart& part, const ConversionPlan& plan, const LMFFMovieFileOutput& output,
            int64_t start) {
    const VideoInfo& video = part.info.streams[*part.video].video;
    const Size size{static_cast<double>(plan.format.width),
                    static_cast<double>(plan.format.height)};
    const double shape = plan.format.aspect > 0 ? plan.format.aspect : size.width / size.height;
    LookSettings settings;
    settings.hdr = isHdr(plan.color) ? HdrHandling::kKeep : HdrHandling::kSdr;
    Look look(settings, video);
    const double own = look.pixelAspect() * look.size().width / look.size().height;
    if (std::abs(own / shape - 1) > kSameShape) {
      settings.zoom = Zoom::kFit;
      look = Look(settings, video);
    }
    if (look.isDrawn()) look.apply(movie_, size);
    const AVRational ticks = av_mul_q({plan.format.framerate, plan.format.frameTime},
                                      av_inv_q(av_d2q(part.input.rate, kMostExactRate)));
    feed_ = std::make_unique<ShapedFeed>(movie_, start, Rational{ticks.num, ticks.den},
                                         shaperOf(look, movie_, output, plan.pixelFormat));
  }

  static constexpr int kMostExactRate = 100000;

  LMFFMovie movie_;
  std::unique_ptr<ShapedFeed> feed_;
  int64_t reached_ = 0;
};

class JoinEncoder {
 public:
  JoinEncoder(const JoinSettings& settings, std::vector<JoinPart>& parts, const JoinFormat& format,
              double length, const Events& events)
      : settings_(settings),
        parts_(parts),
        events_(events),
        length_(length > 0 ? std::optional(length) : std::nullopt),
        plan_(format.plan),
        hasPictures_(plan_.pictures() != nullptr),
        rate_(hasPictures_ ? plan_.rate() : kSoundAlone),
        sounds_(parts, plan_, Rational{rate_.den, rate_.num}, hasPictures_) {}

  const std::vector<std::string>& losses() const { return sounds_.changes(); }

  void run(const std::string& path) {
    openOutput(path);
    for (size_t i = 0; i < parts_.size() && !events_.isInterrupted(); ++i) writePart(i);
    if (events_.isInterrupted()) return;
    // Sound lasts as long as the pictures do, and by itself to its last sample.
    const int64_t end = hasPictures_ ? tick_ : 0;
    for (size_t i = 0; i < tracks_.size(); ++i) {
      pushSound(i, [this, i, end] { return sounds_.rest(i, end); });
      push([this, i] { output_.finishAudio(tracks_[i]); });
    }
    encoding_.finish();
    output_.setChapters(chapters_);
    output_.stopOutput();
    requireOutput(output_, settings_.output);
  }

 private:
  void openOutput(const std::string& path) {
    const MediaInfo& first = parts_.front().info;
    setUpOutput(output_, plan_, path, events_.interrupt);
    output_.setMetadata(lastingTags(first.tags));
    if (hasPictures_) {
      output_.setVideoMetadata(languageTag(first.streams[*parts_.front().video]));
      openPlannedPictures(output_, plan_);
    }
    for (const JoinedSound::Track& track : sounds_.tracks()) openSound(track);
    output_.startOutput();
    requireOutput(output_, settings_.output);
    if (hasPictures_) black_ = output_.createCGContext();
  }

  void openSound(const JoinedSound::Track& track) {
    const SoundEncoding sound{.codec = track.format.audio_codec,
                              .encoder = track.encoder,
                              .sampleRate = track.format.sample_rate,
                              .channelLayout = track.format.channel_layout,
                              .bits = track.bits,
                              .bitrate = track.format.audio_bitrate,
                              .options = track.options};
    AVStream* stream = openEncodedSound(output_, sound, sounds_.format(tracks_.size()).sample_fmt);
    if (!stream) return;
    output_.setStreamTags(stream, track.tags);
    tracks_.push_back(stream);
  }

  /// The tick that a time (seconds) falls on.
  int64_t tickAt(double seconds) const { return std::llround(seconds * rate_.num / rate_.den); }

  int64_t microsecondsAt(int64_t tick) const {
    return av_rescale(tick, int64_t{AV_TIME_BASE} * rate_.den, rate_.num);
  }

  /// The first tick that belongs to the part behind `i`, where that says.
  int64_t limitOf(size_t i) const {
    const bool isStated = i + 1 < parts_.size() && parts_[i + 1].input.position >= 0;
    return isStated ? tickAt(parts_[i + 1].input.position) : std::numeric_limits<int64_t>::max();
  }

  /// Whether a part follows the one before without a gap: a position that is less than a picture
  /// away means that, too.
  bool followsTheOther(size_t i) const {
    const double position = parts_[i].input.position;
    return i > 0 && !parts_[i - 1].wanted &&
           (position < 0 || std::abs(tickAt(position) - tick_) <= 1);
  }

  /// The part's time at which its first tick begins, microseconds: with the first picture where
  /// pictures follow pictures, else less than a tick after its own, so that pictures fall on ticks.
  int64_t startOf(const JoinPart& part, bool follows) const {
    if (!hasPictures_ || !part.video) return 0;
    const int64_t first = beginOf(part.info.streams[*part.video], part.info);
    if (follows && first <= kLongestLead) return std::max<int64_t>(first, 0);
    const double tick = 1e6 * part.input.rate * rate_.den / rate_.num;
    const double ticks = std::floor(static_cast<double>(first) / tick + kJitter);
    return first - std::llround(ticks * tick);
  }

  void writePart(size_t i) {
    JoinPart& part = parts_[i];
    const bool follows = followsTheOther(i);
    if (!follows && part.input.position >= 0) {
      sounds_.endInput();
      while (tick_ < tickAt(part.input.position) && !events_.isInterrupted()) writeTick(nullptr);
    }
    const int64_t start = startOf(part, follows);
    const int64_t begin = tick_;
    const OpenPart open(part);
    sounds_.beginInput(i, tick_, start, follows);
    PartPictures pictures(hasPictures_ ? part : JoinPart{}, plan_, output_, start);
    std::exception_ptr failure;
    pictures.movie().decodeImage(
        [&] {
          try {
            if (playPart(pictures, limitOf(i)))
              part.wanted =
                  start + std::llround(part.input.rate *
                                       static_cast<double>(microsecondsAt(limitOf(i) - begin)));
          } catch (...) {
            failure = std::current_exception();
          }
        },
        true);
    encoding_.finish();  // it may still read the part's pictures
    if (failure) std::rethrow_exception(failure);
    if (hasPictures_ && part.video) part.read.insert(*part.video);
    part.end = pictures.inputEnd();
    takeChapters(part, start, begin);
  }

  /// Takes in the chapters of what has been written of a part, whose time `start` lies at the
  /// output's tick `begin`.
  void takeChapters(const JoinPart& part, int64_t start, int64_t begin) {
    const double rate = part.input.rate;
    const int64_t offset = microsecondsAt(begin);
    const auto length = static_cast<double>(microsecondsAt(tick_) - offset);
    for (auto& chapter : chaptersOf(part.info, start, start + std::llround(length * rate)))
      chapters_.push_back({offset + std::llround(static_cast<double>(chapter.start_us) / rate),
                           offset + std::llround(static_cast<double>(chapter.end_us) / rate),
                           std::move(chapter.tags)});
  }

  /// Writes a part up to its end or the limit; answers whether that cut it.
  bool playPart(PartPictures& pictures, int64_t limit) {
    const int64_t overhang = hasPictures_ ? kOrdinaryOverhang : 0;
    bool goesOn = false;  // without pictures
    auto next = pictures.next();
    while (!events_.isInterrupted()) {
      const auto picture = next;
      if (picture) next = pictures.next();
      if (!picture) {  // then it goes on only for sound that is more than an overhang
        goesOn = goesOn || sounds_.goesOn(overhang);
        if (!goesOn || !sounds_.goesOn(0)) return false;
      }
      // A last picture at the limit still belongs to the part: lengths are rounded.
      if (tick_ >= limit && (tick_ > limit || !picture || next)) return true;
      writeTick(picture);
    }
    return false;
  }

  /// Writes one tick of pictures and sound: a picture, black without one, and the sound of its
  /// time.
  void writeTick(const std::shared_ptr<LMFFImage>& picture) {
    ++tick_;
    for (size_t i = 0; i < tracks_.size(); ++i)
      pushSound(i, [this, i] { return sounds_.read(i, tick_); });
    if (hasPictures_) {
      if (picture)
        push([this, picture] { output_.writeImage(picture); });
      else
        push([this] { output_.writeCGContext(black_.get()); });
    }
    const double seconds = static_cast<double>(tick_) * rate_.den / rate_.num;
    if (events_.progress) events_.progress({seconds, length_, hasPictures_ ? tick_ : 0});
  }

  void pushSound(size_t track, const std::function<JoinedSound::Samples()>& read) {
    const int channels = lm_get_channel_layout_nb_channels(sounds_.format(track).channel_layout);
    for (auto samples = read(); !samples.empty(); samples = read())
      push([this, track, channels, samples] {
        output_.writeSample(samples.data(), static_cast<int32_t>(samples.size()) / channels,
                            tracks_[track]);
      });
  }

  void push(std::function<void()> job) {
    encoding_.push([this, job = std::move(job)] {
      job();
      requireOutput(output_, settings_.output);
    });
  }

  const JoinSettings& settings_;
  std::vector<JoinPart>& parts_;
  const Events& events_;
  const std::optional<double> length_;
  const ConversionPlan plan_;
  const bool hasPictures_;
  const Rational rate_;  // ticks per second
  LMFFMovieFileOutput output_;
  JoinSounds sounds_;
  std::vector<AVStream*> tracks_;  // of the output's sound
  std::unique_ptr<BitmapContext> black_;
  std::vector<LMFFMovieFileOutput::Chapter> chapters_;
  int64_t tick_ = 0;  // ticks written
  JobQueue encoding_{kMostJobs};
};

}  // namespace

std::vector<std::string> encodeJoin(const JoinSettings& settings, std::vector<JoinPart>& parts,
                                    const JoinFormat& format, double length,
                                    const std::string& path, const Events& events) {
  JoinEncoder encoder(settings, parts, format, length, events);
  encoder.run(path);
  return encoder.losses();
}

}  // namespace kestrel
