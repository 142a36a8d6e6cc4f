#pragma once

#include <cstdint>
#include <deque>

#include "support/MuxingOwners.h"

namespace kestrel {

/// Adds decoding times to packets that have only presentation times, as at the start of Matroska
/// files with reordered pictures. The packets wait for the first one with a decoding time and are
/// spread evenly before it. Packets leave in the order in which they came: one without any time
/// gets a decoding time, too, if others wait before it, and otherwise passes as it is.
class DecodingTimes {
 public:
  /// Packets are stamped in the time base of `stream`, which outlives this.
  explicit DecodingTimes(const AVStream& stream) : stream_(stream) {}

  void push(PacketPtr packet);

  /// Signals that no packet follows; releases what waits.
  void finish();

  /// The next packet that is ready; null if there is none.
  PacketPtr pop();

 private:
  int64_t step() const;
  void release(int64_t next);

  const AVStream& stream_;
  std::deque<PacketPtr> waiting_;
  std::deque<PacketPtr> ready_;
  int64_t last_ = AV_NOPTS_VALUE;  // the latest decoding time received
};

}  // namespace kestrel
