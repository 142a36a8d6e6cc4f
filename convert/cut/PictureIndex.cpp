#include "convert/cut/PictureIndex.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/convert/Failure.h>

#include <algorithm>
#include <span>

#include "convert/cut/AvcSyntax.h"
#include "support/FFmpegOwners.h"
#include "support/copy/PictureUnits.h"

namespace kestrel {

namespace {

using Entry = IndexedPicture::Entry;

class Indexer {
 public:
  Indexer(const AVStream& stream, PictureIndex& index)
      : stream_(stream), units_(*stream.codecpar), index_(index) {
    index.timebase = stream.time_base;
    for (const auto& set : units_.parameterSets()) noteSet(set, true);
  }

  void take(const AVPacket& packet) {
    if (packet.pts == AV_NOPTS_VALUE) index_.problem = "the container does not tell when they show";
    const bool isKey = (packet.flags & AV_PKT_FLAG_KEY) != 0;
    Entry entry = Entry::kNone;
    if (isKey) entry = units_.beginsAnew(packet) ? Entry::kClean : Entry::kOpen;
    index_.pictures.push_back({.shown = packet.pts,
                               .duration = packet.duration,
                               .entry = entry,
                               .isHidden = (packet.flags & AV_PKT_FLAG_DISCARD) != 0,
                               .decoded = packet.dts});
    if (av_packet_get_side_data(&packet, AV_PKT_DATA_NEW_EXTRADATA, nullptr))
      index_.change = "the stream's codec data changes within it";
    if (stream_.codecpar->codec_id != AV_CODEC_ID_H264) return;
    for (const auto& unit : units_.unitsOf(packet)) noteSet(unit, false);
  }

  void finish() {
    for (const IndexedPicture& picture : index_.pictures)
      if (!picture.isHidden) index_.shown.push_back(picture.shown);
    std::ranges::sort(index_.shown);
    const auto twice = std::ranges::adjacent_find(index_.shown);
    if (twice != index_.shown.end() && index_.problem.empty())
      index_.problem = "two pictures show at the same time";
    noteUsualDuration();
    refineEntries();
  }

 private:
  void noteSet(std::span<const uint8_t> unit, bool isOwn) {
    if (stream_.codecpar->codec_id != AV_CODEC_ID_H264 || unit.empty()) return;
    if (const auto set = readAvcPictureSet(unit)) index_.pictureSets.insert(set->id);
    if (!readAvcSequence(unit)) return;
    const std::vector<uint8_t> bytes(unit.begin(), unit.end());
    if (isOwn || sequence_.empty())
      sequence_ = bytes;
    else if (bytes != sequence_)
      index_.change = "the stream's parameters change within it";
  }

  /// The middle one of the distances between pictures.
  void noteUsualDuration() {
    std::vector<int64_t> steps;
    for (size_t i = 1; i < index_.shown.size(); ++i)
      steps.push_back(index_.shown[i] - index_.shown[i - 1]);
    if (steps.empty()) {
      if (!index_.pictures.empty()) index_.usualDuration = index_.pictures.front().duration;
    } else {
      const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
      std::ranges::nth_element(steps, middle);
      index_.usualDuration = *middle;
    }
    index_.usualDuration = std::max<int64_t>(index_.usualDuration, 1);
  }

  /// Codecs without units do not tell whether pictures before a key picture, by their time, need
  /// one before it, by decoding: it is taken to be so.
  void refineEntries() {
    if (stream_.codecpar->codec_id == AV_CODEC_ID_H264 ||
        stream_.codecpar->codec_id == AV_CODEC_ID_HEVC)
      return;
    IndexedPicture* key = nullptr;
    for (IndexedPicture& picture : index_.pictures) {
      if (picture.entry != Entry::kNone) key = &picture;
      if (key && picture.shown < key->shown) key->entry = Entry::kOpen;
    }
  }

  const AVStream& stream_;
  PictureUnits units_;
  PictureIndex& index_;
  std::vector<uint8_t> sequence_;
};

}  // namespace

int64_t PictureIndex::entryBefore(int64_t time) const {
  int64_t best = pictures.empty() ? time : pictures.front().shown;
  for (const IndexedPicture& picture : pictures)
    if (picture.entry != Entry::kNone && picture.shown <= time)
      best = std::max(best, picture.shown);
  return best;
}

int64_t PictureIndex::nextTime(int64_t time) const {
  const auto next = std::ranges::upper_bound(shown, time);
  return next == shown.end() ? INT64_MAX : *next;
}

PictureIndex indexPictures(LMMediaSource& source, uint32_t stream, const Events& events) {
  AVFormatContext& input = *source.formatContext();
  for (unsigned i = 0; i < input.nb_streams; ++i)
    if (i != stream) input.streams[i]->discard = AVDISCARD_ALL;
  source.fillInTimes();
  PictureIndex index;
  Indexer indexer(*input.streams[stream], index);
  const PacketPtr packet = makePacket();
  while (packet && source.readPacket(packet.get())) {
    if (packet->stream_index == static_cast<int>(stream)) indexer.take(*packet);
    av_packet_unref(packet.get());
    if (events.isInterrupted()) throw Failure::interrupted();
  }
  indexer.finish();
  return index;
}

}  // namespace kestrel
