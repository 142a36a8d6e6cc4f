#pragma once

#include "convert/cut/AvcSyntax.h"
#include "convert/cut/StretchForm.h"
#include "support/MuxingOwners.h"
#include "support/copy/PictureUnits.h"

namespace kestrel {

/// H.264. What is encoded goes by the stream's own sequence parameter set, so that a decoder never
/// changes: profile, level, colours, fields and the shape of pixels are those of the stream. The
/// encoder's slices are written anew for it, under a picture parameter set of their own with a
/// number that the stream does not use.
class AvcForm : public StretchForm {
 public:
  AvcForm(const AVStream& stream, const PictureIndex& index);

  std::string prepare(int steps, AVCodecParameters& output) override;
  bool setsApart() const override { return true; }
  bool adopt(AVPacket& packet) override;

 private:
  std::string requireSequence();
  void configure();
  std::string readEncoder(const AVCodecContext& encoder);
  std::string requireFit() const;
  bool addSet(AVCodecParameters& output) const;

  const AVStream& stream_;
  const PictureIndex& index_;
  PictureUnits units_;  // of the stream
  ParametersPtr bare_;  // of the encoder's packets
  AvcMove move_;
  AvcUnit ownSet_;
  std::vector<AvcUnit>
      sets_;  // where each restart needs them: all that the stream has, and the own
  uint32_t number_ = 0;
  uint32_t restarts_ = 0;
};

}  // namespace kestrel
