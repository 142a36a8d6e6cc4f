#include "composition/SharedInputs.h"

#include <kestrel/LMMediaSource.h>
#include <kestrel/LMMovieCompositionTrack.h>

#include <algorithm>
#include <utility>

namespace kestrel {

/// One pass over an input.
struct SharedInputs::Reader {
  std::shared_ptr<LMMediaSource> of;    // the tracks' source
  std::shared_ptr<LMMediaSource> from;  // that, or a copy
  double position = 0;
};

SharedInputs::SharedInputs(const LMMovieComposition::TrackList& tracks) {
  for (const auto& track : tracks)
    if (track->source() && !track->finished()) lanes_[track.get()].reader = readerFor(*track);
}

SharedInputs::~SharedInputs() = default;

std::shared_ptr<SharedInputs::Reader> SharedInputs::readerFor(
    const LMMovieCompositionTrack& track) const {
  const auto source = track.source();
  bool isShared = false;
  for (const auto& [other, lane] : lanes_) {
    if (!lane.reader || lane.reader->of != source) continue;
    isShared = true;
    if (lane.reader->position == track.position() || !source->isSeekable()) return lane.reader;
  }
  auto reader = std::make_shared<Reader>(Reader{source, source, track.position()});
  if (!isShared) return reader;
  reader->from = source->copy();
  reader->from->setInterrupt(source->interrupt());
  reader->from->open();
  reader->from->fillInTimes();
  return reader;
}

bool SharedInputs::read(LMMovieCompositionTrack& track, AVPacket& packet) {
  Lane& lane = lanes_[&track];
  while (lane.waiting.empty()) {
    if (lane.reader && readAhead(*lane.reader)) continue;
    track.setFinished(true);
    if (lane.reader) track.countIncomplete(*lane.reader->from);
    return false;
  }
  av_packet_move_ref(&packet, lane.waiting.front().get());
  lane.waiting.pop_front();
  track.passPacket(packet);
  return true;
}

/// Reads a packet and hands it to every track that is of its stream; false at the end.
bool SharedInputs::readAhead(const Reader& reader) {
  const PacketPtr packet = makePacket();
  if (!packet || !reader.from->readPacket(packet.get())) return false;
  for (auto& [track, lane] : lanes_) {
    if (lane.reader.get() != &reader || track->track() != packet->stream_index) continue;
    if (PacketPtr copy{av_packet_clone(packet.get())}) lane.waiting.push_back(std::move(copy));
  }
  return true;
}

}  // namespace kestrel
