#pragma once

#include <cstdint>
#include <deque>

#include "support/MuxingOwners.h"

namespace kestrel {

/// Gives decoding times to packets that have only presentation times, with which Matroska files
/// begin where pictures are reordered: they wait for the first packet that has one, and are spread
/// evenly before it.
class DecodingTimes {
 public:
  /// `stream` is the one that packets are stamped for.
  explicit DecodingTimes(const AVStream& stream) : stream_(stream) {}

  void push(PacketPtr packet);

  /// Says that no packet follows: what still waits then leaves.
  void finish();

  /// The next packet that is ready, null when there is none.
  PacketPtr pop();

 private:
  int64_t step() const;
  void release(int64_t next);

  const AVStream& stream_;
  std::deque<PacketPtr> waiting_;
  std::deque<PacketPtr> ready_;
  int64_t last_ = AV_NOPTS_VALUE;  // the newest decoding time that came
};

}  // namespace kestrel
