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

/// Which pictures are deinterlaced: none, those that say they are interlaced, or all.
enum class Deinterlacing { kOff, kAuto, kOn };

/// One container stream of a media: its decoder, its newest frame, its current subtitle, its
/// resampler (audio) and its queue of undecoded packets (stream copy).
///
/// The media routes every packet of the stream to `decodePacket`; all that others read here is the
/// result of that call. The stream belongs to its media and is used by the thread that reads it;
/// `subtitle`, `subtitleString`, `resample` and `rawPackets` may be read from other threads.
/// Decoders are opened and closed under the process's codec lock.
class KESTREL_API LMFFMediaStream {
 public:
  LMFFMediaStream();
  ~LMFFMediaStream();
  LMFFMediaStream(const LMFFMediaStream&) = delete;
  LMFFMediaStream& operator=(const LMFFMediaStream&) = delete;

  // What the stream is.

  /// The media this stream belongs to; it does not own it.
  LMFFMedia* media() const;
  void setMedia(LMFFMedia* media);

  /// The container stream; owned by the demuxer. Setting it makes the codec context.
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
  int64_t bitrate() const;        ///< bits per second, 0 when unknown
  std::string codecName() const;  ///< "" without a codec
  std::string language() const;   ///< for display, in the user's language
  int64_t duration() const;       ///< in `timebase`, 0 when unknown
  float framerate() const;        ///< pictures per second, 1 to 50

  Rational timebase() const;             ///< of packets and frames; never 0 or negative
  Rational framebase() const;            ///< one decoded sample; 1/1 unless audio
  Rational audioOutputTimebase() const;  ///< one resampled sample; 1/1 without a resampler

  LMFFAudioFormat audioFormat() const;        ///< {-1, 0, 0} unless audio
  LMFFVideoFormat videoFormat() const;        ///< {-1, 0, 0} unless video
  LMFFAudioFormat audioOutputFormat() const;  ///< all zero without a resampler
  int channels() const;                       ///< of `audioFormat`

  /// Resamples from now on to the default layout of `channels` channels.
  void setAudioResampleChannels(int channels);

  // Life.

  /// Opens the decoder, once; a stream without a decoder stays closed, and so does a cover picture.
  void open();
  bool isOpen() const;
  void close();

  /// The stream takes part in reading and routing.
  bool enable() const;
  void setEnable(bool enable);

  /// Forgets everything decoded and queued and takes `time` (in `timebase`) as the place to go on
  /// from: audio that ends before it is dropped.
  void seek(int64_t time);

  /// True if the decoder has to see the stream's first packet before it is given any other, as
  /// some 4:4:4 H.264 needs, and has not been.
  bool needsFirstPacket() const;
  void showFirstPacket(const AVPacket* packet);

  /// Gives a bitmap subtitle decoder its colours; before `open`.
  void fillPalette(const SubtitlePalette& palette);

  // Decoding.

  /// What becomes of interlaced pictures; none are touched unless this is set, before the first is
  /// decoded. Each picture stays one picture at its own time.
  void setDeinterlacing(Deinterlacing mode);

  /// Decodes one packet, or queues it where the movie copies streams; true if a frame came
  /// out. A picture beyond the first that one packet gives waits for `takeQueuedFrame`.
  bool decodePacket(const AVPacket* packet);

  /// Makes the next waiting picture the current frame; false when none waits.
  bool takeQueuedFrame();

  /// The input has ended: brings out what the decoder and the resampler still hold, one picture a
  /// call, all sound at once; false when nothing is left.
  bool drain();

  /// The newest frame; owned by the stream, without a picture before the first. After a seek its
  /// `pts` is the time sought.
  AVFrame* frame() const;

  /// A frame was stored since the media last cleared this.
  bool hasFrame() const;
  void setHasFrame(bool hasFrame);

  /// No frame has come out yet only because the decoder keeps some back: it was given packets
  /// beyond the frames that came of them, and no more than its threads and the order of display
  /// account for.
  bool isDecoderFilling() const;

  /// How many packets the decoder refused since `open`.
  int64_t decodeErrors() const;

  // Sound.

  /// The audio clock: the index, in `audioOutputTimebase`, of the next sample to hand out.
  int64_t audio_sync_frame() const;
  void setAudio_sync_frame(int64_t frame);

  /// Resampled frames that wait.
  int32_t outputSamples() const;

  /// Moves `frame` resampled frames to `data`; ask `outputSamples` first. Always returns 0.
  int32_t readSample(void* data, int32_t frame);

  std::shared_ptr<LMFFAudioResample> resample() const;
  void setResample(std::shared_ptr<LMFFAudioResample> resample);

  // Subtitles.

  /// The newest bitmap subtitle in video coordinates (lower-left origin), null when there is none;
  /// of one in several rectangles the last of them.
  std::shared_ptr<const Image> subtitle() const;
  void setSubtitle(std::shared_ptr<const Image> subtitle);

  /// The bitmap subtitle shown at a time in `timebase`, strictly between its start and its end,
  /// with all its rectangles; null when there is none. Where the media has pictures, those that
  /// newer ones have replaced are kept as long as the current picture may need them. Only for the
  /// thread that reads the media.
  std::shared_ptr<const Image> subtitleAt(int64_t time) const;

  /// The current text subtitle, absent before the first.
  std::optional<std::string> subtitleString() const;
  void setSubtitleString(std::optional<std::string> string);

  /// The text subtitles shown at a time in `timebase`, the latest above, absent when there is none.
  /// They are whole, where `subtitleString` keeps only what follows the last comma or override
  /// code: with <b>, <i>, <u> and <s> as the file asks for them, and "&lt;", "&gt;" and "&amp;" for
  /// these characters themselves. Times may only rise until the next `seek`: what has ended is
  /// forgotten. Only for the thread that reads the media.
  std::optional<std::string> subtitleMarkupAt(int64_t time);

  // Stream copy.

  std::vector<std::shared_ptr<LMFFImage>> rawPackets() const;
  void setRawPackets(std::vector<std::shared_ptr<LMFFImage>> packets);
  bool hasPacket() const;

  /// Removes and returns the oldest packet, null when there is none.
  std::shared_ptr<LMFFImage> popFirstRawPacket();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
