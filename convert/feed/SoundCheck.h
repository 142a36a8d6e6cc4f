#pragma once

#include <cstdint>

#include "platform/codec/CodecOwners.h"

struct AVStream;

namespace kestrel {

/// Listens to sound that is copied, so that damage does not go along unseen: a packet that the
/// decoder does not take would be a click or a complaint in every player.
///
/// Use from one thread.
class SoundCheck {
 public:
  /// `stream` is the input's. Where no decoder opens, every packet is taken. `beginsAnywhere`: the
  /// first packet may have been cut off by whoever recorded it, which is no damage.
  explicit SoundCheck(const AVStream& stream, bool beginsAnywhere = false);

  /// Whether the next packet can be decoded.
  bool takes(const AVPacket& packet);

  /// How many could not.
  int64_t refused() const { return refused_; }

 private:
  CodecContextPtr decoder_;
  bool mayBeCut_;
  int64_t refused_ = 0;
};

}  // namespace kestrel
