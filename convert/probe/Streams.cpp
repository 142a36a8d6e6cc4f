#include "convert/probe/Streams.h"

#include <kestrel/LMDVDTitle.h>
#include <kestrel/LMDVDTitleSource.h>
#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string_view>

#include "convert/probe/Languages.h"
#include "support/BestStream.h"
#include "support/FFmpegOwners.h"
#include "support/StreamSideData.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/pixdesc.h>
}

namespace kestrel {

namespace {

/// The standard rate that an average means, where it is within 2 % of one.
AVRational standardRate(AVRational average) {
  static const AVRational kRates[] = {{24000, 1001}, {24, 1}, {25, 1},       {30000, 1001}, {30, 1},
                                      {48, 1},       {50, 1}, {60000, 1001}, {60, 1}};
  AVRational best = average;
  double bestError = 0.02;
  for (const AVRational rate : kRates) {
    const double error = std::abs(av_q2d(rate) / av_q2d(average) - 1);
    if (error < bestError) {
      best = rate;
      bestError = error;
    }
  }
  return best;
}

/// The rate of which a stream's times are multiples. Where MPEG-2 pictures repeat fields, that of
/// the fields is found there; the codec itself states the pictures' own.
AVRational baseRate(AVStream& stream) {
  if (stream.codecpar->codec_id != AV_CODEC_ID_MPEG2VIDEO) return stream.r_frame_rate;
  return av_guess_frame_rate(nullptr, &stream, nullptr);
}

}  // namespace

std::optional<uint32_t> mainVideo(AVFormatContext& input) {
  const auto best = bestStream(input, AVMEDIA_TYPE_VIDEO);
  const bool isCover = best && (input.streams[*best]->disposition & AV_DISPOSITION_ATTACHED_PIC);
  return isCover ? std::nullopt : best;
}

int64_t startOf(const AVFormatContext& input) {
  return input.start_time == AV_NOPTS_VALUE ? 0 : input.start_time;
}

std::optional<int> keyEntryBefore(AVStream& stream, int64_t time) {
  const int64_t ticks = av_rescale_q(time, kMicroseconds, stream.time_base);
  if (av_index_search_timestamp(&stream, ticks, AVSEEK_FLAG_ANY) < 0) return std::nullopt;
  const int index = av_index_search_timestamp(&stream, ticks, AVSEEK_FLAG_BACKWARD);
  return index < 0 ? std::nullopt : std::optional(index);
}

std::optional<int64_t> keyTimeBefore(AVStream& stream, int64_t time) {
  const auto key = keyEntryBefore(stream, time);
  if (!key) return std::nullopt;
  const int64_t ticks = avformat_index_get_entry(&stream, *key)->timestamp;
  return av_rescale_q(ticks, stream.time_base, kMicroseconds);
}

int64_t beginOf(const StreamInfo& stream, const MediaInfo& input) {
  return stream.startTime && input.startTime ? *stream.startTime - *input.startTime : 0;
}

Orientation orientationOf(const AVStream& stream) {
  const auto matrixData = streamSideData(stream, AV_PKT_DATA_DISPLAYMATRIX);
  int32_t matrix[9];
  if (matrixData.size() < sizeof(matrix)) return {};
  std::memcpy(matrix, matrixData.data(), sizeof(matrix));
  // The determinant of the plane's part; a mirror in front of the turn negates the first row.
  const double a = matrix[0], b = matrix[1], c = matrix[3], d = matrix[4];
  const bool mirrored = a * d - b * c < 0;
  if (mirrored) {
    matrix[0] = -matrix[0];
    matrix[1] = -matrix[1];
  }
  const double degrees = av_display_rotation_get(matrix);
  return {mirrored, std::isnan(degrees) ? 0 : degrees};
}

bool hasAlpha(const AVStream& stream) {
  const auto format = static_cast<AVPixelFormat>(stream.codecpar->format);
  const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(format);
  const AVDictionaryEntry* mode = av_dict_get(stream.metadata, "alpha_mode", nullptr, 0);
  return (description && (description->flags & AV_PIX_FMT_FLAG_ALPHA) != 0) ||
         (mode && std::string_view(mode->value) == "1");
}

Rational realFrameRate(AVStream& stream) {
  constexpr double kFastest = 240;
  constexpr double kFastestVariable = 60.5;
  const auto isRate = [](AVRational rate) { return rate.num > 0 && rate.den > 0; };
  const AVRational base = baseRate(stream);
  const AVRational average = stream.avg_frame_rate;
  const auto answer = [](AVRational rate) { return Rational{rate.num, rate.den}; };
  if (!isRate(base) && !isRate(average)) return kUsualRate;
  if (!isRate(average) || !isRate(base)) {
    const AVRational only = isRate(base) ? base : average;
    return av_q2d(only) <= kFastest ? answer(only) : kUsualRate;
  }
  const double ratio = av_q2d(base) / av_q2d(average);
  if (ratio < 1.5 && av_q2d(base) <= kFastest) return answer(base);
  const bool countsFields = std::abs(ratio - 2) < 0.05;
  if (!countsFields && av_q2d(base) <= kFastestVariable) return answer(base);
  const AVRational rate = standardRate(average);
  return av_q2d(rate) <= kFastest ? answer(rate) : kUsualRate;
}

IndexSet decodableAudios(const AVFormatContext& input) {
  IndexSet indexes;
  for (uint32_t i = 0; i < input.nb_streams; ++i) {
    const AVCodecParameters& parameters = *input.streams[i]->codecpar;
    if (parameters.codec_type != AVMEDIA_TYPE_AUDIO) continue;
    // Beside other streams, its first packets may lie behind what opening reads.
    const bool mayHaveRate = parameters.sample_rate > 0 || input.nb_streams > 1;
    if (mayHaveRate && avcodec_find_decoder(parameters.codec_id)) indexes.insert(i);
  }
  return indexes;
}

std::vector<std::optional<uint32_t>> audioTracksOf(const LMMediaSource& source) {
  const IndexSet audios = decodableAudios(*source.formatContext());
  const auto* disc = dynamic_cast<const DVDTitleSource*>(&source);
  if (!disc) return {audios.begin(), audios.end()};
  std::vector<std::optional<uint32_t>> indexes;
  for (const auto& track : disc->title()->audioTracks()) {
    const auto index = std::ranges::find_if(audios, [&](uint32_t candidate) {
      return source.formatContext()->streams[candidate]->id == track.stream_id;
    });
    indexes.push_back(index != audios.end() ? std::optional(*index) : std::nullopt);
  }
  return indexes;
}

IndexSet chosenAudios(const TrackChoice& wanted, const LMMediaSource& source,
                      const std::string& setting) {
  const AVFormatContext& input = *source.formatContext();
  const auto tracks = audioTracksOf(source);
  const auto firstWhere = [&](auto isWanted) {
    for (const auto index : tracks)
      if (index && isWanted(*input.streams[*index])) return IndexSet{*index};
    return IndexSet{};
  };
  if (wanted.kind == TrackChoice::Kind::kUsual) {
    const IndexSet chosen = firstWhere(
        [](const AVStream& stream) { return (stream.disposition & AV_DISPOSITION_DEFAULT) != 0; });
    return chosen.empty() ? firstWhere([](const AVStream&) { return true; }) : chosen;
  }
  IndexSet chosen;
  if (wanted.kind == TrackChoice::Kind::kAll) {
    for (const auto index : tracks)
      if (index) chosen.insert(*index);
    return chosen;
  }
  if (wanted.kind == TrackChoice::Kind::kNumbers) {
    for (const uint32_t number : wanted.numbers) {
      if (number >= tracks.size())
        throw Failure::settings(
            fmt::format("there is no audio track {}: the input has {}", number, tracks.size()),
            setting);
      if (!tracks[number])
        throw Failure::input(source.path(),
                             fmt::format("audio track {} is not in the title's VOBs", number));
      chosen.insert(*tracks[number]);
    }
    return chosen;
  }
  chosen = firstWhere(
      [&](const AVStream& stream) { return isSameLanguage(languageOf(stream), wanted.language); });
  if (chosen.empty())
    throw Failure::settings(fmt::format("there is no audio track in '{}'", wanted.language),
                            setting);
  return chosen;
}

}  // namespace kestrel
