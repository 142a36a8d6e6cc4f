#include "convert/probe/InputEnd.h"

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/mathematics.h>
#include <libavutil/parseutils.h>
}

namespace kestrel {

namespace {

/// An input that ends this much before its stated length has ended early.
constexpr int64_t kMissingTolerance = 1000000;

/// How long the stream of a Matroska file is by its tag, microseconds; 0 without one.
int64_t taggedLength(const AVStream& stream) {
  const auto* entry = av_dict_get(stream.metadata, "DURATION", nullptr, AV_DICT_IGNORE_SUFFIX);
  int64_t length = 0;
  return entry && av_parse_time(&length, entry->value, 1) >= 0 ? length : 0;
}

/// How much of a stream's tagged length may lie before its input's start, microseconds: MPEG-4 and
/// Matroska files count from 0, whatever their first time stamp is.
int64_t timeBeforeStart(const AVFormatContext& input) {
  static constexpr std::string_view kCountFromZero[] = {"mov,mp4,m4a,3gp,3g2,mj2", "matroska,webm"};
  const bool countsFromZero =
      input.iformat && std::ranges::count(kCountFromZero, input.iformat->name) > 0;
  return countsFromZero && input.start_time != AV_NOPTS_VALUE
             ? std::max<int64_t>(input.start_time, 0)
             : 0;
}

}  // namespace

void InputEnd::add(const InputEnd& other) {
  reached = std::max(reached, other.reached);
  if (!error) error = other.error;
  refused += other.refused;
}

InputEnd faultsOf(const LMFFMovie& movie) {
  InputEnd end;
  for (const auto& media : movie.medias()) {
    if (!end.error) end.error = media->source()->lastError();
    for (const auto& stream : media->streams())
      if (stream->enable()) end.refused += stream->decodeErrors();
  }
  return end;
}

int64_t promisedLength(const AVFormatContext& input) {
  const bool isExact = input.duration_estimation_method != AVFMT_DURATION_FROM_BITRATE;
  if (!isExact || input.duration == AV_NOPTS_VALUE) return 0;
  return std::max<int64_t>(input.duration, 0);
}

int64_t promisedLength(const AVFormatContext& input, const AVStream& stream) {
  // What is told from the packets themselves is no promise.
  const bool isStated = input.duration_estimation_method == AVFMT_DURATION_FROM_STREAM;
  const int64_t whole = isStated ? promisedLength(input) : 0;
  if (whole == 0 || (stream.disposition & AV_DISPOSITION_ATTACHED_PIC)) return 0;
  if (const int64_t tagged = taggedLength(stream))
    return std::clamp<int64_t>(tagged - timeBeforeStart(input), 0, whole);
  const int64_t start = input.start_time == AV_NOPTS_VALUE ? 0 : input.start_time;
  if (stream.duration != AV_NOPTS_VALUE && stream.start_time != AV_NOPTS_VALUE)
    return std::min(
        av_rescale_q(stream.start_time + stream.duration, stream.time_base, AV_TIME_BASE_Q) - start,
        whole);
  return stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO || input.nb_streams == 1 ? whole : 0;
}

void judgeInput(Report& report, const std::string& path, int64_t promised, const InputEnd& end) {
  const bool endedEarly = promised - end.reached > kMissingTolerance;
  if (!endedEarly && !end.error && end.refused == 0) return;
  std::string finding;
  if (endedEarly)
    finding =
        fmt::format("ended early, at {:.2f} of {:.2f} s{}", lm_ff_time_to_double(end.reached),
                    lm_ff_time_to_double(promised), end.error ? ": " + end.error.message : "");
  else if (end.error)
    finding = "was not read whole: " + end.error.message;
  else
    finding = fmt::format("is damaged: {} of its packets could not be decoded", end.refused);
  report.find(fmt::format("'{}' {}", path, finding));
}

void judgePackets(Report& report, const std::string& name, int64_t refused) {
  if (refused == 0) return;
  report.find(fmt::format("{} is damaged: {} of its packets could not be copied", name, refused));
}

void tellOfEncoded(Report& report, const Events& events, int64_t pictures,
                   const std::string& path) {
  if (pictures == 0) return;
  report.encoded.push_back(fmt::format(
      "{} pictures of '{}' were encoded anew: they need others that are hidden", pictures, path));
  if (events.note) events.note(report.encoded.back());
}

}  // namespace kestrel
