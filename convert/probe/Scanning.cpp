#include <kestrel/convert/Scanning.h>

#include <kestrel/LMFFMedia.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFMovie.h>
#include <kestrel/LMMediaSource.h>

#include <algorithm>
#include <set>

#include <kestrel/convert/Failure.h>
#include "convert/probe/Glance.h"
#include "convert/probe/Input.h"
#include "convert/probe/InputEnd.h"
#include "convert/probe/MeasuredScanning.h"
#include "convert/probe/Streams.h"
#include "support/Combs.h"
#include "support/FFmpegOwners.h"

namespace kestrel {

namespace {

constexpr int kPlaces = 6;
constexpr size_t kGlance = 12;    // pairs of pictures of all places
constexpr size_t kPictures = 30;  // of all places, where that leaves doubts
constexpr size_t kMoreInOne = 3;  // times as many where there is one place only

/// Of a picture behind its decoding, pictures.
constexpr int kLongestDelay = 8;

// Shares of the pictures that tell.
constexpr double kSome = 0.1;
constexpr double kMost = 0.6;

/// So few pictures prove nothing against their marks.
constexpr int kFewest = 4;

/// Adds up what pictures say, one after the other.
class Witness {
 public:
  explicit Witness(const AVStream& stream) {
    const AVFieldOrder order = stream.codecpar->field_order;
    isMarked_ = order != AV_FIELD_UNKNOWN && order != AV_FIELD_PROGRESSIVE;
    // Which field is shown first; the names of some orders begin with the one that is coded first.
    if (order == AV_FIELD_TT || order == AV_FIELD_BT) marked_ = 1;
    if (order == AV_FIELD_BB || order == AV_FIELD_TB) marked_ = -1;
  }

  void look(const AVFrame& picture) {
    if (picture.interlaced_frame) {
      isMarked_ = true;
      marked_ += picture.top_field_first ? 1 : -1;
    }
    if (previous_) compare(*previous_, picture);
    previous_.reset(av_frame_clone(&picture));
  }

  /// What follows does not follow what was seen.
  void jump() { previous_.reset(); }

  bool isMarked() const { return isMarked_; }

  /// Whether nothing at all speaks for fields. Of repeated fields and of combs that come and go,
  /// some lie within any few pictures in a row.
  bool seesNone() const { return !isMarked_ && combed_ == 0 && pictures_ >= kFewest; }

  Scanning result() const {
    Scanning result;
    result.isMarked = isMarked_;
    result.pictures = pictures_;
    result.combed = combed_;
    const double share = pictures_ > 0 ? static_cast<double>(combed_) / pictures_ : 0;
    if (result.pictures < kFewest)
      result.scan = result.isMarked || share > kSome ? Scan::kInterlaced : Scan::kProgressive;
    else if (share > kSome)
      result.scan = share > kMost ? Scan::kInterlaced : Scan::kMixed;
    if (result.scan == Scan::kProgressive) return result;
    const int64_t order = marked_ != 0 ? marked_ : measured_;
    if (order != 0) result.topFieldFirst = order > 0;
    return result;
  }

 private:
  void compare(const AVFrame& picture, const AVFrame& next) {
    if (picture.width != next.width || picture.height != next.height ||
        picture.format != next.format)
      return;
    const Combs combs = countCombs(picture, next);
    if (!combs.canTell()) return;
    ++pictures_;
    if (!combs.areSeen()) return;
    ++combed_;
    if (marked_ == 0) measured_ += topFieldFirst(picture, next);
  }

  bool isMarked_ = false;
  int pictures_ = 0;
  int combed_ = 0;
  FramePtr previous_;
  int64_t marked_ = 0;    // pictures whose upper field is marked as first, less the others
  int64_t measured_ = 0;  // likewise, what the combs say
};

/// Where to look, on the packets' clock. The way to any picture but a key picture is long, and so
/// it is at those of the container's index; streams that are broadcast have none, and key pictures
/// everywhere. Elsewhere only the beginning is near.
std::set<int64_t> placesIn(const LMMediaSource& source, AVStream& stream) {
  std::set<int64_t> places;
  const AVFormatContext& input = *source.formatContext();
  const int64_t begin = source.start_time();
  const int64_t duration = promisedLength(input);
  if (!source.isSeekable() || duration <= 0) return places;
  const bool isBroadcast = (input.iformat->flags & AVFMT_TS_DISCONT) != 0;
  // An index counts in order of decoding, and pictures are shown later where that is another order.
  // Half a picture more is within the key picture, however its time was rounded.
  const AVRational length = av_inv_q(toAV(realFrameRate(stream)));
  const int pictures = stream.codecpar->video_delay > 0 ? kLongestDelay : 0;
  const int64_t delay = av_rescale_q(2 * pictures + 1, length, kMicroseconds) / 2;
  for (int i = 0; i < kPlaces; ++i) {
    const int64_t time = begin + duration * (2 * i + 1) / (2 * kPlaces);
    const auto key = keyTimeBefore(stream, time);
    places.insert(isBroadcast ? time : std::max(key ? *key + delay : begin, begin));
  }
  return places;
}

/// What pairs of pictures from every place say that cost little.
Witness glanced(LMMediaSource& source, const AVStream& stream, const std::set<int64_t>& places) {
  Witness witness(stream);
  Glance glance(source, static_cast<uint32_t>(stream.index));
  const size_t all = (places.size() == 1 ? kMoreInOne : 1) * kGlance;
  const size_t pairs = (all + places.size() - 1) / places.size();
  for (const int64_t place : places) {
    witness.jump();
    for (const FramePtr& picture : glance.from(place, pairs + 1)) witness.look(*picture);
  }
  if (isInterrupted(source)) throw Failure::interrupted();
  return witness;
}

/// What pictures in a row say, from every place or, where there is none, from the beginning.
Scanning seen(LMMediaSource& source, const std::set<int64_t>& places) {
  const auto video = mainVideo(*source.formatContext());
  if (!video) return {};
  Witness witness(*source.formatContext()->streams[*video]);
  LMFFMovie movie;
  movie.openMedias(source.createMediasWithStreams(IndexSet{*video}));
  const auto videos = movie.videos();
  if (videos.empty()) return witness.result();  // there is no decoder
  LMFFMedia& media = *videos.front();
  const size_t count = std::max<size_t>(places.size(), 1);
  const auto look = [&] {
    const size_t each = (count == 1 ? kMoreInOne : 1) * kPictures / count;
    for (size_t i = 0; i < each && !isInterrupted(media); ++i) {
      const LMFFMedia::Picture picture = media.nextPicture();
      if (!picture) break;
      witness.look(*picture.frame);
    }
  };
  if (places.empty()) look();
  for (const int64_t place : places) {
    media.seek(place - media.start_time());
    witness.jump();
    look();
  }
  if (isInterrupted(media)) throw Failure::interrupted();
  return witness.result();
}

}  // namespace

Scanning markedScanning(const AVStream& stream) { return Witness(stream).result(); }

Scanning measuredScanning(const Reader& open) {
  auto source = open();
  const auto video = mainVideo(*source->formatContext());
  if (!video) return {};
  AVStream& stream = *source->formatContext()->streams[*video];
  const std::set<int64_t> places = placesIn(*source, stream);
  if (places.empty() || Witness(stream).isMarked()) return seen(*source, places);
  const Witness glance = glanced(*source, stream, places);
  if (glance.seesNone()) return glance.result();
  // Medias tell what the demuxer was asked for by what they read themselves.
  return seen(*open(), places);
}

Scanning readScanning(const std::string& path, std::optional<int> title, const Interrupt& interrupt,
                      int angle, const Protocols& protocols) {
  return measuredScanning([&] { return openInput(path, title, interrupt, angle, protocols); });
}

}  // namespace kestrel
