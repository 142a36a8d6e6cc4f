#pragma once

#include <kestrel/LMFFMovieFileOutput.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/MediaInfo.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "convert/plan/ConversionPlanner.h"

struct AVFormatContext;

namespace kestrel {

/// Sets an output up as it is planned, up to the opening of its streams.
void setUpOutput(LMFFMovieFileOutput& output, const ConversionPlan& plan, const std::string& path,
                 const Interrupt& interrupt);

/// Opens the stream of encoded pictures, with their light.
void openPlannedPictures(LMFFMovieFileOutput& output, const ConversionPlan& plan);

/// Opens one stream that is kept, of those of `input`, with its tags and flags; null on failure,
/// which the output tells. Sound that is encoded comes as of `openEncodedSound`.
AVStream* openPlannedStream(LMFFMovieFileOutput& output, const ConversionPlan& plan,
                            const PlannedStream& planned, const AVFormatContext& input,
                            int32_t sampleFormat = lm_get_default_sample_fmt());

/// Opens a stream whose packets have been made before.
AVStream* openMadeStream(LMFFMovieFileOutput& output, const ConversionPlan& plan,
                         const PlannedStream& planned, const AVStream& made);

/// Opens sound that is encoded and comes in interleaved samples of `sampleFormat` (an
/// `AVSampleFormat`), of its encoding's rate and channels; null on failure.
AVStream* openEncodedSound(LMFFMovieFileOutput& output, const SoundEncoding& sound,
                           int32_t sampleFormat = lm_get_default_sample_fmt());

/// Throws `Failure`, which names `target`, when the output has failed.
void requireOutput(const LMFFMovieFileOutput& output, const std::string& target);

/// The chapters of an input between two of its times (microseconds after its start), counted from
/// the first of these.
std::vector<LMFFMovieFileOutput::Chapter> chaptersOf(const MediaInfo& input, int64_t start,
                                                     int64_t end);

/// The language of a stream as a tag; none where it has none.
std::map<std::string, std::string> languageTag(const StreamInfo& stream);

}  // namespace kestrel
