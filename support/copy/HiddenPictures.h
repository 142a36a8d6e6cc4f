#pragma once

#include <kestrel/Error.h>

#include <cstdint>
#include <deque>
#include <optional>

#include "support/copy/PictureUnits.h"
#include "support/copy/StretchEncoder.h"

namespace kestrel {

/// Keeps pictures hidden that a container hides: those that are decoded because others need them,
/// and not shown, as an edit list says. Their packets are marked `AV_PKT_FLAG_DISCARD`.
///
/// Those that no shown picture needs are left out. The first ones of a stream may be hidden by the
/// new container, too: they go before time 0. Where it can't do that, the pictures that need hidden
/// ones are encoded anew, up to the next key picture that needs none before it.
class HiddenPictures {
 public:
  /// `parameters` are those of the packets that come, `stream` is what they are stamped for; both
  /// outlive this. `hidesFirst`: whether what lies before time 0 is not shown.
  HiddenPictures(const AVCodecParameters& parameters, const AVStream& stream, bool hidesFirst);

  /// Packets of `input` come next.
  void beginInput(const AVStream& input);

  void push(PacketPtr packet);

  /// Says that no packet follows: what is held back then leaves.
  void finish();

  /// The next packet that is ready, null when there is none.
  PacketPtr pop();

  /// How many pictures were encoded anew.
  int64_t encoded() const { return encoded_; }

  /// Why pictures could not be kept hidden.
  const Error& error() const { return error_; }

 private:
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
  bool mayHide_ = false;  // the input has hidden pictures
  PictureUnits units_;
  std::deque<PacketPtr> held_;   // hidden, from the last key picture on
  std::deque<PacketPtr> group_;  // what of it was delivered since the last key picture
  std::optional<StretchEncoder> stretch_;
  bool isChanged_ = false;  // decoders have been given other codec data than the stream's
  bool hasShown_ = false;
  bool hasDelivered_ = false;
  int64_t last_ = INT64_MIN;           // decoding time of what was delivered last
  std::optional<int64_t> startShift_;  // by which hidden pictures of the first group are moved
  std::deque<PacketPtr> ready_;
  int64_t encoded_ = 0;
  Error error_;
};

}  // namespace kestrel
