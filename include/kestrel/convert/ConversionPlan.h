#pragma once

#include <kestrel/IndexSet.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFVideoColor.h>
#include <kestrel/convert/LookSettings.h>
#include <kestrel/convert/TrackChoice.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace kestrel {

/// What becomes of one kind of stream.
enum class StreamAction {
  kNone,    ///< it is left out
  kEncode,  ///< it is decoded, shaped and encoded anew
  kCopy,    ///< its packets go along untouched
};

/// Chapters from one to another, counted from 1; both belong to it.
struct ChapterRange {
  int first = 1;
  int last = 1;

  bool operator==(const ChapterRange&) const = default;
};

/// How one file is to be converted. Beside `input` and `output`, which every conversion needs, `{}`
/// means the defaults: what the container holds is encoded, in the source's size, shape and rate.
/// What is out of its range is refused, and so is what shapes a stream that is not encoded.
struct ConversionSettings {
  using Options = std::map<std::string, std::string>;

  std::string input = {};         ///< a file, or a disc (a folder or an image)
  std::optional<int> title = {};  ///< of a disc: a number from 1, or `kMainTitle`
  std::string output = {};        ///< its extension chooses the container
  bool replaces = false;          ///< an existing target may be replaced

  // Pictures.

  std::optional<StreamAction> video =
      {};                       ///< absent: encoded where the container has a place for it
  std::string videoCodec = {};  ///< a codec's or encoder's name; "": the container's default
  LookSettings look = {};
  std::optional<Deinterlacing> deinterlacing = {};  ///< absent: automatic for a disc, else off
  std::optional<int> width = {};     ///< 1 to 65535 pixels; absent beside a height: keeps the shape
  std::optional<int> height = {};    ///< likewise
  std::optional<Rational> fps = {};  ///< pictures per second, up to 1000; absent: the source's
  std::optional<double> aspect = {};     ///< display aspect, width / height, 0.01 to 100
  std::optional<int> videoBitrate = {};  ///< bits per second, from 1; absent: what suits the size
  /// Constant quality in place of a bit rate, 0 (best) to 63; of H.264 and HEVC to 51.
  std::optional<double> crf = {};
  std::string encoderPreset = {};
  Options videoOptions = {};  ///< the encoder's own

  // Sound.

  std::optional<StreamAction> audio =
      {};                        ///< absent: encoded where the container has a place for it
  std::string audioCodec = {};   ///< a codec's or encoder's name; "": the container's default
  TrackChoice audioTracks = {};  ///< several are mixed
  std::optional<int> audioBitrate = {};       ///< bits per second, from 1
  std::optional<int> sampleRate = {};         ///< Hz, 1000 to 768000
  std::optional<int64_t> channelLayout = {};  ///< a mask; absent: stereo, or mono from mono
  double volume = 1;                          ///< a factor, 0 to 1000
  Options audioOptions = {};                  ///< the encoder's own

  // Span; times are microseconds from the movie's start.

  int64_t start = 0;                          ///< from 0, up to 100000 hours
  std::optional<int64_t> end = {};            ///< behind the start; or else
  std::optional<int64_t> duration = {};       ///< above 0
  std::optional<ChapterRange> chapters = {};  ///< instead of start and end

  bool keepsMetadata = true;  ///< tags and chapters
};

/// Everything about a conversion that can be said before the first packet is read: which streams,
/// what becomes of them, and the output's parameters. All of it may be changed; `Conversion::run`
/// goes by it alone, and refuses what cannot be.
///
/// `videoIndex` counts where `video` is not `kNone`, the members about sound where `audio` is not;
/// of several tracks only one can be copied. Sizes and rates of sound are 1 or more, bit rates 0 or
/// more (0: the options say it), `rate()`, `look` and `volume` as in the settings. A change of one
/// member changes no other: who makes the picture larger may want another bit rate, too.
struct ConversionPlan {
  using Options = ConversionSettings::Options;

  StreamAction video = StreamAction::kNone;
  StreamAction audio = StreamAction::kNone;
  std::optional<uint32_t> videoIndex = {};  ///< container index of the video stream
  IndexSet audioIndexes = {};               ///< container indexes of audio streams
  IndexSet audioTracks = {};                ///< the chosen ones, counted among those
  LMFFMovieFileOutputFormat format = {};    ///< codecs, size, rates
  VideoColor color = {};                    ///< of the output's pictures
  LookSettings look = {};                   ///< ends up in a picture of `format`'s size
  std::optional<Area> picture = {};         ///< between the black bars, where they are left out
  Deinterlacing deinterlacing = Deinterlacing::kOff;
  double volume = 1;  ///< a factor on sound that is encoded
  Options videoOptions = {};
  Options audioOptions = {};
  Options muxerOptions = {};
  std::string formatName = {};      ///< the muxer's short name
  int64_t start = 0;                ///< microseconds, from 0
  std::optional<int64_t> end = {};  ///< microseconds, not before the start
  bool keepsMetadata = true;        ///< tags and chapters

  /// Pictures per second, which `format` has.
  Rational rate() const { return {format.framerate, format.frameTime}; }
  void setRate(Rational rate) {
    format.framerate = rate.num;
    format.frameTime = rate.den;
  }
};

}  // namespace kestrel
