#include "convert/pictures/AutoCrop.h"

#include <kestrel/LMFFImageColorspaceConverter.h>
#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <set>
#include <vector>

#include <kestrel/convert/Failure.h>
#include "convert/pictures/PictureReader.h"
#include "convert/probe/Input.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

namespace kestrel {

namespace {

constexpr int kSamples = 24;
constexpr size_t kEnoughKeyPictures = 8;

// What a bar looks like; levels of 255.
constexpr double kBrightestMean = 12;   // of a line of a bar
constexpr int kBrightestPixel = 32;     // that counts as dark
constexpr double kOutlierShare = 0.01;  // of a bar's line may be brighter
constexpr double kUnevenness = 3;       // of the means of a bar's lines
constexpr double kStep = 10;            // from a bar's mean to the picture beside it
constexpr double kEdgeShare = 0.3;      // of the line beside a bar that is picture at least
constexpr int kBlurredLines = 2;        // between bar and picture
constexpr int kFrayedLines = 2;         // outermost ones that may be brighter than their bar

// When it is certain.
constexpr int kLeastEvidence = 3;       // pictures that show the edge
constexpr double kEvidenceShare = 0.3;  // of the pictures that are not black
constexpr int kThinnestBar = 4;         // pixels
constexpr double kThinnestShare = 1 / 160.0;
constexpr double kLeastPicture = 0.3;  // of a side

/// The brightness of one picture, eight bits a pixel, full range.
struct Brightness {
  int width = 0;
  int height = 0;
  std::vector<uint8_t> pixels;
};

/// What one picture says of the bar at one side: how many lines of it, from the edge inwards, may
/// be bar, and whether the picture stands out from them.
struct Observation {
  int lines = 0;
  bool isEdge = false;
};

enum Side : size_t { kTop, kBottom, kLeft, kRight };

using Observations = std::array<Observation, 4>;

/// Of a picture that is grey in full range.
Brightness brightnessOf(const AVFrame& grey) {
  Brightness result{grey.width, grey.height, {}};
  for (int y = 0; y < grey.height; ++y) {
    const uint8_t* row = grey.data[0] + static_cast<ptrdiff_t>(y) * grey.linesize[0];
    result.pixels.insert(result.pixels.end(), row, row + grey.width);
  }
  return result;
}

/// One line of pixels along a side of a picture.
class Line {
 public:
  /// `index`: how many lines lie between it and the side.
  Line(const Brightness& picture, Side side, int index) {
    const bool isRow = side == kTop || side == kBottom;
    const int count = isRow ? picture.height : picture.width;
    const auto line =
        static_cast<size_t>(side == kTop || side == kLeft ? index : count - 1 - index);
    const auto width = static_cast<size_t>(picture.width);
    length_ = isRow ? picture.width : picture.height;
    step_ = isRow ? 1 : width;
    first_ = picture.pixels.data() + line * (isRow ? width : 1);
  }

  double mean() const {
    int64_t sum = 0;
    for (int i = 0; i < length_; ++i) sum += first_[static_cast<size_t>(i) * step_];
    return static_cast<double>(sum) / length_;
  }

  /// How much of it, from 0 to 1, is brighter than a level.
  double shareAbove(double level) const {
    int count = 0;
    for (int i = 0; i < length_; ++i) count += first_[static_cast<size_t>(i) * step_] > level;
    return static_cast<double>(count) / length_;
  }

  bool isDark() const {
    return mean() <= kBrightestMean && shareAbove(kBrightestPixel) <= kOutlierShare;
  }

 private:
  const uint8_t* first_;
  size_t step_;
  int length_;
};

Observation observe(const Brightness& picture, Side side) {
  const int count = side == kTop || side == kBottom ? picture.height : picture.width;
  const double level = Line(picture, side, std::min(kFrayedLines, count - 1)).mean();
  int lines = 0;
  for (; lines < count; ++lines) {
    const Line line(picture, side, lines);
    // What gets slowly brighter is a dark scene.
    const bool isEven = lines < kFrayedLines || std::abs(line.mean() - level) <= kUnevenness;
    if (!line.isDark() || !isEven) break;
  }
  if (lines == 0 || lines + kBlurredLines >= count) return {lines, false};
  const Line inside(picture, side, lines + kBlurredLines);
  return {lines, inside.shareAbove(level + kStep) >= kEdgeShare};
}

/// The bar that all pictures have at a side, 0 where it is not certain.
int commonBar(const std::vector<Observations>& pictures, Side side, int count) {
  int lines = count;
  for (const auto& picture : pictures) lines = std::min(lines, picture[side].lines);
  const auto evidence = std::ranges::count_if(pictures, [&](const Observations& picture) {
    return picture[side].isEdge && picture[side].lines - lines <= kBlurredLines;
  });
  const auto needed =
      std::max<double>(kLeastEvidence, kEvidenceShare * static_cast<double>(pictures.size()));
  const bool isThick = lines >= std::max<double>(kThinnestBar, kThinnestShare * count);
  return isThick && static_cast<double>(evidence) >= needed ? (lines + 1) / 2 * 2 : 0;
}

/// Looks at pictures of a movie.
class Samples {
 public:
  /// Luma alone: colours reach over the edge of a bar into its outermost lines.
  Samples() { converter_.setOutputColor({.range = AVCOL_RANGE_JPEG}); }

  void add(const AVFrame* frame) {
    converter_.setOutputFormat({AV_PIX_FMT_GRAY8, frame->width, frame->height});
    converter_.convertFrame(frame);
    const AVFrame* grey = converter_.outputFrame();
    if (!grey || !grey->data[0]) return;
    const bool isSameSize = grey->width == width_ && grey->height == height_;
    if (!isSameSize) pictures_.clear();
    width_ = grey->width;
    height_ = grey->height;
    const Brightness brightness = brightnessOf(*grey);
    Observations observations;
    for (const Side side : {kTop, kBottom, kLeft, kRight})
      observations[side] = observe(brightness, side);
    const bool isBlack = observations[kTop].lines == height_;
    if (!isBlack) pictures_.push_back(observations);
  }

  std::optional<Area> area() const {
    const auto bar = [&](Side side) {
      return commonBar(pictures_, side, side == kTop || side == kBottom ? height_ : width_);
    };
    if (pictures_.empty()) return std::nullopt;
    const Area area{bar(kLeft), bar(kTop), (width_ - bar(kLeft) - bar(kRight)) / 2 * 2,
                    (height_ - bar(kTop) - bar(kBottom)) / 2 * 2};
    const bool hasBars = bar(kLeft) + bar(kTop) + bar(kRight) + bar(kBottom) > 0;
    const bool isLarge =
        area.width >= kLeastPicture * width_ && area.height >= kLeastPicture * height_;
    return hasBars && isLarge ? std::optional(area) : std::nullopt;
  }

 private:
  LMFFImageColorspaceConverter converter_;
  std::vector<Observations> pictures_;
  int width_ = 0;
  int height_ = 0;
};

/// The key picture near a time; null when there is none behind it.
AVFrame* keyPictureNear(LMFFMedia& media, LMFFMediaStream& stream, int64_t time) {
  media.seek(time);
  while (!stream.frame()->data[0] && !isInterrupted(media))
    if (!media.forwardNextPacket()) break;
  return stream.frame()->data[0] ? stream.frame() : nullptr;
}

/// Looks at key pictures alone, which takes next to no decoding; false where there are too few.
bool sampleKeyPictures(const std::vector<int64_t>& times, LMFFMedia& media, Samples& samples) {
  const auto stream = media.videoStream();
  std::set<int64_t> seen;
  stream->codecContext()->skip_frame = AVDISCARD_NONKEY;
  for (const int64_t time : times) {
    if (isInterrupted(media)) break;
    AVFrame* frame = keyPictureNear(media, *stream, time);
    if (frame && seen.insert(frame->pts).second) samples.add(frame);
  }
  stream->codecContext()->skip_frame = AVDISCARD_DEFAULT;
  return seen.size() >= kEnoughKeyPictures;
}

}  // namespace

std::optional<Area> withoutBars(LMFFMovie& movie) {
  const auto videos = movie.videos();
  if (videos.empty() || !movie.videoEffectStream()) return std::nullopt;
  LMFFMedia& media = *videos.front();
  const int64_t duration = media.duration();
  if (!media.source()->isSeekable() || duration <= 0 || duration >= LMFFMedia::kUnknownDuration)
    return std::nullopt;
  std::vector<int64_t> times;
  for (int i = 0; i < kSamples; ++i) times.push_back(duration * (2 * i + 1) / (2 * kSamples));

  std::optional<Area> area;
  Samples keyPictures;
  if (sampleKeyPictures(times, media, keyPictures)) {
    area = keyPictures.area();
  } else {
    Samples pictures;
    PictureReader reader(movie);
    for (const int64_t time : times)
      if (const auto frame = reader.frameAt(media.movie_position() + time).image)
        pictures.add(frame->getFrame());
    area = pictures.area();
  }
  if (isInterrupted(media)) throw Failure::interrupted();
  media.seek(movie.currentTime() - media.movie_position());
  return area;
}

}  // namespace kestrel
