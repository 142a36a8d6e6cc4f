#pragma once

#include <compare>
#include <cstdint>
#include <deque>
#include <set>

#include "support/MuxingOwners.h"

namespace kestrel {

/// Adds presentation times to packets of a copied stream that have only decoding times, as in AVI
/// files with reordered pictures.
///
/// A picture is shown as soon as the decoder can return it: at the decoding time of the packet that
/// makes one more picture wait than the stream's delay allows. Packets are therefore held back
/// until their time is known, at most for that delay and the pictures in between, and leave in the
/// order in which they came. As long as all packets have presentation times, they pass immediately.
class DisplayTimes {
 public:
  explicit DisplayTimes(const AVCodecParameters& parameters);

  void push(PacketPtr packet);

  /// Signals that no packet follows, or only those of another input; releases what is held back,
  /// one frame apart.
  void finish();

  /// The next packet that is ready; null if there is none.
  PacketPtr pop();

 private:
  /// A picture's place in display order: by sequence, by number within it, then by arrival.
  struct Key {
    int64_t sequence = 0;
    int64_t number = 0;
    int64_t count = 0;

    auto operator<=>(const Key&) const = default;
  };

  struct Waiting {
    PacketPtr packet;
    Key key;
    bool shown = false;  ///< its presentation time is known
  };

  Key keyOf(const AVPacket& packet);
  Key keyByNumber();
  Key keyByType();
  void parse(const AVPacket& packet);
  void showFirst(int64_t time);

  ParserPtr parser_;
  CodecContextPtr context_;  // required by the parser
  size_t delay_ = 0;         // pictures

  bool active_ = false;
  std::deque<Waiting> waiting_;  // in decoding order
  std::set<Key> order_;          // of those not yet shown
  int64_t sequence_ = 0;         // the current one
  int64_t count_ = 0;            // packets pushed
  int64_t lastTime_ = 0;         // decoding time
  int64_t step_ = 1;             // between two packets
};

}  // namespace kestrel
