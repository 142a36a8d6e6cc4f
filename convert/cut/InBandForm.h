#pragma once

#include "convert/cut/StretchForm.h"
#include "support/copy/PictureUnits.h"

namespace kestrel {

/// Codecs that begin anew with each key picture: what is encoded brings its own parameters, and the
/// stream's come again with the first packet behind it.
class InBandForm : public StretchForm {
 public:
  explicit InBandForm(const AVStream& stream);

  /// Whether the form is known for a codec that can be encoded.
  static bool takes(AVCodecID codec);

  bool startsOpen() const override;
  std::string prepare(int steps, AVCodecParameters& output) override;
  uint32_t tag() const override;
  bool adopt(AVPacket& packet) override;
  bool resume(AVPacket& packet) override;
  bool open(AVPacket& packet) override;

 private:
  const AVStream& stream_;
  PictureUnits units_;
};

}  // namespace kestrel
