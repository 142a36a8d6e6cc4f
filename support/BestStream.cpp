#include "support/BestStream.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kestrel {

std::optional<uint32_t> bestStream(AVFormatContext& input, AVMediaType kind) {
  const int best = av_find_best_stream(&input, kind, -1, -1, nullptr, 0);
  return best >= 0 ? std::optional(static_cast<uint32_t>(best)) : std::nullopt;
}

std::vector<uint32_t> soundTracks(const AVFormatContext& input) {
  std::vector<uint32_t> sounds;
  for (uint32_t i = 0; i < input.nb_streams; ++i)
    if (input.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) sounds.push_back(i);
  return sounds;
}

std::vector<uint32_t> soundTracks(AVFormatContext& input, const std::optional<IndexSet>& tracks) {
  const std::vector<uint32_t> all = soundTracks(input);
  if (all.empty()) return {};
  if (!tracks) return {bestStream(input, AVMEDIA_TYPE_AUDIO).value_or(all.front())};
  std::vector<uint32_t> chosen;
  for (const uint32_t track : *tracks)
    if (track < all.size()) chosen.push_back(all[track]);
  return chosen;
}

}  // namespace kestrel
