#include "convert/probe/InputEnd.h"

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "convert/probe/Streams.h"
#include "support/Containers.h"
#include "support/FFmpegOwners.h"
#include "support/Pipes.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mathematics.h>
}

namespace kestrel {

namespace {

/// An input that ends this much before its stated length has ended early.
constexpr int64_t kMissingTolerance = 1000000;

/// By how much lengths in different units may differ.
constexpr int64_t kRounding = 2000;

/// A subtitle that is seen for longer than this is not found where its end is looked for.
constexpr int64_t kLongestSubtitle = 60000000;

bool isCover(const AVStream& stream) {
  return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
}

/// How much of a stream's tagged length may lie before its input's start, microseconds.
int64_t timeBeforeStart(const AVFormatContext& input) {
  return tellsStreamEndsFromZero(input) ? std::max<int64_t>(startOf(input), 0) : 0;
}

/// How far a stream goes by what the container tells of itself; none where it tells nothing, and
/// where the length that the demuxer answers may be the whole input's.
std::optional<int64_t> ownLength(const AVFormatContext& input, const AVStream& stream) {
  // What is told from the packets themselves is no promise.
  if (input.duration_estimation_method != AVFMT_DURATION_FROM_STREAM) return std::nullopt;
  if (const int64_t tagged = taggedEnd(stream).value_or(0))
    return std::max<int64_t>(tagged - timeBeforeStart(input), 0);
  if (stream.duration == AV_NOPTS_VALUE || stream.start_time == AV_NOPTS_VALUE) return std::nullopt;
  const int64_t length =
      av_rescale_q(stream.start_time + stream.duration, stream.time_base, AV_TIME_BASE_Q) -
      startOf(input);
  const bool isWhole = std::abs(length - promisedLength(input)) <= kRounding;
  return isWhole && !isMpeg4(input) ? std::nullopt : std::optional(length);
}

/// Whether an input has pictures, sound or subtitles beside some streams.
bool hasOthers(const AVFormatContext& input, const IndexSet& streams) {
  for (uint32_t i = 0; i < input.nb_streams; ++i) {
    const AVMediaType type = input.streams[i]->codecpar->codec_type;
    const bool isLong =
        type == AVMEDIA_TYPE_VIDEO || type == AVMEDIA_TYPE_AUDIO || type == AVMEDIA_TYPE_SUBTITLE;
    if (isLong && !isCover(*input.streams[i]) && !streams.contains(i)) return true;
  }
  return false;
}

/// Whether others of an input's streams go to a time: then those that were read may have ended
/// where they do. An input that can be read only once gets the benefit of the doubt.
bool othersReach(const InputPart& part, int64_t time) {
  if (part.source.isOpen() && !part.source.isSeekable()) return true;
  const auto reader = part.source.anotherReader();
  reader->open();
  const auto input = reader->sharedContext();
  if (!input) return false;
  const int64_t goal = reader->start_time() + time - kMissingTolerance;
  if (!reader->seekBackward(goal - kLongestSubtitle)) reader->rewind();
  for (const PacketPtr packet = makePacket(); reader->readPacket(packet.get());
       av_packet_unref(packet.get())) {
    const int64_t begin = packet->pts == AV_NOPTS_VALUE ? packet->dts : packet->pts;
    if (begin == AV_NOPTS_VALUE || part.streams.contains(packet->stream_index)) continue;
    const AVRational ticks = input->streams[packet->stream_index]->time_base;
    if (av_rescale_q(begin + packet->duration, ticks, AV_TIME_BASE_Q) >= goal) return true;
  }
  return false;
}

std::string damageOf(const InputEnd& end) {
  std::vector<std::string> parts;
  if (end.refused > 0)
    parts.push_back(fmt::format("{} of its packets could not be decoded", end.refused));
  if (end.incomplete > 0)
    parts.push_back(fmt::format("{} of its packets came incomplete", end.incomplete));
  if (end.mended > 0)
    parts.push_back(fmt::format("parts of {} of its pictures are made up", end.mended));
  return fmt::format("{}", fmt::join(parts, ", "));
}

}  // namespace

void InputEnd::add(const InputEnd& other) {
  reached = std::max(reached, other.reached);
  if (!error) error = other.error;
  refused += other.refused;
  mended += other.mended;
  incomplete += other.incomplete;
}

InputEnd faultsOf(const LMFFMovie& movie) {
  InputEnd end;
  for (const auto& media : movie.medias()) {
    if (!end.error) end.error = media->source()->lastError();
    for (const auto& stream : media->streams())
      if (stream->enable()) {
        end.refused += stream->decodeErrors();
        end.mended += stream->mendedPictures();
        end.incomplete += media->source()->damagedPackets(stream->stream()->index);
      }
  }
  return end;
}

int64_t promisedLength(const AVFormatContext& input) {
  const bool isExact = input.duration_estimation_method != AVFMT_DURATION_FROM_BITRATE;
  if (!isExact || input.duration == AV_NOPTS_VALUE) return 0;
  return std::max<int64_t>(input.duration, 0);
}

PromisedLength promisedLength(const AVFormatContext& input, const IndexSet& streams) {
  const int64_t whole = promisedLength(input);
  int64_t own = 0;
  bool isKnown = true;
  for (const uint32_t index : streams) {
    const AVStream& stream = *input.streams[index];
    if (isCover(stream)) continue;
    const auto length = ownLength(input, stream);
    own = std::max(own, std::min(length.value_or(0), whole));
    isKnown = isKnown && length;
  }
  if (isKnown || own == whole) return {own, false};
  return {whole, hasOthers(input, streams)};
}

void judgeInput(Report& report, const std::string& path, int64_t promised, const InputEnd& end) {
  const bool endedEarly = promised - end.reached > kMissingTolerance;
  const std::string damage = damageOf(end);
  if (!endedEarly && !end.error && damage.empty()) return;
  std::string finding;
  if (endedEarly)
    finding =
        fmt::format("ended early, at {:.2f} of {:.2f} s{}", lm_ff_time_to_double(end.reached),
                    lm_ff_time_to_double(promised), end.error ? ": " + end.error.message : "");
  else if (end.error)
    finding = "was not read whole: " + end.error.message;
  else
    finding = "is damaged: " + damage;
  report.find(fmt::format("{} {}", shownName(path), finding));
}

void judgeInput(Report& report, const std::string& path, const InputPart& part,
                const InputEnd& end) {
  PromisedLength promised = promisedLength(part.facts, part.streams);
  // What goes on with the last picture is other streams'.
  const int64_t whole = promisedLength(part.facts);
  if (part.wanted && *part.wanted > promised.time && whole > promised.time)
    promised = {whole, true};
  const int64_t wanted = std::min(promised.time, part.wanted.value_or(promised.time));
  report.reached = end.reached;
  if (promised.time > 0) report.promised = promised.time;
  const bool isShort = wanted - end.reached > kMissingTolerance;
  const bool endedEarly = isShort && !(promised.isOfOthers && othersReach(part, wanted));
  judgeInput(report, path, endedEarly ? promised.time : 0, end);
}

void judgePackets(Report& report, const std::string& name, int64_t refused) {
  if (refused == 0) return;
  report.find(fmt::format("{} is damaged: {} of its packets could not be copied", name, refused));
}

void tellOfEncoded(Report& report, const Events& events, int64_t pictures,
                   const std::string& path) {
  if (pictures == 0) return;
  report.encoded.push_back(
      fmt::format("{} pictures of {} were encoded anew: they need others that are hidden", pictures,
                  shownName(path)));
  if (events.note) events.note(report.encoded.back());
}

}  // namespace kestrel
