#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/Waveform.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/codec/Codec.h"
#include "support/BestStream.h"
#include "support/FFmpegError.h"
#include "support/FFmpegOwners.h"
#include "waveform/PointMaker.h"

namespace kestrel {

namespace {

/// What ends the reading before its end.
struct Stop : std::runtime_error {
  explicit Stop(const std::string& why, int errorCode = AVERROR(EINVAL))
      : std::runtime_error(why), code(errorCode) {}
  const int code;
};

constexpr size_t kMostPoints = size_t{1} << 27;
constexpr double kMostExpectedPoints = 4e6;  // that memory is set aside for
constexpr int64_t kSmallestHole = 100000;    // microseconds

/// Where clocks may be set anew on the way, a leap this long (microseconds) is that and no hole.
constexpr int64_t kShortestLeap = 10000000;

/// A sound track: its decoder, and where its samples go.
class TrackReader {
 public:
  TrackReader(const AVStream& stream, const WaveformSettings& settings,
              const AVFormatContext& input, int64_t start)
      : stream_(stream),
        settings_(settings),
        start_(start),
        mayLeap_((input.iformat->flags & AVFMT_TS_DISCONT) != 0) {
    openDecoder();
    rate_ = decoder_->sample_rate;
    const double seconds = static_cast<double>(std::max<int64_t>(input.duration, 0)) / AV_TIME_BASE;
    expectedPoints_ = static_cast<size_t>(
        std::min(seconds * settings.pointsPerSecond * 1.01 + 10, kMostExpectedPoints));
    if (rate_ <= 0) throw Stop("the sound has no sample rate");
  }

  int32_t rate() const { return rate_; }
  int32_t samplesPerPoint() const {
    const double samples = std::round(rate_ / settings_.pointsPerSecond);
    return static_cast<int32_t>(std::clamp(samples, 1.0, 1e9));
  }
  double seconds() const { return static_cast<double>(count_) / rate_; }

  void decode(const AVPacket* packet) {
    const int errors =
        decodePacket(*decoder_, packet, [this](const FramePtr& frame) { take(*frame); });
    // A damaged packet is passed over; the first of a broadcast may be cut.
    if (packet && (count_ > 0 || !mayLeap_)) decodeErrors_ += errors;
  }

  std::vector<PointMaker>& lanes() { return lanes_; }
  int64_t decodeErrors() const { return decodeErrors_; }

 private:
  /// How samples come.
  struct Form {
    int format = AV_SAMPLE_FMT_NONE;
    int32_t channels = 0;
    int32_t rate = 0;
    bool operator==(const Form&) const = default;
  };

  void openDecoder() {
    const int result =
        kestrel::openDecoder(decoder_, *stream_.codecpar,
                             {.timebase = stream_.time_base, .sampleFormat = AV_SAMPLE_FMT_FLTP});
    if (result == AVERROR_DECODER_NOT_FOUND)
      throw Stop(fmt::format("there is no decoder for '{}'",
                             avcodec_get_name(stream_.codecpar->codec_id)));
    if (result < 0) throw Stop(libraryError(result).message);
  }

  void take(const AVFrame& frame) {
    if (frame.nb_samples <= 0) return;
    if (lanes_.empty()) begin(frame);
    fillHole(frame);
    int32_t count = frame.nb_samples;
    const float* const* channels = planes(frame, count);
    if (settings_.splitChannels) {
      for (size_t i = 0; i < lanes_.size(); ++i) lanes_[i].add(channels[i], count);
    } else {
      lanes_.front().add(mean(channels, count), count);
    }
    count_ += count;
    requireRoom(0);
  }

  void begin(const AVFrame& frame) {
    channels_ = frame.ch_layout.nb_channels;
    rate_ = frame.sample_rate;
    for (int32_t lane = 0; lane < (settings_.splitChannels ? channels_ : 1); ++lane)
      lanes_.emplace_back(samplesPerPoint(), expectedPoints_);
  }

  /// Refuses sound whose outline would be too large with `more` samples.
  void requireRoom(int64_t more) const {
    const int64_t points = (count_ + more) / samplesPerPoint();
    if (points > static_cast<int64_t>(kMostPoints / lanes_.size()))
      throw Stop("the sound is too long for so many points per second");
  }

  void fillHole(const AVFrame& frame) {
    if (frame.pts == AV_NOPTS_VALUE) return;
    const int64_t now = av_rescale(count_, 1000000, rate_);
    int64_t time = av_rescale_q(frame.pts, stream_.time_base, kMicroseconds) - start_;
    if (mayLeap_ && count_ > 0 && std::abs(time - now) > kShortestLeap) {
      start_ += time - now;
      time = now;
    }
    if (time - now < kSmallestHole) return;
    const int64_t hole = av_rescale(time - now, rate_, 1000000);
    requireRoom(hole);
    for (PointMaker& lane : lanes_) lane.add(nullptr, hole);
    count_ += hole;
  }

  /// The frame's channels as floats, at the rate and with the channels that the sound began with;
  /// `count` becomes how many samples that makes.
  const float* const* planes(const AVFrame& frame, int32_t& count) {
    const Form form{frame.format, frame.ch_layout.nb_channels, frame.sample_rate};
    if (form == Form{AV_SAMPLE_FMT_FLTP, channels_, rate_})
      return reinterpret_cast<const float* const*>(frame.extended_data);
    if (!converter_ || form != convertedFrom_) openConverter(form);
    const int32_t room = swr_get_out_samples(converter_.get(), frame.nb_samples);
    converted_.resize(static_cast<size_t>(room) * channels_);
    pointers_.resize(channels_);
    for (size_t i = 0; i < pointers_.size(); ++i) pointers_[i] = converted_.data() + i * room;
    count = swr_convert(converter_.get(), reinterpret_cast<uint8_t**>(pointers_.data()), room,
                        const_cast<const uint8_t**>(frame.extended_data), frame.nb_samples);
    count = std::max(count, 0);
    return pointers_.data();
  }

  void openConverter(const Form& form) {
    // Which speaker a channel is for does not matter while their number stays.
    AVChannelLayout from{};
    AVChannelLayout to{};
    av_channel_layout_default(&from, form.channels);
    av_channel_layout_default(&to, channels_);
    SwrContext* context = nullptr;
    const int result =
        swr_alloc_set_opts2(&context, &to, AV_SAMPLE_FMT_FLTP, rate_, &from,
                            static_cast<AVSampleFormat>(form.format), form.rate, 0, nullptr);
    av_channel_layout_uninit(&from);
    av_channel_layout_uninit(&to);
    converter_.reset(context);
    convertedFrom_ = form;
    if (result < 0 || swr_init(context) < 0) throw Stop("the sound's format is unknown");
  }

  const float* mean(const float* const* channels, int32_t count) {
    if (channels_ == 1) return channels[0];
    mean_.assign(channels[0], channels[0] + count);
    for (int32_t channel = 1; channel < channels_; ++channel)
      for (int32_t i = 0; i < count; ++i) mean_[i] += channels[channel][i];
    const float scale = 1.0F / static_cast<float>(channels_);
    for (float& sample : mean_) sample *= scale;
    return mean_.data();
  }

  const AVStream& stream_;
  const WaveformSettings& settings_;
  int64_t start_;  // of the input, microseconds; moved where the clock leaps
  const bool mayLeap_;
  CodecContextPtr decoder_;
  SwrPtr converter_;
  Form convertedFrom_;
  std::vector<float> converted_;
  std::vector<float*> pointers_;
  std::vector<float> mean_;
  size_t expectedPoints_ = 0;
  int32_t rate_ = 0;
  int32_t channels_ = 0;
  int64_t count_ = 0;  // samples per channel, silence included
  int64_t decodeErrors_ = 0;
  std::vector<PointMaker> lanes_;
};

/// The container's indexes of the tracks to read.
std::vector<uint32_t> chosenStreams(AVFormatContext& context, const WaveformSettings& settings) {
  const size_t count = soundTracks(context).size();
  if (count == 0) throw Stop("it has no sound");
  if (settings.tracks && settings.tracks->empty()) throw Stop("no sound track is chosen");
  for (const uint32_t track : settings.tracks.value_or(IndexSet{}))
    if (track >= count)
      throw Stop(fmt::format("there is no audio track {}: the input has {}", track, count),
                 kNoSuchTrack);
  return soundTracks(context, settings.tracks);
}

/// How much of the input has been read, 0 to 1.
double partRead(const AVFormatContext& context, double seconds) {
  if (context.duration > 0)
    return std::clamp(seconds * AV_TIME_BASE / static_cast<double>(context.duration), 0.0, 1.0);
  const int64_t size = context.pb ? avio_size(context.pb) : 0;
  return size > 0 ? static_cast<double>(avio_tell(context.pb)) / static_cast<double>(size) : 0;
}

/// The tracks' channels side by side; tracks that end earlier are silent to the end.
Waveform wholeOf(std::vector<TrackReader>& tracks) {
  Waveform waveform{tracks.front().rate(), tracks.front().samplesPerPoint(), {}};
  size_t length = 0;
  for (TrackReader& track : tracks) {
    waveform.decodeErrors += track.decodeErrors();
    for (PointMaker& lane : track.lanes()) {
      waveform.channels.push_back(lane.finish());
      length = std::max(length, waveform.channels.back().size());
    }
  }
  if (length == 0) throw Stop("no sound could be decoded");
  for (auto& points : waveform.channels) points.resize(length);
  return waveform;
}

Waveform readWaveform(LMMediaSource& source, const WaveformSettings& settings) {
  source.open();
  AVFormatContext* context = source.formatContext();
  if (!context) throw Stop(source.lastError().message);
  const std::vector<unsigned> chosen = chosenStreams(*context, settings);
  std::vector<TrackReader> tracks;
  tracks.reserve(chosen.size());
  for (unsigned i = 0; i < context->nb_streams; ++i) {
    if (std::ranges::count(chosen, i))
      tracks.emplace_back(*context->streams[i], settings, *context, source.start_time());
    else
      context->streams[i]->discard = AVDISCARD_ALL;
  }
  for (const TrackReader& track : tracks)
    if (track.rate() != tracks.front().rate())
      throw Stop("the sound tracks have different sample rates");

  const auto requireGoingOn = [&] {
    if (settings.interrupt && settings.interrupt()) throw Stop("interrupted");
  };
  const PacketPtr packet = makePacket();
  while (source.readPacket(packet.get())) {
    requireGoingOn();
    const auto place = std::ranges::find(chosen, static_cast<uint32_t>(packet->stream_index));
    if (place != chosen.end()) {
      TrackReader& track = tracks[static_cast<size_t>(place - chosen.begin())];
      track.decode(packet.get());
      if (settings.progress)
        settings.progress(partRead(*context, track.seconds()), track.seconds());
    }
    av_packet_unref(packet.get());
  }
  requireGoingOn();
  for (TrackReader& track : tracks) track.decode(nullptr);
  return wholeOf(tracks);
}

}  // namespace

std::optional<Waveform> waveformOfSource(const std::shared_ptr<LMMediaSource>& source,
                                         const WaveformSettings& settings, Error* error) {
  LMFFMovie::initialize();
  try {
    if (!source) throw Stop("there is no input");
    if (!(settings.pointsPerSecond > 0)) throw Stop("there are no points in no time");
    return readWaveform(*source, settings);
  } catch (const Stop& stop) {
    if (error) *error = engineError(stop.code, stop.what());
    return std::nullopt;
  }
}

}  // namespace kestrel
