#pragma once

#include <kestrel/convert/ConversionPlan.h>
#include <kestrel/convert/MediaInfo.h>

#include <vector>

struct AVOutputFormat;

namespace kestrel {

class LMMediaSource;

/// What becomes of the subtitles of an opened input, of which `info` tells, in what is `named` so
/// and whose streams lie in `container`: they go along as they are where they can, or texts in its
/// own form. What is drawn into the pictures, where those are encoded, is not lost. Throws
/// `Failure` where chosen ones are not there.
std::vector<PlannedStream> planSubtitles(const ConversionSettings& settings,
                                         const LMMediaSource& source, const MediaInfo& info,
                                         const AVOutputFormat& named,
                                         const AVOutputFormat& container, bool encodesPictures);

/// The same of covers, attachments and data.
std::vector<PlannedStream> planAttachments(const ConversionSettings& settings,
                                           const LMMediaSource& source, const MediaInfo& info,
                                           const AVOutputFormat& named);

}  // namespace kestrel
