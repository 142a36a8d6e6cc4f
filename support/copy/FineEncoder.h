#pragma once

#include <map>
#include <optional>
#include <string>

#include "support/FFmpegOwners.h"

namespace kestrel {

/// How pictures are encoded that go on in a copied stream: in its codec, without visible loss, each
/// shown as soon as it is decoded.
struct FineCoding {
  const AVCodecParameters& parameters;   ///< the stream's
  AVRational rate = {0, 1};              ///< of its pictures; 0: none is told
  int steps = 0;                         ///< finer than usual, 0 to `kMostSteps`
  bool apart = false;                    ///< parameter sets as codec data, not among the packets
  std::optional<bool> codesFields = {};  ///< absent: as the stream tells
  std::map<std::string, std::string> options = {};  ///< further ones of the encoder

  static constexpr int kMostSteps = 2;
};

/// Whether pictures of a codec can be encoded so.
bool canEncodeFinely(AVCodecID codec);

/// Opens an encoder for pictures like this one; its time base is the duration of a picture. Returns
/// FFmpeg's code, negative on failure.
int openFineEncoder(CodecContextPtr& encoder, const FineCoding& coding, const AVFrame& picture);

}  // namespace kestrel
