#pragma once

#include <kestrel/Error.h>

#include <cstdint>
#include <deque>
#include <set>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// Encodes a stretch of a copied stream of pictures anew, in the stream's own codec and as well as
/// nobody sees, so that it can do without pictures that lie before it.
///
/// Packets go in with the pictures that the stretch needs and those that it shows: the former are
/// marked as to be discarded. Out come packets of the latter alone, in the order in which they are
/// shown, the first a key picture, with the codec's data among them and with the decoding times
/// that the shown packets had.
class StretchEncoder {
 public:
  /// `parameters` are those of the packets that come, `stream` is what they are stamped for; both
  /// outlive this.
  StretchEncoder(const AVCodecParameters& parameters, const AVStream& stream)
      : parameters_(parameters), stream_(stream) {}

  /// Whether pictures of a codec can be encoded so that they go on in the midst of a stream.
  static bool canEncode(AVCodecID codec);

  /// Decodes a packet and encodes what comes of it; the caller keeps the packet.
  void push(const AVPacket& packet);

  /// Says that no packet follows: what is held back then leaves.
  void finish();

  /// The next packet that is ready, null when there is none.
  PacketPtr pop();

  /// Why the stretch could not be encoded.
  const Error& error() const { return error_; }

 private:
  /// When a picture is shown and for how long, in the stream's time base.
  struct Shown {
    int64_t time = 0;
    int64_t duration = 0;
  };

  bool openDecoder();
  bool openEncoder(const AVFrame& picture);
  void configure(AVCodecContext& encoder, const AVFrame& picture) const;
  void decode(const AVPacket* packet);
  void encode(AVFrame* picture);
  bool succeeded(int result);

  const AVCodecParameters& parameters_;
  const AVStream& stream_;
  CodecContextPtr decoder_;
  CodecContextPtr encoder_;
  std::multiset<int64_t> decodingTimes_;  // of packets that show something and have not left
  std::deque<Shown> shown_;               // of pictures in the encoder
  int64_t count_ = 0;                     // pictures encoded
  std::deque<PacketPtr> ready_;
  Error error_;
};

}  // namespace kestrel
