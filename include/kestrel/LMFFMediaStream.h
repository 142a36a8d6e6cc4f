#pragma once

#include <kestrel/Export.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMMediaSource.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;
struct AVStream;

namespace kestrel {

class Image;
class LMFFAudioResample;
class LMFFImage;
class LMFFMedia;
struct SubtitleCanvas;
struct TextSubtitle;

/// Which pictures are deinterlaced.
enum class Deinterlacing {
  kOff,     ///< none
  kAuto,    ///< those marked as interlaced
  kOn,      ///< all
  kCombed,  ///< those that show the combs of two moments, however they are marked
};

/// How much noise is taken away.
enum class Denoising { kOff, kLight, kMedium, kStrong };

/// What becomes of a stream's decoded pictures before anybody sees them.
struct PictureTreatment {
  Deinterlacing deinterlacing = Deinterlacing::kOff;
  /// Each field of a picture that is deinterlaced becomes a picture of its own, and each other
  /// picture comes twice: at a constant rate, twice as many a second, for smooth motion.
  bool separatesFields = false;
  /// Which field of a picture that is not marked as interlaced is the earlier one; absent: the
  /// upper.
  std::optional<bool> topFieldFirst = {};
  Denoising denoising = Denoising::kOff;

  bool operator==(const PictureTreatment&) const = default;
};

/// A container stream of a media: its decoder, latest frame, current subtitle, resampler (audio)
/// and queue of undecoded packets (stream copy).
///
/// The media passes every packet of the stream to `decodePacket`; everything else here reflects the
/// results. The stream belongs to its media and is used by the thread that reads it; `subtitle`,
/// `subtitleString`, `resample` and `rawPackets` may be read from other threads. Decoders are
/// opened and closed under the process-wide codec lock.
class KESTREL_API LMFFMediaStream {
 public:
  LMFFMediaStream();
  ~LMFFMediaStream();
  LMFFMediaStream(const LMFFMediaStream&) = delete;
  LMFFMediaStream& operator=(const LMFFMediaStream&) = delete;

  // Facts.

  /// The media of this stream, not owned.
  LMFFMedia* media() const;
  void setMedia(LMFFMedia* media);

  /// The container stream, owned by the demuxer. Setting it creates the codec context.
  AVStream* stream() const;
  void setStream(AVStream* stream);

  /// The decoder's context; null without a stream.
  AVCodecContext* codecContext() const;

  int mediaType() const;  ///< libavutil media type, -1 without a stream
  bool isVideo() const;
  bool isAudio() const;
  bool isSubtitle() const;
  bool isValidAudio() const;  ///< always false

  int get_codec_id() const;       ///< `AV_CODEC_ID_…`
  int64_t bitrate() const;        ///< bits per second; 0 if unknown
  std::string codecName() const;  ///< "" without a codec
  std::string language() const;   ///< display name in the user's language
  int64_t duration() const;       ///< in `timebase`; 0 if unknown
  /// Pictures per second, rounded down except for 23.97 and 29.97; 30 if unknown or not 1 to 50.
  float framerate() const;

  Rational timebase() const;             ///< tick of packets and frames in seconds; always positive
  Rational framebase() const;            ///< one decoded sample; 1/1 unless audio
  Rational audioOutputTimebase() const;  ///< one resampled sample; 1/1 without a resampler

  LMFFAudioFormat audioFormat() const;        ///< {-1, 0, 0} unless audio
  LMFFVideoFormat videoFormat() const;        ///< {-1, 0, 0} unless video
  LMFFAudioFormat audioOutputFormat() const;  ///< all zero without a resampler
  int channels() const;                       ///< of `audioFormat`

  /// Resamples from now on to the default layout for `channels` channels.
  void setAudioResampleChannels(int channels);

  // Opening, closing, seeking.

  /// Opens the decoder unless it is open. Streams without a decoder and cover pictures stay closed.
  void open();
  bool isOpen() const;
  void close();

  /// Whether the media reads the stream and routes its packets. While false, the demuxer discards
  /// them.
  bool enable() const;
  void setEnable(bool enable);

  /// Discards everything decoded and queued. `time` (in `timebase`) becomes the new position: audio
  /// that ends before it is dropped.
  void seek(int64_t time);

  /// True if the decoder must see the stream's first packet before any other, as some 4:4:4 H.264
  /// needs, and has not seen it.
  bool needsFirstPacket() const;
  void showFirstPacket(const AVPacket* packet);

  /// Sets the colours of a bitmap subtitle decoder; call before `open`.
  void fillPalette(const SubtitlePalette& palette);

  // Decoding.

  /// What becomes of decoded pictures; set it before the first one is decoded. The default is
  /// nothing. Every picture stays one picture with its own time, but where fields are separated;
  /// then a frame whose `time_base` is set has its times in that.
  void setTreatment(const PictureTreatment& treatment);

  /// Decodes one packet, or queues it if the stream is copied; true if a frame was decoded.
  /// Further pictures of the same packet wait for `takeQueuedFrame`.
  bool decodePacket(const AVPacket* packet);

  /// Makes the next waiting picture the current frame; false if none is waiting.
  bool takeQueuedFrame();

  /// Call at the end of the input: returns what decoder and resampler still hold, one picture per
  /// call, all sound at once; false if nothing is left.
  bool drain();

  /// The latest frame, owned by the stream; without data before the first. After a seek its `pts`
  /// is the requested time.
  AVFrame* frame() const;

  /// True if a frame was stored since the media last cleared this flag.
  bool hasFrame() const;
  void setHasFrame(bool hasFrame);

  /// True if no frame has been decoded only because the decoder is still filling: it has received
  /// more packets than it returned frames, but no more than its threads and frame reordering
  /// explain.
  bool isDecoderFilling() const;

  /// The number of packets refused by the decoder since `open`.
  int64_t decodeErrors() const;

  /// The number of pictures since `open` of which the decoder has made parts up, because they were
  /// damaged.
  int64_t mendedPictures() const;

  // Sound.

  /// The audio clock: index of the next sample to be read, in `audioOutputTimebase`.
  int64_t audio_sync_frame() const;
  void setAudio_sync_frame(int64_t frame);

  /// The number of resampled frames that can be read.
  int32_t outputSamples() const;

  /// Moves `frame` resampled frames to `data`; check `outputSamples` first. Always returns 0.
  int32_t readSample(void* data, int32_t frame);

  std::shared_ptr<LMFFAudioResample> resample() const;
  void setResample(std::shared_ptr<LMFFAudioResample> resample);

  // Subtitles.

  /// The latest bitmap subtitle in video coordinates (origin at the lower left); null if there is
  /// none. If it has several rectangles, only the last one.
  std::shared_ptr<const Image> subtitle() const;
  void setSubtitle(std::shared_ptr<const Image> subtitle);

  /// The bitmap subtitle shown at a time in `timebase`, strictly between its start and end, with
  /// all of its rectangles; null if there is none. If the media has pictures, replaced subtitles
  /// are kept as long as the current picture may need them. Only for the thread that reads the
  /// media.
  std::shared_ptr<const Image> subtitleAt(int64_t time) const;

  /// The current text subtitle; nullopt before the first.
  std::optional<std::string> subtitleString() const;
  void setSubtitleString(std::optional<std::string> string);

  /// The text subtitles shown at a time in `timebase`, the latest first, one per line; nullopt if
  /// there are none. Unlike `subtitleString`, which holds only what follows the last comma or
  /// override code, they are complete: with <b>, <i>, <u> and <s> for their formatting, and "&lt;",
  /// "&gt;" and "&amp;" for these characters. Times must not decrease until the next `seek`:
  /// subtitles that have ended are dropped. Only for the thread that reads the media.
  std::optional<std::string> subtitleMarkupAt(int64_t time);

  /// What is shown at a time, microseconds of the container: each text from its start to before its
  /// end. Those with styles (of a script, or by marks of places, colours, sizes and fonts) are
  /// drawn on `canvas`, with the fonts that the container brings along, and plain ones that show
  /// beside them, too. Otherwise like `subtitleMarkupAt`. A picture that does not change stays the
  /// same object.
  TextSubtitle textSubtitleAt(int64_t time, const SubtitleCanvas& canvas);

  // Stream copy.

  /// True if packets are queued undecoded: for this stream by `setCopied`, for all streams of sound
  /// or pictures by the movie's copy flags.
  bool isCopied() const;
  void setCopied(bool copied);

  /// Of copied pictures only the newest packet waits in the queue; with this, those since the last
  /// key picture but one wait: enough to decode the newest with. Off by default.
  void setKeepsGroups(bool keeps);

  /// The undecoded packets that are waiting: of sound all, of pictures only the latest.
  std::vector<std::shared_ptr<LMFFImage>> rawPackets() const;
  void setRawPackets(std::vector<std::shared_ptr<LMFFImage>> packets);
  bool hasPacket() const;

  /// Removes and returns the oldest packet; null if there is none.
  std::shared_ptr<LMFFImage> popFirstRawPacket();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
