#pragma once

#include <kestrel/convert/ConversionPlan.h>

#include <string>
#include <utility>

#include "support/Words.h"

namespace kestrel {

/// A stream of the input as it goes into a plan, with what is true of it in any container.
inline PlannedStream plannedStream(const StreamInfo& stream, StreamAction action,
                                   bool keepsMetadata, std::string reason = {}) {
  PlannedStream result{.kind = stream.kind,
                       .action = action,
                       .sources = {stream.index},
                       .reason = std::move(reason),
                       .isCover = stream.video.isCover,
                       .disposition = stream.disposition};
  if (!keepsMetadata) return result;
  if (!stream.language.empty()) result.tags["language"] = stream.language;
  for (const auto& [name, value] : stream.tags)
    if (lowerCased(name) == "title") result.tags["title"] = value;
  return result;
}

}  // namespace kestrel
