#pragma once

#include <kestrel/IndexSet.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFVideoColor.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "Convert.h"
#include "Look.h"

struct AVOutputFormat;
struct AVStream;

namespace kestrel {
class LMMediaSource;
}

/// What becomes of one kind of stream.
enum class StreamAction { kNone, kEncode, kCopy };

/// Everything about a conversion that can be said before the first packet is read: which streams,
/// what becomes of them, and the output's parameters.
struct ConvertPlan {
  using Options = std::map<std::string, std::string>;

  StreamAction video = StreamAction::kNone;
  StreamAction audio = StreamAction::kNone;
  std::optional<uint32_t> videoIndex;  ///< container index of the video stream
  kestrel::IndexSet audioIndexes;      ///< container indexes of the audio streams to open
  kestrel::IndexSet audioTracks;       ///< the chosen ones, counted among the audio streams
  kestrel::LMFFMovieFileOutputFormat format;
  kestrel::Rational rate;  ///< pictures per second
  kestrel::LMFFVideoColor color;
  Look look;
  Options videoOptions;
  Options audioOptions;
  Options muxerOptions;
  std::string formatName;      ///< the muxer's short name
  int64_t start = 0;           ///< microseconds
  std::optional<int64_t> end;  ///< microseconds
};

/// Plans the conversion of an opened input; throws `Failure` for what cannot be done.
ConvertPlan planConversion(const ConvertSettings& settings, const kestrel::LMMediaSource& input);

/// The rate at which a stream's pictures really come: the container's base rate, unless that
/// counts fields or clock ticks instead of pictures.
kestrel::Rational realFrameRate(const AVStream& stream);

/// The container indexes of the audio streams that `wanted` names: numbers from 0 in the order in
/// which users count them, "all", a language, or "" for the usual one. Throws `Failure` for one
/// that is not there.
kestrel::IndexSet chosenAudios(const std::string& wanted, const kestrel::LMMediaSource& source);
