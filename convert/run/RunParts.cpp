#include "convert/run/RunParts.h"

namespace kestrel {

namespace {

using Kind = StreamInfo::Kind;

}  // namespace

bool isEncodedPictures(const PlannedStream& stream) {
  return stream.kind == Kind::kVideo && !stream.isCover && stream.action == StreamAction::kEncode;
}

bool isEncodedSound(const PlannedStream& stream) {
  return stream.kind == Kind::kAudio && stream.action == StreamAction::kEncode;
}

ConversionPlan partOf(ConversionPlan plan, ConversionRun::Part part) {
  using Part = ConversionRun::Part;
  const auto isLeftOut = [part](const PlannedStream& stream) {
    if (part == Part::kRest) return isEncodedPictures(stream);
    if (part == Part::kSounds) return !isEncodedSound(stream);
    return part != Part::kAll && !isEncodedPictures(stream) && stream.kind != Kind::kAudio;
  };
  for (PlannedStream& stream : plan.streams)
    if (isLeftOut(stream)) stream.action = StreamAction::kNone;
  if (part != Part::kFirstPass) return plan;
  plan.formatName = "null";
  plan.segment.reset();
  plan.muxerOptions.clear();
  plan.keepsMetadata = false;
  return plan;
}

}  // namespace kestrel
