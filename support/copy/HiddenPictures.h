#pragma once

#include <kestrel/Error.h>

#include <cstdint>
#include <deque>
#include <optional>

#include "support/copy/PictureUnits.h"
#include "support/copy/StretchEncoder.h"

namespace kestrel {

/// Keeps pictures hidden that the input's edit list hides: they are decoded because others need
/// them, but not shown. Their packets are marked `AV_PKT_FLAG_DISCARD`.
///
/// Hidden pictures that no visible one needs are left out. The first ones of a stream can also be
/// hidden by the new container, before time 0. If it cannot do that, the pictures that need hidden
/// ones are re-encoded, up to the next key frame that needs none before it.
class HiddenPictures {
 public:
  /// `parameters` are those of the incoming packets, which are stamped in the time base of
  /// `stream`; both outlive this. `hidesFirst`: the container does not show what lies before time
  /// 0.
  HiddenPictures(const AVCodecParameters& parameters, const AVStream& stream, bool hidesFirst);

  /// The next packets come from `input`.
  void beginInput(const AVStream& input);

  void push(PacketPtr packet);

  /// Signals that no packet follows; releases what is held back.
  void finish();

  /// The next packet that is ready; null if there is none.
  PacketPtr pop();

  /// The number of pictures that were re-encoded.
  int64_t encoded() const { return encoded_; }

  /// Why pictures could not be kept hidden.
  const Error& error() const { return error_; }

 private:
  void endLeading();
  void take(PacketPtr packet);
  void hold(PacketPtr packet);
  void show(PacketPtr packet);
  bool moveBeforeStart(const AVPacket& shown);
  bool fitsBeforeStart(const AVPacket& packet) const;
  void beginStretch();
  void goOnStretch(PacketPtr packet);
  void endStretch();
  void takeEncoded();
  void deliver(PacketPtr packet);

  const AVCodecParameters& parameters_;
  const AVStream& stream_;
  const bool hidesFirst_;
  bool mayHide_ = false;    // the input has hidden pictures
  bool hasHidden_ = false;  // some have come
  PictureUnits units_;
  std::deque<PacketPtr> leading_;  // a key picture, and those behind it that are shown before it
  std::deque<PacketPtr> held_;     // hidden ones that the next visible one may need
  std::deque<PacketPtr> group_;    // packets delivered since the last key frame
  std::optional<StretchEncoder> stretch_;
  bool isChanged_ = false;  // decoders have received codec data other than the stream's
  bool hasShown_ = false;
  int64_t last_ = INT64_MIN;           // decoding time of the last packet delivered
  std::optional<int64_t> startShift_;  // offset of the pictures hidden at the start
  std::deque<PacketPtr> ready_;
  int64_t encoded_ = 0;
  Error error_;
};

}  // namespace kestrel
