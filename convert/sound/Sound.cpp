#include <kestrel/convert/Sound.h>

#include <kestrel/LMFFAudioResample.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "convert/feed/AudioFeed.h"
#include "convert/plan/SoundFormat.h"
#include "convert/probe/Input.h"
#include "convert/probe/InputEnd.h"
#include "convert/probe/Streams.h"
#include "convert/settings/Require.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

namespace kestrel {

namespace {

constexpr int64_t kMicro = 1000000;
constexpr int64_t kBlockFrames = 4096;

/// A seek may land late: it aims this much earlier and what is too early is dropped; microseconds.
constexpr int64_t kPreroll = kMicro / 2;

const SoundSettings& checked(const SoundSettings& settings) {
  requireChoice("audioTracks", settings.audioTracks);
  whereGiven("sampleRate", settings.sampleRate, requireSampleRate);
  whereGiven("channelLayout", settings.channelLayout, requireLayout);
  return settings;
}

}  // namespace

class Sound::Input {
 public:
  Input(const SoundSettings& settings, const Interrupt& interrupt);

  const LMFFAudioFormat& format() const { return format_; }
  std::optional<int64_t> duration() const;
  void seek(int64_t time);
  int64_t read(float* samples, int64_t frames);
  Report report() const;

 private:
  int64_t framesIn(int64_t time) const { return av_rescale(time, format_.sample_rate, kMicro); }

  const std::string path_;
  std::shared_ptr<LMMediaSource> source_;
  IndexSet streams_;
  LMFFMovie movie_;
  LMFFAudioFormat format_ = lm_get_default_audio_format();
  std::vector<AudioFeed::Input> inputs_;
  std::optional<AudioFeed> feed_;
  int64_t time_ = 0;  // where reading began
  int64_t frames_ = 0;
  bool hasEnded_ = false;
};

Sound::Input::Input(const SoundSettings& settings, const Interrupt& interrupt)
    : path_(checked(settings).input), source_(openInput(settings, interrupt)) {
  streams_ = chosenAudios(settings.audioTracks, *source_);
  if (streams_.empty()) throw Failure::input(path_, fmt::format("'{}' has no sound", path_));
  const auto media = std::make_shared<LMFFMedia>();
  media->setSource(source_);
  media->setSelectStreams(streams_);
  movie_.setExportMovie(true);
  movie_.openMedias({media});
  std::vector<AudioFeed::Input> inputs;
  for (const uint32_t index : streams_)
    if (const auto stream = media->mediaStreamForStreamIndex(index); stream && stream->isOpen())
      inputs.push_back({media, stream});
  if (inputs.empty())
    throw Failure::input(path_, fmt::format("the sound of '{}' cannot be decoded", path_));
  const AVCodecParameters& first = *inputs.front().stream->stream()->codecpar;
  if (first.sample_rate < 1 || layoutOf(first) == 0)
    throw Failure::input(path_, fmt::format("the sound of '{}' cannot be decoded", path_));
  format_.sample_rate = settings.sampleRate.value_or(first.sample_rate);
  format_.channel_layout = settings.channelLayout.value_or(layoutOf(first));
  for (const auto& input : inputs) {
    const auto resample = input.stream->resample();
    resample->setKeepsLevel(true);
    resample->setPrecise(true);
    resample->setOutFormat(format_);
  }
  inputs_ = std::move(inputs);
  feed_.emplace(inputs_);
}

std::optional<int64_t> Sound::Input::duration() const {
  const int64_t duration = movie_.duration();
  return duration > 0 && duration < LMFFMedia::kUnknownDuration ? std::optional(duration)
                                                                : std::nullopt;
}

void Sound::Input::seek(int64_t time) {
  time = std::max<int64_t>(time, 0);
  const int64_t preroll = std::min(kPreroll, time);
  inputs_.front().media->seek(time - preroll);
  feed_.emplace(inputs_);
  feed_->skip(framesIn(preroll));
  time_ = time;
  frames_ = 0;
}

int64_t Sound::Input::read(float* samples, int64_t frames) {
  int64_t done = 0;
  while (done < frames) {
    if (isInterrupted(movie_)) throw Failure::interrupted();
    const auto wanted = static_cast<int32_t>(std::min<int64_t>(frames - done, kBlockFrames));
    const int32_t got = feed_->read(samples + done * feed_->channels(), wanted);
    hasEnded_ = got == 0;
    if (hasEnded_) break;
    done += got;
  }
  if (isInterrupted(movie_)) throw Failure::interrupted();
  frames_ += done;
  return done;
}

Report Sound::Input::report() const {
  Report report;
  InputEnd end = faultsOf(movie_);
  end.reached = time_ + av_rescale(frames_, kMicro, format_.sample_rate);
  if (hasEnded_) end.error = source_->lastError();
  // After a seek, packets may need others that were not read.
  if (time_ > 0) end.refused = end.mended = end.incomplete = 0;
  const auto wanted = hasEnded_ ? std::nullopt : std::optional(end.reached);
  judgeInput(report, path_, {*source_, *source_->formatContext(), streams_, wanted}, end);
  return report;
}

Sound::Sound(const SoundSettings& settings, const Interrupt& interrupt)
    : input_(std::make_unique<Input>(settings, interrupt)) {}

Sound::~Sound() = default;

int Sound::sampleRate() const { return input_->format().sample_rate; }

int Sound::channels() const {
  return lm_get_channel_layout_nb_channels(input_->format().channel_layout);
}

int64_t Sound::channelLayout() const { return input_->format().channel_layout; }

std::optional<int64_t> Sound::duration() const { return input_->duration(); }

void Sound::seek(int64_t time) { input_->seek(time); }

int64_t Sound::read(float* samples, int64_t frames) { return input_->read(samples, frames); }

Report Sound::report() const { return input_->report(); }

}  // namespace kestrel
