#include "convert/hls/Playlists.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <set>

namespace kestrel {

namespace {

using Kind = Rendition::Kind;

constexpr double kSecond = 1000000;
constexpr int kVersion = 7;  // of the protocol: segments of MPEG-4 with a head

constexpr const char* kSoundGroup = "sound";
constexpr const char* kSubtitleGroup = "subtitles";

std::vector<const Rendition*> ofKind(const std::vector<Rendition>& renditions, Kind kind) {
  std::vector<const Rendition*> found;
  for (const Rendition& rendition : renditions)
    if (rendition.kind == kind) found.push_back(&rendition);
  return found;
}

/// A text within quotation marks, which can hold neither these nor ends of lines.
std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char letter : text) {
    const bool isControl = static_cast<unsigned char>(letter) < ' ';
    result += letter == '"' ? '\'' : isControl ? ' ' : letter;
  }
  return result + '"';
}

double bitRate(int64_t bytes, int64_t duration) {
  return duration > 0 ? static_cast<double>(bytes) * 8 * kSecond / static_cast<double>(duration)
                      : 0;
}

std::string addressOf(const Rendition& rendition, const std::string& folder) {
  return fmt::format("{}/{}/{}", folder, rendition.folder, kPlaylistName);
}

const char* yesNo(bool value) { return value ? "YES" : "NO"; }

std::string mediaLine(const Rendition& rendition, const std::string& folder) {
  const bool isSound = rendition.kind == Kind::kSound;
  std::string line =
      fmt::format("#EXT-X-MEDIA:TYPE={},GROUP-ID=\"{}\",NAME={}", isSound ? "AUDIO" : "SUBTITLES",
                  isSound ? kSoundGroup : kSubtitleGroup, quoted(rendition.name));
  if (!rendition.language.empty()) line += ",LANGUAGE=" + quoted(rendition.language);
  line += fmt::format(",DEFAULT={},AUTOSELECT=YES", yesNo(rendition.isDefault));
  if (rendition.kind == Kind::kSubtitles)
    line += fmt::format(",FORCED={}", yesNo(rendition.isForced));
  if (isSound) line += fmt::format(",CHANNELS=\"{}\"", rendition.channels);
  return line + fmt::format(",URI=\"{}\"\n", addressOf(rendition, folder));
}

/// What goes with each variant.
struct Groups {
  std::vector<const Rendition*> sounds;
  std::vector<const Rendition*> subtitles;
};

std::string variantLines(const Rendition& variant, const Groups& groups, int target,
                         const std::string& folder) {
  const bool isPictures = variant.kind == Kind::kPictures;
  int64_t peak = isPictures ? peakRate(variant, target) : 0;
  int64_t mean = isPictures ? meanRate(variant) : 0;
  int64_t soundPeak = 0;
  int64_t soundMean = 0;
  std::vector<std::string> codecs;
  if (isPictures) codecs.push_back(variant.codec);
  for (const Rendition* sound : groups.sounds) {
    soundPeak = std::max(soundPeak, peakRate(*sound, target));
    soundMean = std::max(soundMean, meanRate(*sound));
    if (std::ranges::count(codecs, sound->codec) == 0) codecs.push_back(sound->codec);
  }
  std::erase(codecs, "");
  peak += soundPeak;
  mean += soundMean;
  std::string line = fmt::format("#EXT-X-STREAM-INF:BANDWIDTH={},AVERAGE-BANDWIDTH={}", peak, mean);
  if (!codecs.empty()) line += fmt::format(",CODECS=\"{}\"", fmt::join(codecs, ","));
  if (isPictures) {
    line += fmt::format(",RESOLUTION={}x{}", variant.width, variant.height);
    if (variant.rate.num > 0)
      line += fmt::format(",FRAME-RATE={:.3f}",
                          static_cast<double>(variant.rate.num) / variant.rate.den);
    line += ",VIDEO-RANGE=" + variant.range;
  }
  if (isPictures ? !groups.sounds.empty() : groups.sounds.size() > 1)
    line += fmt::format(",AUDIO=\"{}\"", kSoundGroup);
  if (!groups.subtitles.empty()) line += fmt::format(",SUBTITLES=\"{}\"", kSubtitleGroup);
  return line + "\n" + addressOf(variant, folder) + "\n";
}

}  // namespace

int64_t Rendition::length() const {
  int64_t sum = 0;
  for (const Segment& segment : segments) sum += segment.duration;
  return sum;
}

int targetDuration(const std::vector<Rendition>& renditions, Kind kind) {
  const bool isText = kind == Kind::kSubtitles;
  int64_t longest = 1;
  for (const Rendition& rendition : renditions)
    if ((rendition.kind == Kind::kSubtitles) == isText)
      for (const Segment& segment : rendition.segments)
        longest = std::max<int64_t>(longest,
                                    std::llround(static_cast<double>(segment.duration) / kSecond));
  return static_cast<int>(longest);
}

int64_t peakRate(const Rendition& rendition, int target) {
  const auto& segments = rendition.segments;
  double peak = 0;
  for (size_t first = 0; first < segments.size(); ++first) {
    int64_t bytes = 0;
    int64_t duration = 0;
    for (size_t i = first; i < segments.size(); ++i) {
      bytes += segments[i].bytes;
      duration += segments[i].duration;
      const double share = static_cast<double>(duration) / kSecond / target;
      if (share > 1.5) break;
      if (share >= 0.5) peak = std::max(peak, bitRate(bytes, duration));
    }
  }
  return std::max(static_cast<int64_t>(std::ceil(peak)), meanRate(rendition));
}

int64_t meanRate(const Rendition& rendition) {
  int64_t bytes = 0;
  for (const Segment& segment : rendition.segments) bytes += segment.bytes;
  return static_cast<int64_t>(std::ceil(bitRate(bytes, rendition.length())));
}

std::string mediaPlaylist(const Rendition& rendition, int target) {
  std::string text = fmt::format(
      "#EXTM3U\n#EXT-X-VERSION:{}\n#EXT-X-TARGETDURATION:{}\n#EXT-X-MEDIA-SEQUENCE:0\n"
      "#EXT-X-PLAYLIST-TYPE:VOD\n",
      kVersion, target);
  if (rendition.isIndependent) text += "#EXT-X-INDEPENDENT-SEGMENTS\n";
  if (!rendition.head.empty()) text += fmt::format("#EXT-X-MAP:URI=\"{}\"\n", rendition.head);
  for (const Segment& segment : rendition.segments)
    text += fmt::format("#EXTINF:{:.6f},\n{}\n", static_cast<double>(segment.duration) / kSecond,
                        segment.file);
  return text + "#EXT-X-ENDLIST\n";
}

std::string masterPlaylist(const std::vector<Rendition>& renditions, const std::string& folder) {
  const Groups groups{ofKind(renditions, Kind::kSound), ofKind(renditions, Kind::kSubtitles)};
  auto variants = ofKind(renditions, Kind::kPictures);
  const bool hasPictures = !variants.empty();
  if (!hasPictures) {
    // The one that players take without a word.
    const auto usual = std::ranges::find_if(
        groups.sounds, [](const Rendition* sound) { return sound->isDefault; });
    if (!groups.sounds.empty())
      variants = {usual == groups.sounds.end() ? groups.sounds.front() : *usual};
  }
  const int target = targetDuration(renditions, Kind::kPictures);
  std::string text = fmt::format("#EXTM3U\n#EXT-X-VERSION:{}\n", kVersion);
  if (std::ranges::all_of(renditions, &Rendition::isIndependent))
    text += "#EXT-X-INDEPENDENT-SEGMENTS\n";
  if (hasPictures || groups.sounds.size() > 1)
    for (const Rendition* sound : groups.sounds) text += mediaLine(*sound, folder);
  for (const Rendition* subtitles : groups.subtitles) text += mediaLine(*subtitles, folder);
  for (const Rendition* variant : variants) text += variantLines(*variant, groups, target, folder);
  return text;
}

}  // namespace kestrel
