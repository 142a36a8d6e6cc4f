#pragma once

#include <kestrel/Error.h>

#include <cstdint>
#include <deque>
#include <set>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Re-encodes a stretch of a copied video stream, in the same codec and without visible loss, so
/// that it no longer depends on pictures before it.
///
/// Takes the packets of the pictures that the stretch needs, marked to be discarded, and of those
/// that it shows. Returns packets of the latter only, in display order, starting with a key frame,
/// with the codec data in the packets and the decoding times of the original packets.
class StretchEncoder {
 public:
  /// `parameters` are those of the incoming packets, which are stamped in the time base of
  /// `stream`; both outlive this.
  StretchEncoder(const AVCodecParameters& parameters, const AVStream& stream)
      : parameters_(parameters), stream_(stream) {}

  /// True if pictures of a codec can be re-encoded within a stream.
  static bool canEncode(AVCodecID codec);

  /// Decodes a packet and encodes the result; the caller keeps the packet.
  void push(const AVPacket& packet);

  /// Signals that no packet follows; releases what is held back.
  void finish();

  /// The next packet that is ready; null if there is none.
  PacketPtr pop();

  /// Why the stretch could not be re-encoded.
  const Error& error() const { return error_; }

 private:
  /// When and how long a picture is shown, in the stream's time base.
  struct Shown {
    int64_t time = 0;
    int64_t duration = 0;
  };

  bool openDecoder();
  bool openEncoder(const AVFrame& picture);
  void decode(const AVPacket* packet);
  void encode(AVFrame* picture);
  void keep(PacketPtr packet);
  bool succeeded(int result);

  const AVCodecParameters& parameters_;
  const AVStream& stream_;
  CodecContextPtr decoder_;
  CodecContextPtr encoder_;
  std::multiset<int64_t> decodingTimes_;  // of visible packets that have not left
  std::deque<Shown> shown_;               // of pictures in the encoder
  int64_t count_ = 0;                     // pictures encoded
  std::deque<PacketPtr> ready_;
  Error error_;
};

}  // namespace kestrel
