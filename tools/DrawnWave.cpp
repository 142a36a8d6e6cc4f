#include "DrawnWave.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "Failure.h"
#include "Interrupt.h"

extern "C" {
#include <libavformat/avformat.h>
}

using namespace kestrel;

namespace {

/// How long the chosen sound tracks promise to be together, microseconds.
int64_t promisedSound(AVFormatContext& context, const std::optional<IndexSet>& tracks) {
  std::vector<unsigned> audios;
  for (unsigned i = 0; i < context.nb_streams; ++i)
    if (context.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) audios.push_back(i);
  const int best = av_find_best_stream(&context, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
  int64_t promised = 0;
  for (uint32_t track = 0; track < audios.size(); ++track) {
    const bool isChosen =
        tracks ? tracks->contains(track) : audios[track] == static_cast<unsigned>(best);
    if (isChosen)
      promised = std::max(promised, promisedLength(context, *context.streams[audios[track]]));
  }
  return promised;
}

}  // namespace

std::optional<DrawnWave> drawWave(const std::string& path,
                                  const std::shared_ptr<LMMediaSource>& source,
                                  WaveformSettings settings) {
  DrawnWave drawn;
  settings.interrupt = interrupted;
  settings.progress = [&drawn, tell = std::move(settings.progress)](double part, double seconds) {
    drawn.end.reached = std::max(drawn.end.reached, static_cast<int64_t>(seconds * AV_TIME_BASE));
    tell(part, seconds);
  };
  Error error;
  auto waveform = waveformOfSource(source, settings, &error);
  if (interrupted()) return std::nullopt;
  if (!waveform) throw Failure{kFailed, fmt::format("cannot draw '{}': {}", path, error.message)};
  drawn.waveform = std::move(*waveform);
  drawn.end.error = source->lastError();
  drawn.end.refused = drawn.waveform.decodeErrors;
  drawn.promised = promisedSound(*source->formatContext(), settings.tracks);
  return drawn;
}
