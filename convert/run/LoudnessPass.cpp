#include "convert/run/LoudnessPass.h"

#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <limits>
#include <span>
#include <utility>
#include <vector>

#include <kestrel/convert/Failure.h>
#include "convert/feed/AudioFeed.h"
#include "convert/feed/LoudnessMeter.h"
#include "convert/feed/Readers.h"

namespace kestrel {

namespace {

constexpr int32_t kBlockFrames = 4096;
constexpr double kSecond = 1000000;

/// A seek may land late: it aims this much earlier and what is too early is dropped; microseconds.
constexpr int64_t kPreroll = 500000;

bool isSet(const PlannedStream& stream) {
  return stream.kind == StreamInfo::Kind::kAudio && stream.action == StreamAction::kEncode &&
         stream.sound.loudness;
}

/// One stream of the result as it is listened to.
struct Listener {
  Listener(size_t place, AudioFeed sound)
      : index(place),
        feed(std::move(sound)),
        meter(feed.format().sample_rate, feed.format().channel_layout) {}

  int64_t framesIn(int64_t time) const {
    return std::llround(static_cast<double>(time) * feed.format().sample_rate / kSecond);
  }

  double time() const { return static_cast<double>(frames) / feed.format().sample_rate; }

  /// Reads a block; nothing at the end.
  void step() {
    const int64_t wanted = stop ? std::min<int64_t>(*stop - frames, kBlockFrames) : kBlockFrames;
    samples.resize(static_cast<size_t>(kBlockFrames) * static_cast<size_t>(feed.channels()));
    const int32_t got = wanted > 0 ? feed.read(samples.data(), static_cast<int32_t>(wanted)) : 0;
    hasEnded = got == 0;
    frames += got;
    meter.take(
        std::span(samples).first(static_cast<size_t>(got) * static_cast<size_t>(feed.channels())));
  }

  size_t index;
  AudioFeed feed;
  LoudnessMeter meter;
  std::vector<float> samples = {};
  std::optional<int64_t> stop = {};
  int64_t frames = 0;
  bool hasEnded = false;
};

std::vector<std::unique_ptr<Listener>> listenersOf(const LMFFMovie& movie,
                                                   const ConversionPlan& plan, int64_t preroll) {
  std::vector<std::unique_ptr<Listener>> listeners;
  for (size_t i = 0; i < plan.streams.size(); ++i) {
    std::vector<AudioFeed::Input> inputs;
    for (const uint32_t index : plan.streams[i].sources)
      if (const ReadStream read = readerOf(movie.medias(), index);
          isSet(plan.streams[i]) && read.stream)
        inputs.push_back({read.media, read.stream});
    if (inputs.empty()) continue;
    listeners.push_back(std::make_unique<Listener>(i, AudioFeed(inputs)));
    Listener& listener = *listeners.back();
    if (plan.end) listener.stop = listener.framesIn(*plan.end - plan.start);
    listener.feed.skip(listener.framesIn(preroll));
  }
  return listeners;
}

/// Reads all of it, the one that is furthest behind first, so that little waits.
void listen(const std::vector<std::unique_ptr<Listener>>& listeners, double seconds,
            const Events& events) {
  const auto key = [](const auto& listener) {
    return listener->hasEnded ? std::numeric_limits<double>::infinity() : listener->time();
  };
  while (!listeners.empty()) {
    if (events.isInterrupted()) throw Failure::interrupted();
    Listener& behind = **std::ranges::min_element(listeners, {}, key);
    if (behind.hasEnded) return;
    behind.step();
    if (events.progress)
      events.progress({.time = seconds > 0 ? std::min(behind.time(), seconds) : behind.time(),
                       .duration = seconds > 0 ? std::optional(seconds) : std::nullopt});
  }
}

}  // namespace

bool setsLoudness(const ConversionPlan& plan) { return std::ranges::any_of(plan.streams, isSet); }

std::map<size_t, std::optional<double>> measureLoudness(
    const std::shared_ptr<LMMediaSource>& source, const ConversionPlan& plan, double seconds,
    const Events& events) {
  ConversionPlan sounds = plan;
  for (PlannedStream& stream : sounds.streams)
    if (!isSet(stream)) stream.action = StreamAction::kNone;
  LMFFMovie movie;
  movie.setExportMovie(true);
  movie.openMedias(openReaders(source, sounds));
  const int64_t preroll = std::min(kPreroll, plan.start);
  movie.seek(plan.start - preroll);
  movie.flushOperation();
  std::map<size_t, std::optional<double>> measured;
  std::exception_ptr failure;
  movie.decodeImage(
      [&] {
        try {
          const auto listeners = listenersOf(movie, sounds, preroll);
          listen(listeners, seconds, events);
          for (const auto& listener : listeners)
            measured[listener->index] = listener->meter.loudness();
        } catch (...) {
          failure = std::current_exception();
        }
      },
      true);
  if (failure) std::rethrow_exception(failure);
  return measured;
}

}  // namespace kestrel
