#pragma once

#include <kestrel/LMFFMovie.h>
#include <kestrel/convert/ConversionPlan.h>

#include <memory>

namespace kestrel {

class LMMediaSource;

/// A stream that is read, and the media that reads it; both null where it cannot be decoded.
struct ReadStream {
  std::shared_ptr<LMFFMedia> media;
  std::shared_ptr<LMFFMediaStream> stream;
};

/// Opens the medias through which a conversion reads an input: one for the pictures and one for the
/// sound that is encoded, so that neither waits for the other's decoding. Packets that only pass
/// through come along with the pictures if those pass through, too, so that the file is read once;
/// otherwise subtitles come with the pictures and sound with the sound. Where the input's bytes
/// come only once, one media has to do for all.
///
/// The streams are open, and copied or resampled as the plan says, to interleaved samples that keep
/// all their bits (`carriedSamples`). Empty where nothing of it can be read.
LMFFMovie::MediaList openReaders(const std::shared_ptr<LMMediaSource>& source,
                                 const ConversionPlan& plan);

/// A stream by its container index.
ReadStream readerOf(const LMFFMovie::MediaList& medias, uint32_t index);

}  // namespace kestrel
