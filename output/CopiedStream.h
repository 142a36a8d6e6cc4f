#pragma once

#include <kestrel/Error.h>

#include <optional>

#include "output/DisplayTimes.h"
#include "support/MuxingOwners.h"

namespace kestrel {

/// The way of a copied stream's packets into the container: rewritten where the container wants the
/// same bits in another form, and given presentation times where it needs them.
class CopiedStream {
 public:
  /// `stream` has the parameters of the packets that come; they become those of the packets that
  /// leave.
  CopiedStream(AVStream* stream, const AVOutputFormat& muxer);

  AVStream* stream() const { return stream_; }

  /// Why packets are not rewritten as they should be.
  const Error& error() const { return error_; }

  /// Takes a packet, stamped in the stream's time base; a negative code when there is no memory for
  /// it. A packet that cannot be rewritten, because its bits are damaged, is left out and counted.
  int push(PacketPtr packet);

  /// Says that no packet follows: what is held back then leaves. Answers why packets were left out,
  /// a negative code, where all of them were; otherwise 0.
  int finish();

  /// How many packets were left out.
  int64_t refused() const { return refused_; }

  /// The next packet that is ready, null when there is none.
  PacketPtr pop();

 private:
  void openFilter(const char* name);
  int send(AVPacket* packet);
  int receive();
  void deliver(PacketPtr packet);

  AVStream* stream_;
  BitstreamFilterPtr filter_;
  std::optional<DisplayTimes> times_;
  std::deque<PacketPtr> ready_;
  int64_t refused_ = 0;
  int refusal_ = 0;  // why the last one was left out
  bool hasDelivered_ = false;
  Error error_;
};

}  // namespace kestrel
