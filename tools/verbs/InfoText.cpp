#include "tools/verbs/InfoText.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <kestrel/LMFFFormat.h>
#include <kestrel/convert/Text.h>
#include "tools/verbs/Facts.h"

using namespace kestrel;

namespace {

/// Where the values of the container's lines begin, and those of streams' lines at the least.
constexpr size_t kValueColumn = 14;
constexpr size_t kStreamColumn = 14;

/// What writers of MP4 files put where they name no maker.
constexpr const char* kNoVendor = "[0][0][0][0]";

using Words = std::vector<std::string>;

std::string joined(const Words& words) { return fmt::format("{}", fmt::join(words, ", ")); }

/// A value whose further lines stand below the first.
std::string aligned(std::string_view value, size_t column) {
  std::string lines;
  for (const char c : value) {
    lines += c;
    if (c == '\n') lines.append(column, ' ');
  }
  return lines;
}

std::string labelled(std::string_view label, std::string_view value) {
  return fmt::format("{:<{}}{}\n", label, kValueColumn, aligned(value, kValueColumn));
}

std::string tagOf(const Tags& tags, std::string_view name) {
  const auto found = std::ranges::find(tags, name, &Tags::value_type::first);
  return found == tags.end() ? std::string() : found->second;
}

/// One line for each tag but those in `shown`, which stand elsewhere; the names padded to the
/// longest among them.
std::string tagLines(const Tags& tags, size_t indentation,
                     std::initializer_list<std::string_view> shown = {}) {
  constexpr size_t kLongestPadded = 32;
  const auto isListed = [&](const Tags::value_type& tag) {
    return std::ranges::count(shown, tag.first) == 0;
  };
  size_t width = 0;
  for (const auto& tag : tags)
    if (isListed(tag) && tag.first.size() <= kLongestPadded)
      width = std::max(width, tag.first.size());
  std::string lines;
  for (const auto& tag : tags) {
    if (!isListed(tag)) continue;
    const std::string name = printable(tag.first);
    lines +=
        fmt::format("{:{}}{:<{}}  {}\n", "", indentation, name, width,
                    aligned(printable(tag.second), indentation + std::max(width, name.size()) + 2));
  }
  return lines;
}

std::string rate(const VideoInfo& video) {
  if (video.isCover || !video.frameRate) return {};
  const auto [num, den] = *video.frameRate;
  const std::string shown = formatNumber(static_cast<double>(num) / den, 3);
  // Other denominators than television's are averages, of which nobody wants all digits.
  return den == 1001 ? fmt::format("{} ({}/{}) fps", shown, num, den) : shown + " fps";
}

/// "16:9", but "1.17:1" where the terms tell nobody anything.
std::string shape(const Rational& aspect) {
  if (std::max(aspect.num, aspect.den) < 100) return fmt::format("{}:{}", aspect.num, aspect.den);
  return formatNumber(static_cast<double>(aspect.num) / aspect.den, 2) + ":1";
}

std::string codecName(const StreamInfo& stream) {
  std::string name = stream.codec.empty() ? "unknown codec" : printable(stream.codec);
  if (!stream.profile.empty()) name += " " + printable(stream.profile);
  const bool isReadable = stream.tag.find('[') == std::string::npos;
  if (!stream.tag.empty() && isReadable) name += " [" + printable(stream.tag) + "]";
  return name;
}

std::string language(const StreamInfo& stream) {
  const std::string code = printable(stream.language);
  return stream.languageName.empty() ? code
                                     : fmt::format("{} ({})", printable(stream.languageName), code);
}

std::string channels(const AudioInfo& audio) {
  if (!audio.layout.empty()) return printable(audio.layout);
  if (audio.channels <= 0) return {};
  return audio.channels == 1 ? "mono" : fmt::format("{} channels", audio.channels);
}

std::string sizeOf(const VideoInfo& video) {
  return video.width > 0 && video.height > 0 ? fmt::format("{}x{}", video.width, video.height) : "";
}

/// What everybody asks of a stream first.
Words mainFacts(const StreamInfo& stream) {
  using Kind = StreamInfo::Kind;
  Words facts{codecName(stream)};
  const auto add = [&](std::string fact) {
    if (!fact.empty()) facts.push_back(std::move(fact));
  };
  if (stream.kind == Kind::kVideo || stream.kind == Kind::kSubtitle) add(sizeOf(stream.video));
  if (stream.kind == Kind::kVideo) add(rate(stream.video));
  if (stream.kind == Kind::kAudio) {
    if (stream.audio.sampleRate > 0) add(fmt::format("{} Hz", stream.audio.sampleRate));
    add(channels(stream.audio));
  }
  if (stream.bitRate) add(formatBitRate(*stream.bitRate));
  add(language(stream));
  for (const std::string& flag : stream.disposition) add(flag);
  return facts;
}

/// "bt709, limited range": the matrix, and primaries and transfer where they differ from it.
Words colorFacts(const VideoInfo& video) {
  Words names;
  for (const auto& name : {video.colorSpace, video.colorPrimaries, video.colorTransfer})
    if (!name.empty() && std::ranges::count(names, name) == 0) names.push_back(name);
  Words facts;
  if (!names.empty()) facts.push_back("colour " + fmt::format("{}", fmt::join(names, "/")));
  if (!video.colorRange.empty())
    facts.push_back(video.colorRange == "pc" ? "full range" : "limited range");
  return facts;
}

/// "interlaced, upper field first, not marked"; "" where all is progressive and marked so.
std::string scanFacts(const Scanning& scanning) {
  if (scanning.scan == Scan::kProgressive)
    return scanning.isMarked ? "progressive, marked as interlaced" : "";
  Words facts{scanning.scan == Scan::kMixed ? "interlaced in part" : "interlaced"};
  if (scanning.topFieldFirst)
    facts.push_back(*scanning.topFieldFirst ? "upper field first" : "lower field first");
  if (!scanning.isMarked) facts.push_back("not marked");
  return joined(facts);
}

Words videoFacts(const VideoInfo& video) {
  Words facts;
  if (!video.pixelFormat.empty()) facts.push_back(video.pixelFormat);
  if (const std::string scan = video.scanning ? scanFacts(*video.scanning) : ""; !scan.empty())
    facts.push_back(scan);
  if (video.pixelAspect)
    facts.push_back(fmt::format("pixels {}:{}, picture {}", video.pixelAspect->num,
                                video.pixelAspect->den,
                                shape(video.displayAspect.value_or(Rational{0, 1}))));
  if (const auto degrees = std::lround(video.orientation.counterclockwise); degrees != 0) {
    const char* direction = degrees < 0 ? " clockwise" : " counter-clockwise";
    facts.push_back(fmt::format("turned by {}°{}", std::abs(degrees),
                                std::abs(degrees) == 180 ? "" : direction));
  }
  const Words color = colorFacts(video);
  facts.insert(facts.end(), color.begin(), color.end());
  return facts;
}

/// "mastered on red 0.68,0.32, green …, 0.005 to 1000 cd/m², brightest pixel 900 cd/m²".
std::string lightFacts(const VideoInfo& video) {
  if (!video.hdr) return {};
  const HdrInfo& hdr = *video.hdr;
  const auto place = [](const Chromaticity& color) {
    return fmt::format("{},{}", formatNumber(color.x, 4), formatNumber(color.y, 4));
  };
  Words facts;
  if (hdr.colors)
    facts.push_back(fmt::format("red {}, green {}, blue {}, white {}", place(hdr.colors->red),
                                place(hdr.colors->green), place(hdr.colors->blue),
                                place(hdr.colors->white)));
  if (hdr.darkest && hdr.brightest)
    facts.push_back(fmt::format("{} to {} cd/m²", formatNumber(*hdr.darkest, 4),
                                formatNumber(*hdr.brightest, 4)));
  if (!facts.empty()) facts.front() = "mastered on " + facts.front();
  if (hdr.maxContentLight)
    facts.push_back(fmt::format("brightest pixel {} cd/m²", *hdr.maxContentLight));
  if (hdr.maxAverageLight)
    facts.push_back(fmt::format("brightest picture {} cd/m²", *hdr.maxAverageLight));
  return joined(facts);
}

Words detailFacts(const StreamInfo& stream) {
  if (stream.kind == StreamInfo::Kind::kVideo) return videoFacts(stream.video);
  const bool isSound = stream.kind == StreamInfo::Kind::kAudio;
  return isSound && !stream.audio.sampleFormat.empty() ? Words{stream.audio.sampleFormat} : Words{};
}

/// The span of a stream, where it is not the container's own.
std::string span(const StreamInfo& stream, const MediaInfo& info) {
  using Time = std::optional<int64_t>;
  const auto differs = [](const Time& own, const Time& whole) {
    return own && (!whole || std::abs(*own - *whole) > 500);
  };
  Words facts;
  if (differs(stream.startTime, info.startTime))
    facts.push_back("starts at " + timeText(*stream.startTime));
  if (differs(stream.duration, info.duration))
    facts.push_back("lasts " + timeText(*stream.duration));
  return joined(facts);
}

/// What a stream's first line begins with.
std::string headOf(const StreamInfo& stream) {
  return fmt::format("#{:<3}{}  ", stream.index, stream.type.empty() ? "unknown" : stream.type);
}

/// Where what is said of streams begins, in a column behind all their heads.
size_t streamColumn(const MediaInfo& info) {
  size_t column = kStreamColumn;
  for (const StreamInfo& stream : info.streams) column = std::max(column, headOf(stream).size());
  return column;
}

std::string streamText(const StreamInfo& stream, const MediaInfo& info, size_t column) {
  std::string lines = fmt::format("{:<{}}{}\n", headOf(stream), column, joined(mainFacts(stream)));
  for (const std::string& line :
       {joined(detailFacts(stream)), lightFacts(stream.video), span(stream, info)})
    if (!line.empty()) lines += fmt::format("{:{}}{}\n", "", column, line);
  const bool hasVendor = tagOf(stream.tags, "vendor_id") != kNoVendor;
  return lines + (hasVendor ? tagLines(stream.tags, column, {"language"})
                            : tagLines(stream.tags, column, {"language", "vendor_id"}));
}

std::string chapterText(const ChapterInfo& chapter, size_t number) {
  const auto shown = [](const std::optional<int64_t>& time) {
    return time ? timeText(*time) : "?";
  };
  return fmt::format("{:>{}}  {} - {}  {}\n", number, 4, shown(chapter.start), shown(chapter.end),
                     aligned(printable(tagOf(chapter.tags, "title")), kValueColumn)) +
         tagLines(chapter.tags, kValueColumn, {"title"});
}

std::string containerText(const std::string& path, const MediaInfo& info) {
  std::string lines = printable(path) + "\n";
  const std::string name = printable(info.formatLongName);
  const std::string format = printable(info.format);
  lines += labelled("format", name.empty() ? format : fmt::format("{} ({})", name, format));
  if (info.size) lines += labelled("size", formatByteCount(*info.size));
  lines += labelled("duration", info.duration ? timeText(*info.duration) : "unknown");
  if (info.startTime && *info.startTime != 0) lines += labelled("start", timeText(*info.startTime));
  if (info.bitRate) lines += labelled("bit rate", formatBitRate(*info.bitRate));
  return lines;
}

}  // namespace

std::string infoText(const std::string& path, const MediaInfo& info) {
  std::string lines = containerText(path, info) + "\n";
  const size_t column = streamColumn(info);
  for (const StreamInfo& stream : info.streams) lines += streamText(stream, info, column);
  if (!info.tags.empty()) lines += "\ntags\n" + tagLines(info.tags, 2);
  if (!info.chapters.empty()) lines += "\nchapters\n";
  size_t number = 0;
  for (const ChapterInfo& chapter : info.chapters) lines += chapterText(chapter, ++number);
  return lines;
}
