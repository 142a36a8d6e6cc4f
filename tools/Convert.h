#pragma once

#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFMediaStream.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "Look.h"
#include "Progress.h"
#include "Text.h"

/// How one file is to be converted; `{}` beside the two names means the defaults.
struct ConvertSettings {
  std::string input;
  std::string title;  ///< of a disc: a number from 1 or "main"; "" where the input is a file
  std::string output;
  bool force = false;  ///< replace an existing target

  /// A codec's name, "copy" or "none"; "" is the container's default.
  std::string videoCodec;
  std::string audioCodec;

  LookSettings look;
  std::optional<kestrel::Deinterlacing> deinterlacing;  ///< absent: automatic for a disc, else off
  std::optional<int> width;              ///< pixels; absent beside a height: keep the shape
  std::optional<int> height;             ///< pixels
  std::optional<kestrel::Rational> fps;  ///< pictures per second; absent: the source's real rate
  std::optional<double> aspect;          ///< display aspect, width / height
  std::optional<int> videoBitrate;       ///< bits per second
  std::optional<int> audioBitrate;       ///< bits per second
  std::optional<double> crf;
  std::string encoderPreset;
  std::map<std::string, std::string> videoOptions;
  std::map<std::string, std::string> audioOptions;

  std::optional<int> sampleRate;  ///< Hz
  std::string channels;           ///< a layout's name; "": stereo, or mono from mono
  std::string audioTracks;        ///< "0,2", "all" or a language; "": the default track
  double volume = 1;

  int64_t start = 0;                     ///< microseconds from the movie's start
  std::optional<int64_t> end;            ///< microseconds from the movie's start
  std::optional<int64_t> duration;       ///< microseconds
  std::optional<ChapterRange> chapters;  ///< what to convert, instead of start and end

  bool keepMetadata = true;  ///< tags and chapters
  Progress::Style progress = Progress::Style::kBar;
};

/// Converts and answers the exit status; throws `Failure` when it can't.
int convertFile(const ConvertSettings& settings);
