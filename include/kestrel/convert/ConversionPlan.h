#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFMediaStream.h>
#include <kestrel/LMFFVideoColor.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/LookSettings.h>
#include <kestrel/convert/MediaInfo.h>
#include <kestrel/convert/Moment.h>
#include <kestrel/convert/TargetQuality.h>
#include <kestrel/convert/TrackChoice.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

class LMMediaSource;

/// What becomes of a stream.
enum class StreamAction {
  kNone,    ///< it is left out
  kEncode,  ///< it is decoded, shaped and encoded anew
  kCopy,    ///< its packets go along untouched
  kBurnIn,  ///< subtitles only: they are drawn into the pictures, as `LookSettings` chooses
};

/// Chapters from one to another, counted from 1; both belong to it.
struct ChapterRange {
  int first = 1;
  int last = 1;

  bool operator==(const ChapterRange&) const = default;
};

/// Where the chapters of a result come from.
enum class ChapterSource {
  kInput,   ///< those of the input
  kScenes,  ///< one for each scene of its pictures, see `findScenes`: they are read once more
};

/// How many samples of colour a picture has: for each pixel one, for two side by side, or for four
/// in a square.
enum class ChromaSampling { k444, k422, k420 };

/// How one file is to be converted. Beside `input` and `output`, which every conversion needs, `{}`
/// means the defaults: pictures are encoded in the source's size, shape and rate, and sound is
/// copied where the container usually has its codec, else encoded likewise. What is out of its
/// range is refused, and so is what shapes a stream that is not encoded.
struct ConversionSettings {
  using Options = std::map<std::string, std::string>;

  std::string input = {};  ///< a file, or a disc (a folder or an image)
  /// The program's own bytes in place of a file; `input` is then what people call them. It is not
  /// opened itself: each reader gets a copy (`LMMediaSource::copy`).
  std::shared_ptr<LMMediaSource> source = {};
  std::optional<int> title = {};  ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                  ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};       ///< by which the input may be read where it is no file
  /// Its extension chooses the container. "pipe:N" is written to the file descriptor N, from its
  /// first byte to its last: MPEG-4 in fragments, and nothing that has to go back.
  ///
  /// "movie.m3u8" is a presentation that players take in pieces (HLS, RFC 8216): that file names
  /// what to choose from, and what it names lies in a folder beside it, "movie.segments". Pictures
  /// and each sound are tracks of their own there, of MPEG-4 in segments, and subtitles WebVTT.
  std::string output = {};
  std::string format = {};  ///< the container in place of that: an extension, or FFmpeg's name
  /// Of MPEG-4: seconds from 0.1 to 3600 that a fragment lasts at least. Each begins with a key
  /// picture, and can be played before the next is there. Absent: one index for all. Of HLS: how
  /// long a segment lasts, as far as whole pictures go; absent: 6.
  std::optional<double> fragment = {};
  bool replaces = false;  ///< an existing target may be replaced

  // Pictures.

  /// Absent: encoded where the container has a place for it.
  std::optional<StreamAction> video = {};
  std::string videoCodec = {};  ///< a codec's or encoder's name; "": the container's default
  LookSettings look = {};
  /// Absent: what the pictures need, by their marks and by what they show (`Scanning`).
  std::optional<Deinterlacing> deinterlacing = {};
  bool separatesFields = false;  ///< of what is deinterlaced each field becomes a picture
  Denoising denoising = Denoising::kOff;
  std::optional<int> width = {};   ///< 1 to 65535 pixels; absent beside a height: keeps the shape
  std::optional<int> height = {};  ///< likewise
  /// In place of both: the frame of 16:9 with so many lines (720: "720p"), 2 to 36861, that the
  /// picture fits into, on its side for one that is higher than wide.
  std::optional<int> lines = {};
  std::optional<double> scale = {};  ///< likewise: a factor on both sides, 0.001 to 100
  /// Of HLS, in place of a size: the pictures in several, of so many lines each (as `lines`), in
  /// any order, none twice; they are decoded once. Those that would be larger than the source are
  /// left out; where all would, the source's own size stands for them. A bit rate is that of the
  /// largest.
  std::vector<int> ladder = {};
  bool onlyShrinks = false;  ///< a picture that is smaller than the size asked for keeps its own
  /// Pictures per second, up to 1000; absent: the source's, each at its own time where the
  /// container can.
  std::optional<Rational> fps = {};
  std::optional<Rational> maxFps = {};  ///< at most so many, likewise
  std::optional<double> aspect = {};    ///< display aspect, width / height, 0.01 to 100
  /// How good the pictures are, 0 to 100, alike for all encoders; or `crf`, in the encoder's own
  /// numbers (`QualityScale`), or bits per second, from 1. Absent: the encoder's usual quality.
  std::optional<double> quality = {};
  std::optional<double> crf = {};
  std::optional<int> videoBitrate = {};
  /// The whole file's most bytes, from 1, in place of these: the pictures get the bit rate that
  /// comes to at least 95 % of it, unless their best quality needs less.
  std::optional<int64_t> sizeLimit = {};
  /// How like their source they are to look, in place of all these; what comes of it is in
  /// `Report::quality`. Of one file that can be read several times and is written to one.
  std::optional<TargetQuality> targetQuality = {};
  /// How often the encoder goes through the pictures, 1 or 2, for a bit rate or a size limit.
  /// Absent: once, and twice for a size limit where the encoder can.
  std::optional<int> passes = {};
  std::string encoderPreset = {};        ///< "": the usual one, see `EncoderInfo`
  std::optional<double> keyframes = {};  ///< seconds between key pictures at most; absent: 10
  /// What every player plays: 8-bit 4:2:0 pictures; sound in the container's default codec, of up
  /// to two channels and 48000 Hz.
  bool isCompatible = false;
  /// Bits of a component, 8 to 16, and samples of colour, of those that the encoder has. Absent:
  /// what loses least of the source.
  std::optional<int> depth = {};
  std::optional<ChromaSampling> chroma = {};
  Options videoOptions = {};  ///< the encoder's own

  // Sound.

  /// Absent: encoded where the container has a place for it or, where no codec is named either,
  /// copied track by track if its codec is an everyday one of the container and nothing asks for a
  /// change: a rate, channels, bit rate or options that it does not have, volume, loudness, a mix,
  /// or a span, which sound that is encoded keeps to the sample.
  std::optional<StreamAction> audio = {};
  /// A codec's or encoder's name; "": the container's default, or one that loses nothing where the
  /// track has such a one and the container usually holds it.
  std::string audioCodec = {};
  /// Codecs by name, "pcm" for all of these, "all" for every one: their tracks are copied where the
  /// container holds them, whatever shapes the others. A span begins and ends with whole packets.
  std::vector<std::string> audioCopy = {};
  TrackChoice audioTracks = TrackChoice::all();  ///< each becomes a track of the result
  bool mixesAudio = false;                       ///< the tracks become one
  std::optional<int> audioBitrate = {};          ///< bits per second, from 1; absent: by channels
  std::optional<int> sampleRate = {};            ///< Hz, 1000 to 768000; absent: the track's own
  std::optional<int64_t> channelLayout = {};     ///< a mask; absent: the track's own
  double volume = 1;                             ///< a factor, 0 to 1000
  /// How loud each track of the result is to be, -70 to -5 LUFS (EBU R 128), in place of a volume:
  /// the input is read twice.
  std::optional<double> loudness = {};
  Options audioOptions = {};  ///< the encoder's own

  // Other streams.

  /// Subtitles that are copied, where the container holds them; beside those, `look` may draw some
  /// into the pictures.
  TrackChoice subtitleTracks = TrackChoice::all();
  bool keepsSubtitles = true;
  bool keepsAttachments = true;  ///< covers, fonts

  // Span; times count from the movie's start.

  Moment start = 0;                           ///< from 0, up to 100000 hours
  std::optional<Moment> end = {};             ///< behind the start; or else
  std::optional<Moment> duration = {};        ///< above 0
  std::optional<ChapterRange> chapters = {};  ///< instead of start and end

  bool keepsMetadata = true;  ///< tags and chapters
  ChapterSource chapterSource = ChapterSource::kInput;

  /// For settings that are not about one input, such as presets: what shapes pictures or sound is
  /// passed over where an input has none, and the main title where it is no disc, in place of being
  /// refused.
  bool suitsAnyInput = false;
};

/// How a stream of sound is encoded.
struct SoundEncoding {
  int codec = 0;              ///< `AV_CODEC_ID_…`
  std::string encoder = {};   ///< by FFmpeg's name; "": the library's first for the codec
  int32_t sampleRate = 0;     ///< Hz, from 1
  int64_t channelLayout = 0;  ///< a mask
  int32_t bits = 0;      ///< significant bits of a sample that a lossless codec keeps; 0: its usual
  bool isFloat = false;  ///< samples stay floating point, which the encoder has
  int32_t bitrate = 0;   ///< bits per second; 0: the options say it
  double volume = 1;     ///< a factor
  std::optional<double> loudness = {};  ///< LUFS that the whole of it gets, in place of a volume
  std::map<std::string, std::string> options = {};  ///< the encoder's own
};

/// One stream of the result, or one of the input that is left out.
struct PlannedStream {
  StreamInfo::Kind kind = StreamInfo::Kind::kData;
  StreamAction action = StreamAction::kNone;
  std::vector<uint32_t> sources = {};  ///< container indexes; of several sounds, the mix
  /// Why it is left out, such as "avi cannot hold it"; "" where nobody would miss it. For sound
  /// that is copied without having been asked for: why.
  std::string reason = {};
  /// What encoder or container cannot keep of it: "6 channels become 2: mp3 holds no more".
  std::vector<std::string> losses = {};
  bool isCover = false;  ///< of pictures: one that belongs to the file
  /// Of sound that is copied: packets that cannot be decoded are left out and told of.
  bool isChecked = false;
  /// Of sound that is encoded or, where the plan chose to copy it, how it would be.
  SoundEncoding sound = {};
  int subtitleCodec = 0;  ///< `AV_CODEC_ID_…` of text that gets another form
  std::map<std::string, std::string> tags = {};  ///< "language", "title"
  std::vector<std::string> disposition = {};     ///< "default", "forced" …, as in `StreamInfo`

  /// Whether it is a stream of the result.
  bool isKept() const { return action != StreamAction::kNone && action != StreamAction::kBurnIn; }
};

/// Another size in which the pictures of a plan are encoded.
struct PictureRung {
  int32_t width = 0;    ///< pixels
  int32_t height = 0;   ///< pixels
  double aspect = 0;    ///< display aspect; 0: square pixels
  int32_t bitrate = 0;  ///< bits per second; 0: the options say it

  bool operator==(const PictureRung&) const = default;
};

/// Everything about a conversion that can be said before the first packet is read: the streams,
/// what becomes of each, and the output's parameters. All of it may be changed; `Conversion::run`
/// goes by it alone, and refuses what cannot be done.
///
/// Streams are written in the order of `streams`. At most one of pictures that are no cover is
/// kept; the members about pictures count where it is encoded. Sizes are 1 or more, bit rates 0 or
/// more (0: the options say it), `rate()`, `look` and volumes as in the settings. A change of one
/// member changes no other: a larger picture, for example, may need another bit rate, too.
struct KESTREL_API ConversionPlan {
  using Options = ConversionSettings::Options;

  std::vector<PlannedStream> streams = {};
  LMFFMovieFileOutputFormat format = {};  ///< of encoded pictures: codec, size, rate, bit rate
  std::string videoEncoder = {};          ///< by FFmpeg's name; "": the library's first
  std::string pixelFormat = {};           ///< by FFmpeg's name; "": the encoder's first
  /// Each picture keeps its own time, where those of the source do not come at `rate()`; else they
  /// are repeated or left out to keep that rate.
  bool keepsTimes = false;
  /// Where pictures are brought to `rate()`, none of the source's is left out: one that falls
  /// between two others is shown a picture's length late at most.
  bool keepsPictures = false;
  /// Set where the pictures stay interlaced, and are coded and marked so: whether the upper field
  /// is the earlier one. Absent: they are progressive, as far as the plan knows.
  std::optional<bool> topFieldFirst = {};
  VideoColor color = {};             ///< of the output's pictures
  std::optional<HdrInfo> hdr = {};   ///< the light of the output's pictures, where it is told
  LookSettings look = {};            ///< ends up in a picture of `format`'s size
  std::optional<Area> picture = {};  ///< between the black bars, where they are left out
  PictureTreatment treatment = {};   ///< before the look
  Orientation orientation = {};      ///< how pictures are turned upright before the look's turn
  Options videoOptions = {};
  int passes = 1;                                   ///< over the pictures, 1 or 2
  std::optional<int64_t> sizeLimit = {};            ///< bytes; sets the bit rate of `format` anew
  std::optional<TargetQuality> targetQuality = {};  ///< sets the encoder's own quality anew
  Options muxerOptions = {};
  std::string formatName = {};  ///< the muxer's short name
  /// Written as HLS, in segments of so many microseconds; `formatName` is then that of the
  /// segments.
  std::optional<int64_t> segment = {};
  std::vector<PictureRung> rungs = {};  ///< of HLS: further sizes, beside the one of `format`
  int64_t start = 0;                    ///< microseconds, from 0
  std::optional<int64_t> end = {};      ///< microseconds, not before the start
  bool keepsMetadata = true;            ///< tags and chapters
  ChapterSource chapterSource = ChapterSource::kInput;

  /// The stream of pictures that is kept; null for none.
  PlannedStream* pictures();
  const PlannedStream* pictures() const;

  /// The streams of one kind that are kept, covers apart.
  std::vector<PlannedStream*> kept(StreamInfo::Kind kind);
  std::vector<const PlannedStream*> kept(StreamInfo::Kind kind) const;

  /// Pictures per second, as in `format`. Setting a rate makes pictures keep to it: `keepsTimes`
  /// and `keepsPictures` become false.
  Rational rate() const { return {format.framerate, format.frameTime}; }
  void setRate(Rational rate) {
    format.framerate = rate.num;
    format.frameTime = rate.den;
    keepsTimes = false;
    keepsPictures = false;
  }
};

}  // namespace kestrel
