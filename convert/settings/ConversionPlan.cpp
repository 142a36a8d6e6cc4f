#include <kestrel/convert/ConversionPlan.h>

namespace kestrel {

namespace {

bool isKept(const PlannedStream& stream, StreamInfo::Kind kind) {
  return stream.kind == kind && stream.isKept() && !stream.isCover;
}

}  // namespace

std::vector<PlannedStream*> ConversionPlan::kept(StreamInfo::Kind kind) {
  std::vector<PlannedStream*> found;
  for (PlannedStream& stream : streams)
    if (isKept(stream, kind)) found.push_back(&stream);
  return found;
}

std::vector<const PlannedStream*> ConversionPlan::kept(StreamInfo::Kind kind) const {
  std::vector<const PlannedStream*> found;
  for (const PlannedStream& stream : streams)
    if (isKept(stream, kind)) found.push_back(&stream);
  return found;
}

PlannedStream* ConversionPlan::pictures() {
  const auto found = kept(StreamInfo::Kind::kVideo);
  return found.empty() ? nullptr : found.front();
}

const PlannedStream* ConversionPlan::pictures() const {
  const auto found = kept(StreamInfo::Kind::kVideo);
  return found.empty() ? nullptr : found.front();
}

}  // namespace kestrel
