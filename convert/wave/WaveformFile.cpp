#include <kestrel/convert/WaveformFile.h>

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/OutputFile.h>
#include "convert/probe/Input.h"
#include "convert/probe/InputEnd.h"
#include "convert/wave/WaveFile.h"
#include "convert/wave/WaveRules.h"
#include "support/BestStream.h"
#include "support/Words.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

namespace {

/// How long an input is, seconds; none where that is not known.
std::optional<double> lengthOf(const LMMediaSource& source) {
  const auto duration = mediaInfoOf(source).duration.value_or(0);
  return duration > 0 ? std::optional(lm_ff_time_to_double(duration)) : std::nullopt;
}

/// Draws an opened input, which is at its end afterwards.
DrawnWaveform draw(const std::string& path, const std::shared_ptr<LMMediaSource>& source,
                   WaveformSettings settings, const Events& events) {
  InputEnd end;
  const auto length = lengthOf(*source);
  settings.interrupt = events.interrupt;
  settings.progress = [&](double, double seconds) {
    end.reached = std::max(end.reached, static_cast<int64_t>(seconds * AV_TIME_BASE));
    if (events.progress) events.progress({seconds, length, 0});
  };
  Error error;
  auto waveform = waveformOfSource(source, settings, &error);
  if (events.isInterrupted()) return {{}, Report::interrupted()};
  if (error.code == kNoSuchTrack) throw Failure::settings("tracks: " + error.message, "tracks");
  if (!waveform)
    throw Failure::input(path, fmt::format("cannot draw '{}': {}", path, error.message));
  DrawnWaveform drawn{std::move(*waveform), {}};
  end.error = source->lastError();
  end.refused = drawn.waveform.decodeErrors;
  AVFormatContext& facts = *source->formatContext();
  const auto chosen = soundTracks(facts, settings.tracks);
  const IndexSet streams(chosen.begin(), chosen.end());
  for (const uint32_t index : streams)
    end.incomplete += source->damagedPackets(static_cast<int>(index));
  judgeInput(drawn.report, path, {*source, facts, streams, {}}, end);
  return drawn;
}

void write(const WaveformFileSettings& settings, const Waveform& waveform, OutputFile& target) {
  switch (settings.form) {
    case WaveformFileSettings::Form::kJson:
      return writeWaveJson(waveform, settings.bits, target);
    case WaveformFileSettings::Form::kData:
      return writeWaveData(waveform, settings.bits, target);
    case WaveformFileSettings::Form::kPicture:
      return writeWavePicture(waveform, settings.width, settings.height, target);
  }
}

/// What a call answers; an interrupt, wherever it was noticed, is an answer, too.
template <typename Work>
auto unlessInterrupted(Work work, decltype(work()) answer) {
  try {
    return work();
  } catch (const Failure& failure) {
    if (failure.kind() != Failure::Kind::kInterrupted) throw;
    return answer;
  }
}

Report drawAndWrite(const WaveformFileSettings& settings, const Events& events) {
  const auto source = openInput(settings, events.interrupt);
  OutputFile target(settings.output, settings.replaces, settings.input);
  WaveformSettings waveform = settings.waveform;
  const auto length = lengthOf(*source);
  if (settings.form == WaveformFileSettings::Form::kPicture && length)
    waveform.pointsPerSecond = std::max(waveform.pointsPerSecond, settings.width / *length);
  const DrawnWaveform drawn = draw(settings.input, source, waveform, events);
  if (drawn.report.outcome == Report::Outcome::kInterrupted) return drawn.report;
  write(settings, drawn.waveform, target);
  target.commit();
  return drawn.report;
}

}  // namespace

DrawnWaveform drawWaveform(const std::string& input, const WaveformSettings& settings,
                           const Events& events, std::optional<int> title, int angle,
                           const Protocols& protocols) {
  require(settings);
  return unlessInterrupted(
      [&] {
        return draw(input, openInput(input, title, events.interrupt, angle, protocols), settings,
                    events);
      },
      {{}, Report::interrupted()});
}

WaveformFileSettings::Form waveformFormOf(const std::string& output) {
  using Form = WaveformFileSettings::Form;
  const std::string extension = lowerCased(std::filesystem::path(output).extension().string());
  if (extension == ".json") return Form::kJson;
  if (extension == ".dat") return Form::kData;
  if (extension == ".png") return Form::kPicture;
  throw Failure::settings(fmt::format("'{}' is neither .json nor .dat nor .png", output));
}

Report writeWaveform(const WaveformFileSettings& settings, const Events& events) {
  require(settings);
  return unlessInterrupted([&] { return drawAndWrite(settings, events); }, Report::interrupted());
}

}  // namespace kestrel
