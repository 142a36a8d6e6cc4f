#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/Log.h>
#include <kestrel/MovieAudioTaskExtractWave.h>
#include <kestrel/PropertyList.h>
#include <kestrel/Waveform.h>
#include <kestrel/convert/WaveformFile.h>

#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <csignal>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/cli/Text.h"
#include "tools/terminal/ExitStatus.h"
#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Say.h"

// The program that `MovieAudioTaskExtractWave` runs:
//
//     SamplePointsTask INPUT RESULT [SELECTORS]
//
// It decodes the input's sound (of the tracks "1-3", where selectors are given) and writes a
// property list: "sample", a list with a dictionary for each channel, whose "min", "max" and "rms"
// are data of 32-bit floats, lowest byte first; "sampleRate", "channels", "pointsPerSecond" and
// "samplesPerPoint" are numbers beside it. Progress goes through the pasteboard.

using namespace kestrel;

namespace {

using Clock = std::chrono::steady_clock;
constexpr double kPointsPerSecond = 50;
constexpr auto kPause = std::chrono::milliseconds(50);  // between two reports of progress

IndexSet parseSelectors(std::string text) {
  std::ranges::replace(text, '-', ',');
  const auto numbers = parseIndexList(text);
  if (!numbers) throw wrongUsage("'" + text + "' names no sound tracks");
  return *numbers;
}

PropertyList floats(const std::vector<WaveformPoint>& points, float WaveformPoint::*value) {
  PropertyList::Data data;
  data.reserve(points.size() * sizeof(float));
  for (const WaveformPoint& point : points) {
    const auto bits = std::bit_cast<uint32_t>(point.*value);
    for (int shift = 0; shift < 32; shift += 8) data.push_back(static_cast<uint8_t>(bits >> shift));
  }
  return data;
}

/// Takes the waveform's points apart: both at once would be much for long sound.
PropertyList resultOf(Waveform waveform) {
  PropertyList::Array sample;
  for (std::vector<WaveformPoint>& points : waveform.channels) {
    PropertyList::Dictionary channel;
    channel["min"] = floats(points, &WaveformPoint::min);
    channel["max"] = floats(points, &WaveformPoint::max);
    channel["rms"] = floats(points, &WaveformPoint::rms);
    sample.emplace_back(std::move(channel));
    points = {};
  }
  PropertyList::Dictionary result;
  result["sampleRate"] = waveform.sampleRate;
  result["channels"] = static_cast<int64_t>(waveform.channels.size());
  result["samplesPerPoint"] = waveform.samplesPerPoint;
  result["pointsPerSecond"] = waveform.pointsPerSecond();
  result["sample"] = std::move(sample);
  return result;
}

int extract(const std::string& input, const std::string& result,
            const std::optional<std::string>& selectors) {
  WaveformSettings settings;
  settings.splitChannels = true;
  settings.pointsPerSecond = kPointsPerSecond;
  if (selectors && !selectors->empty()) settings.tracks = parseSelectors(*selectors);
  MovieAudioTaskExtractWave reporter;
  auto next = Clock::now();
  const auto tell = [&](const Progress& progress) {
    if (!progress.duration || Clock::now() < next) return;
    next = Clock::now() + kPause;
    reporter.setProgress(std::min(progress.time / *progress.duration, 1.0));
  };
  auto drawn = drawWaveform(input, settings, {.interrupt = interrupted, .progress = tell});
  if (drawn.report.outcome == Report::Outcome::kInterrupted) return kInterrupted;
  Error error;
  if (!resultOf(std::move(drawn.waveform)).writeToFile(result, &error))
    throw failed(fmt::format("cannot write '{}': {}", result, error.message));
  reporter.setProgress(1);
  return finish(drawn.report);
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  setLogSink([](std::string_view) {});
  LMFFMovie::initialize();
  try {
    watchForInterrupt();
    if (argc != 3 && argc != 4)
      throw wrongUsage("usage: SamplePointsTask INPUT RESULT [SELECTORS]");
    return extract(argv[1], argv[2],
                   argc == 4 ? std::optional<std::string>(argv[3]) : std::nullopt);
  } catch (const Failure& failure) {
    say(failure.what());
    return statusOf(failure);
  } catch (const std::exception& error) {
    say(error.what());
    return kFailed;
  }
}
