#include <kestrel/Log.h>
#include <kestrel/MovieAudioTaskExtractWave.h>
#include <kestrel/convert/Values.h>
#include <kestrel/convert/WaveformFile.h>

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tools/terminal/Interrupt.h"
#include "tools/terminal/Outcome.h"
#include "tools/terminal/Worker.h"

// The program that `MovieAudioTaskExtractWave` runs:
//
//     SamplePointsTask INPUT RESULT [SELECTORS]
//
// It decodes the input's sound (of the tracks "1-3", where selectors are given) and writes its
// outline as a property list (`samplePointsOf`). Progress goes through the pasteboard.

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
  if (!samplePointsOf(std::move(drawn.waveform)).writeToFile(result, &error))
    throw failed(fmt::format("cannot write '{}': {}", result, error.message));
  reporter.setProgress(1);
  return finish(drawn.report);
}

}  // namespace

int main(int argc, char** argv) {
  setLogSink([](std::string_view) {});
  return runWorker([&] {
    if (argc != 3 && argc != 4)
      throw wrongUsage("usage: SamplePointsTask INPUT RESULT [SELECTORS]");
    return extract(argv[1], argv[2],
                   argc == 4 ? std::optional<std::string>(argv[3]) : std::nullopt);
  });
}
