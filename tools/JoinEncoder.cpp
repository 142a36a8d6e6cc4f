#include "JoinEncoder.h"

#include <kestrel/BitmapContext.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMFFMovieFileOutput.h>
#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <exception>
#include <limits>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "AudioFeed.h"
#include "Codecs.h"
#include "ConvertPlan.h"
#include "Failure.h"
#include "Interrupt.h"
#include "JobQueue.h"
#include "PictureMaker.h"
#include "Progress.h"
#include "Tempo.h"
#include "VideoFeed.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
}

using namespace kestrel;

namespace {

constexpr int32_t kSoundRate = 44100;  // the movie's own
constexpr int32_t kChannels = 2;
constexpr Rational kSoundAlone{50, 1};  // how often sound is written where there are no pictures
constexpr size_t kMostJobs = 4;
constexpr double kSameShape = 0.03;  // of width / height

/// Sound that goes on for less than this after the last picture belongs to no picture; frames.
constexpr int32_t kOrdinaryOverhang = kSoundRate / 10;

std::string layoutName(const AVChannelLayout& layout) {
  const int64_t usual = lm_get_default_channel_layout(layout.nb_channels);
  char text[64] = "";
  AVChannelLayout named{};
  if (usual) av_channel_layout_from_mask(&named, static_cast<uint64_t>(usual));
  av_channel_layout_describe(&named, text, sizeof text);
  return usual ? text : "";
}

bool isEncodable(const AVOutputFormat& container, AVCodecID codec, const std::string& path) {
  try {
    requireEncodable(container, codec, path);
    return true;
  } catch (const Failure&) {
    return false;
  }
}

/// The format asked for, with what it leaves open as in the first part, as far as the container
/// and the encoders allow.
ConvertSettings formatOf(const JoinSettings& settings, const JoinPart& first) {
  ConvertSettings format = settings.format;
  format.input = first.input.path;
  format.output = settings.output;
  const AVOutputFormat& container = outputFormatFor(settings.output);
  const AVFormatContext& context = *first.source->formatContext();
  const auto own = [&](std::string& name, const AVStream& stream) {
    const AVCodecID codec = stream.codecpar->codec_id;
    if (name.empty() && isEncodable(container, codec, settings.output))
      name = avcodec_get_name(codec);
  };
  if (first.video) own(format.videoCodec, *context.streams[*first.video]);
  if (first.audios.empty()) return format;
  const AVStream& sound = *context.streams[first.audios.front()];
  own(format.audioCodec, sound);
  // Another codec may not know the rate.
  if (!format.sampleRate && format.audioCodec == avcodec_get_name(sound.codecpar->codec_id))
    format.sampleRate = sound.codecpar->sample_rate;
  if (format.channels.empty()) format.channels = layoutName(sound.codecpar->ch_layout);
  return format;
}

/// One part as it plays: pictures by the output's ticks, and sound, both at its rate.
class Player {
 public:
  Player(const JoinPart& part, const ConvertPlan& plan, const LMFFMovieFileOutput& output)
      : rate_(part.input.rate) {
    IndexSet streams;
    if (part.video) streams.insert(*part.video);
    if (!part.audios.empty()) streams.insert(part.audios.front());
    movie_.setExportMovie(true);
    movie_.openMedias(part.source->createMediasWithStreams(streams));
    if (movie_.hasVideo() && plan.video == StreamAction::kEncode) openPictures(part, plan, output);
    if (movie_.hasAudio()) sound_ = std::make_unique<AudioFeed>(movie_);
    if (rate_ != 1 && sound_) tempo_ = std::make_unique<Tempo>(rate_);
    movie_.seek(0);
    movie_.flushOperation();
  }

  LMFFMovie& movie() { return movie_; }

  /// The next picture, null when there is none any more.
  std::shared_ptr<LMFFImage> nextPicture() {
    if (!pictures_) return nullptr;
    const int64_t middle = pictures_->time() + pictures_->tickDuration() / 2;
    auto picture = pictures_->next();
    if (!picture) pictures_.reset();
    return picture && maker_ ? maker_->make(picture, middle) : picture;
  }

  /// Makes sure that `frames` of sound wait; fewer where it ends before.
  int32_t fetchSound(int32_t frames) {
    std::vector<float> block(static_cast<size_t>(kBlock) * kChannels);
    while (waitingFrames() < frames && sound_) {
      const int32_t got = readSound(block.data(), kBlock);
      if (got == 0 && !sound_) break;
      waiting_.insert(waiting_.end(), block.begin(), block.begin() + kChannels * got);
    }
    return std::min(frames, waitingFrames());
  }

  /// Moves waiting sound into `data`.
  void takeSound(float* data, int32_t frames) {
    const auto end = waiting_.begin() + std::ptrdiff_t{kChannels} * frames;
    std::copy(waiting_.begin(), end, data);
    waiting_.erase(waiting_.begin(), end);
  }

 private:
  static constexpr int32_t kBlock = 1024;

  int32_t waitingFrames() const { return static_cast<int32_t>(waiting_.size()) / kChannels; }

  void openPictures(const JoinPart& part, const ConvertPlan& plan,
                    const LMFFMovieFileOutput& output) {
    const AVStream& stream = *part.source->formatContext()->streams[*part.video];
    const Size size{static_cast<double>(plan.format.width),
                    static_cast<double>(plan.format.height)};
    const double shape = plan.format.aspect > 0 ? plan.format.aspect : size.width / size.height;
    LookSettings settings;
    Look look(settings, stream);
    const double own = look.pixelAspect() * look.size().width / look.size().height;
    if (std::abs(own / shape - 1) > kSameShape) {
      settings.zoom = kWholeWithBars;
      look = Look(settings, stream);
    }
    if (!look.isPlain()) {
      look.apply(movie_, size);
      maker_ = std::make_unique<PictureMaker>(movie_, *output.videoConverter());
    }
    const AVRational ticks =
        av_mul_q({plan.rate.num, plan.rate.den}, av_inv_q(av_d2q(rate_, kMostExactRate)));
    pictures_ = std::make_unique<VideoFeed>(movie_, 0, Rational{ticks.num, ticks.den});
  }

  /// Reads some sound; `sound_` goes at its end.
  int32_t readSound(float* data, int32_t frames) {
    if (!tempo_) {
      const int32_t got = sound_->read(data, frames);
      if (got == 0) sound_.reset();
      return got;
    }
    int32_t got = 0;
    while ((got = tempo_->read(data, frames)) == 0 && !isDrained_) {
      const int32_t more = sound_->read(data, frames);
      tempo_->write(data, more);
      isDrained_ = more == 0;
    }
    if (got == 0) sound_.reset();
    return got;
  }

  static constexpr int32_t kWholeWithBars = 2;
  static constexpr int kMostExactRate = 100000;

  const double rate_;
  LMFFMovie movie_;
  std::unique_ptr<VideoFeed> pictures_;
  std::unique_ptr<PictureMaker> maker_;
  std::unique_ptr<AudioFeed> sound_;
  std::unique_ptr<Tempo> tempo_;
  bool isDrained_ = false;
  std::deque<float> waiting_;
};

class JoinEncoder {
 public:
  JoinEncoder(const JoinSettings& settings, const std::vector<JoinPart>& parts, double length)
      : settings_(settings),
        parts_(parts),
        progress_(settings.progress, length),
        format_(formatOf(settings, parts.front())),
        plan_(planConversion(format_, *parts.front().source)),
        rate_(plan_.video == StreamAction::kEncode ? plan_.rate : kSoundAlone) {}

  void run(const std::string& path) {
    openOutput(path);
    for (size_t i = 0; i < parts_.size() && !interrupted(); ++i) writePart(i);
    if (interrupted()) return;
    if (plan_.audio == StreamAction::kEncode) encoding_.push([this] { output_.finishAudio(); });
    encoding_.finish();
    output_.stopOutput();
    requireOutput();
    progress_.finish();
  }

 private:
  void requireOutput() {
    if (!output_.lastError() || interrupted()) return;
    throw Failure{kFailed, fmt::format("cannot write '{}': {}", settings_.output,
                                       output_.lastError().message)};
  }

  void openOutput(const std::string& path) {
    output_.setPath(path);
    output_.setFormatName(plan_.formatName);
    output_.setMovieFormat(plan_.format);
    output_.setOutputColor(plan_.color);
    output_.setVideoOptions(plan_.videoOptions);
    output_.setAudioOptions(plan_.audioOptions);
    output_.setMuxerOptions(plan_.muxerOptions);
    output_.setInterrupt(interrupted);
    if (plan_.video == StreamAction::kEncode) output_.openVideo();
    if (plan_.audio == StreamAction::kEncode) output_.openAudio();
    if (!output_.startOutput()) requireOutput();
    if (plan_.video == StreamAction::kEncode) black_ = output_.createCGContext();
  }

  /// The tick that a time (seconds) falls on.
  int64_t tickAt(double seconds) const { return std::llround(seconds * rate_.num / rate_.den); }

  /// The first tick that belongs to the part behind `i`, where that says.
  int64_t limitOf(size_t i) const {
    const bool isStated = i + 1 < parts_.size() && parts_[i + 1].input.position >= 0;
    return isStated ? tickAt(parts_[i + 1].input.position) : std::numeric_limits<int64_t>::max();
  }

  void writePart(size_t i) {
    if (parts_[i].input.position >= 0)
      while (tick_ < tickAt(parts_[i].input.position) && !interrupted())
        writeTick(nullptr, nullptr);
    Player player(parts_[i], plan_, output_);
    std::exception_ptr failure;
    player.movie().decodeImage(
        [&] {
          try {
            playPart(player, limitOf(i));
          } catch (...) {
            failure = std::current_exception();
          }
        },
        true);
    encoding_.finish();  // it may still read the part's pictures
    if (failure) std::rethrow_exception(failure);
  }

  void playPart(Player& player, int64_t limit) {
    const int32_t overhang = plan_.video == StreamAction::kEncode ? kOrdinaryOverhang : 1;
    bool goesOn = false;  // without pictures
    while (tick_ < limit && !interrupted()) {
      const auto picture = player.nextPicture();
      if (!picture) {  // then it goes on only for sound that is more than an overhang
        goesOn = goesOn ||
                 (plan_.audio == StreamAction::kEncode && player.fetchSound(overhang) >= overhang);
        if (!goesOn || player.fetchSound(1) == 0) return;
      }
      writeTick(picture, &player);
    }
  }

  /// Writes one tick of pictures and sound: a picture, black without one; a player's sound, silence
  /// where that has ended or there is no player.
  void writeTick(const std::shared_ptr<LMFFImage>& picture, Player* player) {
    ++tick_;
    if (plan_.audio == StreamAction::kEncode) {
      const int64_t end = av_rescale(tick_, int64_t{kSoundRate} * rate_.den, rate_.num);
      const auto wanted = static_cast<int32_t>(end - frames_);
      auto block =
          std::make_shared<std::vector<float>>(static_cast<size_t>(wanted) * kChannels, 0.F);
      if (player) player->takeSound(block->data(), player->fetchSound(wanted));
      frames_ = end;
      push([this, block, wanted] { output_.writeSample(block->data(), wanted); });
    }
    if (plan_.video == StreamAction::kEncode) {
      if (picture)
        push([this, picture] { output_.writeImage(picture); });
      else
        push([this] { output_.writeCGContext(black_.get()); });
    }
    const double seconds = static_cast<double>(tick_) * rate_.den / rate_.num;
    progress_.update(seconds, plan_.video == StreamAction::kEncode ? tick_ : 0);
  }

  void push(std::function<void()> job) {
    encoding_.push([this, job = std::move(job)] {
      job();
      requireOutput();
    });
  }

  const JoinSettings& settings_;
  const std::vector<JoinPart>& parts_;
  Progress progress_;
  const ConvertSettings format_;
  const ConvertPlan plan_;
  const Rational rate_;  // ticks per second
  LMFFMovieFileOutput output_;
  std::unique_ptr<BitmapContext> black_;
  int64_t tick_ = 0;    // ticks written
  int64_t frames_ = 0;  // of sound written
  JobQueue encoding_{kMostJobs};
};

}  // namespace

void encodeJoin(const JoinSettings& settings, const std::vector<JoinPart>& parts, double length,
                const std::string& path) {
  JoinEncoder(settings, parts, length).run(path);
}
