#pragma once

#include <compare>
#include <cstdint>
#include <deque>
#include <set>

#include "support/MuxingOwners.h"

namespace kestrel {

/// Gives presentation times to the packets of a copied stream that have only decoding times, as
/// those from AVI do where pictures are reordered.
///
/// A picture is shown when the decoder can first hand it out: at the decoding time of the packet
/// that makes one more picture wait than the stream's delay allows. So packets are held back, by no
/// more than that delay and the pictures between, until their time is known; they leave in the
/// order in which they came. As long as every packet has its time, they pass at once.
class DisplayTimes {
 public:
  explicit DisplayTimes(const AVCodecParameters& parameters);

  void push(PacketPtr packet);

  /// Says that no packet follows: what is held back then leaves, one frame apart.
  void finish();

  /// The next packet that is ready, null when there is none.
  PacketPtr pop();

 private:
  /// Where a picture lies in the order of display: by sequence, by number within it, and where that
  /// does not tell, as it came.
  struct Key {
    int64_t sequence = 0;
    int64_t number = 0;
    int64_t count = 0;

    auto operator<=>(const Key&) const = default;
  };

  struct Waiting {
    PacketPtr packet;
    Key key;
    bool shown = false;  ///< its presentation time is settled
  };

  Key keyOf(const AVPacket& packet);
  Key keyByNumber();
  Key keyByType();
  void parse(const AVPacket& packet);
  void showFirst(int64_t time);

  ParserPtr parser_;
  CodecContextPtr context_;  // what the parser asks for
  size_t delay_ = 0;         // pictures

  bool active_ = false;
  std::deque<Waiting> waiting_;  // in the order of decoding
  std::set<Key> order_;          // of those not yet shown
  int64_t sequence_ = 0;         // the one being pushed
  int64_t count_ = 0;            // packets pushed
  int64_t lastTime_ = 0;         // decoding time
  int64_t step_ = 1;             // between two packets
};

}  // namespace kestrel
