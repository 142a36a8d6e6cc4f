#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFVideoColor.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Scanning.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kestrel {

class LMMediaSource;

/// Tags in the order in which the container has them: name and value.
using Tags = std::vector<std::pair<std::string, std::string>>;

/// How a player turns pictures before it shows them, as phones note it that were held sideways.
struct Orientation {
  bool mirrored = false;        ///< left and right, before the turn
  double counterclockwise = 0;  ///< degrees, -180 to 180

  bool operator==(const Orientation&) const = default;
};

/// A colour, whatever its brightness: its place in the CIE 1931 diagram, each coordinate 0 to 1.
struct Chromaticity {
  double x = 0;
  double y = 0;

  bool operator==(const Chromaticity&) const = default;
};

/// What colours a display has: those of its three lights, and the white that they make.
struct DisplayColors {
  Chromaticity red = {};
  Chromaticity green = {};
  Chromaticity blue = {};
  Chromaticity white = {};

  bool operator==(const DisplayColors&) const = default;
};

/// The light of an HDR picture, as its container tells it: of the display that it was mastered on,
/// and of what is in the pictures. Light is in candelas per square metre; absent: not told.
struct HdrInfo {
  std::optional<DisplayColors> colors = {};  ///< of the display
  std::optional<double> darkest = {};        ///< that the display shows
  std::optional<double> brightest = {};
  std::optional<int> maxContentLight = {};
  std::optional<int> maxAverageLight = {};
};

/// What a container tells of a stream of pictures. Names are "" where it tells none; those of
/// colours where the first picture, if it was looked at, tells none either.
struct VideoInfo {
  int width = 0;  ///< pixels as they are stored, before the turn; 0: unknown
  int height = 0;
  std::string pixelFormat = {};
  int bitDepth = 0;                          ///< of a component; 0: unknown
  bool hasAlpha = false;                     ///< in the pixels, or beside the pictures
  bool isCover = false;                      ///< one picture that belongs to the file, no movie
  bool isInterlaced = false;                 ///< as the container marks them
  std::optional<Scanning> scanning = {};     ///< absent: not looked at; see `readScanning`
  std::optional<Rational> frameRate = {};    ///< pictures per second as they really come
  std::optional<Rational> averageRate = {};  ///< as the container counts them
  std::optional<Rational> pixelAspect = {};
  std::optional<Rational> displayAspect = {};  ///< width / height, before the turn
  Orientation orientation = {};
  /// The meaning of the samples; matrix and range, where none is told, are those that players take.
  VideoColor color = {};
  std::string colorSpace = {};
  std::string colorRange = {};
  std::string colorPrimaries = {};
  std::string colorTransfer = {};
  std::optional<HdrInfo> hdr = {};
};

/// What a container tells of a stream of sound.
struct AudioInfo {
  std::string sampleFormat = {};
  int sampleRate = 0;       ///< Hz; 0: unknown
  int channels = 0;         ///< 0: unknown
  std::string layout = {};  ///< such as "stereo" or "5.1(side)"; "": not told
};

/// One stream of a container. Times are microseconds in the container's own time.
struct StreamInfo {
  enum class Kind { kVideo, kAudio, kSubtitle, kAttachment, kData };

  uint32_t index = 0;
  Kind kind = Kind::kData;
  std::string type = {};   ///< the kind's name: "video", "audio", "subtitle", "attachment", "data"
  std::string codec = {};  ///< its short name; "": unknown
  std::string profile = {};   ///< the codec's profile; "": none is known
  std::string tag = {};       ///< the container's four characters for the codec; "": none
  std::string language = {};  ///< a code; "" where none is told, or an unknown one
  std::string languageName = {};
  std::optional<int64_t> bitRate = {};  ///< bits per second
  std::optional<int64_t> startTime = {};
  std::optional<int64_t> duration = {};
  std::vector<std::string> disposition = {};  ///< such as "default", "forced", "attached_pic"
  Tags tags = {};
  int64_t promisedLength = 0;  ///< as `MediaInfo::promisedLength`, of this stream

  VideoInfo video = {};  ///< of `kVideo`; of subtitles that are pictures, their size
  AudioInfo audio = {};  ///< of `kAudio`
};

/// A chapter. Times are microseconds in the container's own time.
struct ChapterInfo {
  std::optional<int64_t> start = {};
  std::optional<int64_t> end = {};
  Tags tags = {};
};

/// What is in an input: the one place where facts about it are worked out, for people and for all
/// that converts, plays or shows it.
struct MediaInfo {
  std::string format = {};  ///< the demuxer's short name
  std::string formatLongName = {};
  std::optional<int64_t> size = {};  ///< bytes
  /// Microseconds, counted from `startTime` even where the container counts from 0.
  std::optional<int64_t> duration = {};
  /// When the input begins: microseconds in the container's time.
  std::optional<int64_t> startTime = {};
  std::optional<int64_t> bitRate = {};  ///< bits per second
  Tags tags = {};
  std::vector<ChapterInfo> chapters = {};
  /// By their index. Attachments have their names in their tags.
  std::vector<StreamInfo> streams = {};

  /// The stream of pictures that a viewer sees, which is no cover; and the cover where there is
  /// one.
  std::optional<uint32_t> mainVideo = {};
  std::optional<uint32_t> cover = {};

  /// The sound tracks in the order in which users count them: a disc's own, with none for a track
  /// that its files lack, or else the container's.
  std::vector<std::optional<uint32_t>> audioTracks = {};

  /// How long the input promises to be, counted from its start (microseconds), 0 where it does not
  /// tell or only estimates: what is missing of it has been lost.
  int64_t promisedLength = 0;
};

/// What is in an opened source, as its container tells it.
KESTREL_API MediaInfo mediaInfoOf(const LMMediaSource& source);

/// What is in a file, or in one title of a disc (a number from 1, or `kMainTitle`) as one of its
/// angles shows it (from 1); `protocols` are those by which it may be read where it is no file.
/// Where the container leaves colours open, one picture is decoded, which may tell them. Throws
/// `Failure` for one that cannot be opened.
KESTREL_API MediaInfo readMediaInfo(const std::string& path, std::optional<int> title = {},
                                    const Interrupt& interrupt = {}, int angle = 1,
                                    const Protocols& protocols = {});

}  // namespace kestrel
