#pragma once

#include <kestrel/Error.h>
#include <kestrel/Export.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFVideoColor.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

struct AVCodecContext;
struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVStream;

namespace kestrel {

class BitmapContext;
class BitmapImage;
class Image;
class LMFFAudioResample;
class LMFFImage;
class LMFFImageColorspaceConverter;
class LMFFMedia;

/// Encodes and muxes one movie file: at most one video and one audio stream, each either encoded
/// from pictures and sound, or copied packet by packet.
///
/// The order of use:
/// 1. Set `path`, `movieFormat`, `audioInputFormat`, and whatever else is wanted.
/// 2. For each stream `openVideo` / `openAudio` (encode) or `copyVideoMedia` / `copyAudioMedia`.
///    The first of these makes the container.
/// 3. `startOutput`, which opens the file and writes its header.
/// 4. Write, in any mix; the muxer interleaves. Sound and picture are stamped by counting: each
///    follows on the one before.
/// 5. `finishAudio`, where the last sound matters, and `stopOutput`.
///
/// An object makes one file; after `stopOutput` it may only be released. Released earlier, it
/// closes the file as it stands, without the trailer that most players need.
///
/// No failure throws: streams stay null, operations return false or do nothing, and `lastError`
/// keeps the first thing that went wrong. Settings are not validated beforehand.
///
/// It is used by one thread at a time, except for `path`, `audioInputFormat` and `movieFormat`,
/// which may be read while another thread sets them. Encoders are opened and closed under the
/// process's codec lock. To tell why a library refuses something, the first object sets the
/// libraries' log callback (`av_log_set_callback`) to one that passes everything on to their
/// default callback; a host may set its own afterwards.
class KESTREL_API LMFFMovieFileOutput {
 public:
  using Entries = std::map<std::string, std::string>;

  /// Sets up the context of an encoder that is about to be opened for a stream.
  using ConfigurationBlock = std::function<void(AVStream* stream, AVCodecContext* encoder)>;

  struct Chapter {
    int64_t start_us = 0;  ///< microseconds
    int64_t end_us = 0;    ///< microseconds
    Entries tags;          ///< such as "title"
  };

  /// Default formats, a resampler and a converter of its own, no file.
  LMFFMovieFileOutput();
  ~LMFFMovieFileOutput();
  LMFFMovieFileOutput(const LMFFMovieFileOutput&) = delete;
  LMFFMovieFileOutput& operator=(const LMFFMovieFileOutput&) = delete;

  // Properties.

  /// Converts the host's sound to the encoder's format and queues it.
  std::shared_ptr<LMFFAudioResample> resample() const;
  void setResample(std::shared_ptr<LMFFAudioResample> resample);

  /// Converts pictures to the encoder's format.
  std::shared_ptr<LMFFImageColorspaceConverter> videoConverter() const;
  void setVideoConverter(std::shared_ptr<LMFFImageColorspaceConverter> converter);

  /// The file to write, UTF-8; what lies there is overwritten. Its extension chooses the container.
  std::string path() const;
  void setPath(const std::string& path);

  /// The format of the sound that the host delivers; the engine's own PCM by default.
  LMFFAudioFormat audioInputFormat() const;
  void setAudioInputFormat(const LMFFAudioFormat& format);

  /// The encoding parameters; `openVideo` and `openAudio` take what they need when called.
  LMFFMovieFileOutputFormat movieFormat() const;
  void setMovieFormat(const LMFFMovieFileOutputFormat& format);

  // More properties, all empty or neutral at first. Without them everything is as described below.

  /// How many bits of a sample count, for audio encoders that keep them all: `openAudio` takes the
  /// smallest of the encoder's whole-number formats that holds them. 0: the format that it names
  /// first.
  int32_t audioBits() const;
  void setAudioBits(int32_t bits);

  /// The container's short name ("mp4", "matroska"), for a path whose extension does not tell. ""
  /// leaves the choice to the path.
  std::string formatName() const;
  void setFormatName(const std::string& name);

  /// Options of the encoders and the muxer by the libraries' own names and syntax, applied after
  /// everything else. One that the library does not know, or whose value it refuses, makes
  /// `openVideo`, `openAudio` or `startOutput` fail: "unknown option 'x'".
  Entries videoOptions() const;
  void setVideoOptions(const Entries& options);
  Entries audioOptions() const;
  void setAudioOptions(const Entries& options);
  Entries muxerOptions() const;
  void setMuxerOptions(const Entries& options);

  /// The colours that pictures are encoded in and tagged with, in the stream and in the container.
  /// To be set before `openVideo`. Where nothing is set, that takes the colours that the converter
  /// was set to, else matrix and range of `lm_resolved_video_color` for the output's size and pixel
  /// format, with primaries and transfer left open: whatever matrix and range a source's pictures
  /// have, they are converted to what the file says.
  LMFFVideoColor outputColor() const;
  void setOutputColor(const LMFFVideoColor& color);

  /// Tags of the file ("title"), of the video and of the audio stream ("language"), and chapters,
  /// all as of `startOutput`. Containers keep the ones that they have a place for. Where there were
  /// no chapters then, MPEG-4 and Matroska take those that there are at `stopOutput`.
  Entries metadata() const;
  void setMetadata(const Entries& metadata);
  Entries videoMetadata() const;
  void setVideoMetadata(const Entries& metadata);
  Entries audioMetadata() const;
  void setAudioMetadata(const Entries& metadata);
  std::vector<Chapter> chapters() const;
  void setChapters(std::vector<Chapter> chapters);

  /// Asked now and then while the file is opened, written or completed; true makes that fail soon,
  /// which also ends a long rewriting of the file in `stopOutput`. Empty: never. To be set before
  /// the container is made.
  std::function<bool()> interrupt() const;
  void setInterrupt(std::function<bool()> interrupt);

  // State.

  /// There is a container; also after `stopOutput`.
  bool isMovieOpen() const;
  bool isAudioOpen() const;  ///< `audioStream` is not null
  bool isVideoOpen() const;  ///< `videoStream` is not null

  /// The output context, owned by this object; null until a container is made.
  AVFormatContext* formatContext() const;

  /// The streams that are written, owned by the container; null while there is none and after
  /// `stopOutput`.
  AVStream* audioStream() const;
  AVStream* videoStream() const;

  /// The encoder of a stream of this container; null for a copied stream and after `stopOutput`.
  AVCodecContext* codecContext(const AVStream* stream) const;

  bool copy_video_stream() const;  ///< the video stream is copied
  bool copy_audio_stream() const;  ///< the audio stream is copied

  /// Samples handed to the audio encoder; for a copied stream the last time stamp written, in the
  /// stream's time base.
  int64_t audio_pts() const;

  /// When the next picture starts, in the video encoder's time base; for a copied stream the last
  /// decoding time stamp written, in the stream's time base.
  int64_t video_pts() const;

  int64_t audio_output_time() const;  ///< `audio_pts` in microseconds, 0 without a stream
  int64_t video_output_time() const;  ///< `video_pts` in microseconds, 0 without a stream

  /// The audio stream's sample format, layout and rate; all zero without one.
  LMFFAudioFormat outputAudioFormat() const;

  /// The video stream's pixel format and size; all zero without one.
  LMFFVideoFormat outputVideoFormat() const;

  /// How long one picture lasts, in seconds: `frameTime` / `framerate` of `movieFormat`.
  Rational movieFrameDuration() const;

  /// The first failure of any kind since this object was made: of the container, an encoder, an
  /// option, or of reading or writing the file. Later ones do not replace it.
  Error lastError() const;

  // Setting up.

  /// Makes the container, once: as `formatName` says, else by the extension of `path`. "m4r", in
  /// any letter case, is what "m4a" would be.
  void createMovieOutput();

  /// Adds a stream encoded by the encoder for `codec` (`AV_CODEC_ID_…`), which `block` configures
  /// and which is then opened. Null when there is no container or no encoder, when the output has
  /// started, or when the encoder refuses; a refused stream stays in the container.
  AVStream* openOutputStream(int codec, const ConfigurationBlock& block);

  /// Adds an encoded stream with the parameters of `movieFormat` and makes it the one to write.
  /// Called again, it adds another and forgets the one before; of sound, `writeSample` goes on
  /// feeding that where it is named.
  ///
  /// The codec is the container's default where the record names none. Pictures have the first
  /// pixel format, sound the first sample format of the encoder's list. Key pictures come at least
  /// every 12 pictures (every half second on a DVD, whose bit rate is constant).
  void openAudio();
  void openVideo();

  /// Adds a stream that takes over the parameters of `stream`, for its packets to be copied; an
  /// audio or video stream becomes the one to write. Null does nothing.
  ///
  /// Packets are rewritten where the container wants the same bits in another form (H.264 and HEVC
  /// with start codes, MPEG-4 without packed B-frames). Only one whose damage leaves no way to
  /// rewrite it is lost by that, and counted by `refusedPackets`.
  void copyOutputStream(const AVStream* stream);
  void copyVideoMedia(const std::shared_ptr<LMFFMedia>& media);  ///< its `videoStream`
  void copyAudioMedia(const std::shared_ptr<LMFFMedia>& media);  ///< its `audioStream`

  /// Prepares resampler and converter, opens the file and writes the header; true when the file may
  /// be written to. False for containers that do not write to one file (such as picture sequences).
  bool startOutput();

  // Sound. Without an encoded audio stream these do nothing.

  /// Writes interleaved PCM in `audioInputFormat`; bytes that do not fill a sample are dropped.
  void writeAudioData(std::span<const uint8_t> data);

  /// Writes `frame` samples (per channel) in `audioInputFormat`. What does not fill a frame of the
  /// encoder (1024 samples where it takes any number) waits for the next call.
  void writeSample(const void* data, int32_t frame);

  /// The same for any sound stream that `openAudio` has added, in what `audioInputFormat` was when
  /// it did.
  void writeSample(const void* data, int32_t frame, AVStream* stream);

  /// Moves `nb_samples` converted samples into `frame`, which has the encoder's format and room for
  /// them; false, and nothing moved, when fewer wait.
  bool readAudioFrameFromBuffer(AVFrame* frame);

  /// No more sound comes: encodes what still waits, so that nothing is cut off at the end. The last
  /// frame is as short as the encoder allows, otherwise filled up with silence. Without this call
  /// the samples that do not fill a frame are lost.
  void finishAudio();
  void finishAudio(AVStream* stream);  ///< of any sound stream that `openAudio` has added

  // Pictures. Without an encoded video stream these do nothing.

  /// Converts and encodes a decoded frame that lasts for `movieFrameDuration`. The caller keeps it.
  void writeVideoFrame(const AVFrame* frame);

  /// Writes a frame item's frame or a packet item's packet to the video stream; nothing for null
  /// and for an item without either.
  void writeImage(const std::shared_ptr<LMFFImage>& image);

  /// Converts an image as the converter's `convertImage` does, stretched over the whole picture,
  /// and encodes it for `movieFrameDuration`; nothing for null.
  void writeImage(const std::shared_ptr<const Image>& image);
  void writeImage(const std::shared_ptr<const BitmapImage>& image);
  void writeImage(std::nullptr_t /*image*/) {}

  /// Converts and encodes a bitmap, as the converter's `convertContext` takes it, that lasts for
  /// `movieFrameDuration`, or for `duration` units of 1 / `framerate` seconds.
  void writeCGContext(const BitmapContext* context);
  void writeCGContext(const BitmapContext* context, int32_t duration);

  /// A bitmap of the output's size to draw into; null before the size is known.
  std::unique_ptr<BitmapContext> createCGContext() const;

  /// Draws an image over all of a bitmap, as the converter's `drawImage` does.
  void drawImage(const std::shared_ptr<const Image>& image, BitmapContext* context) const;
  void drawImage(const std::shared_ptr<const BitmapImage>& image, BitmapContext* context) const;

  /// Encodes the converter's current picture for `duration` seconds; again and again the same one
  /// where it is called repeatedly. The pixels are not copied.
  void writeVideoFrameDuration(Rational duration);

  // Copied streams.

  /// `writeRawPacket` to the audio or the video stream.
  void writeAudioPacket(const std::shared_ptr<LMFFImage>& packet);
  void writeVideoPacket(const std::shared_ptr<LMFFImage>& packet);

  /// Stamps an item's packet for `stream` and writes it; the item's own packet carries the new time
  /// stamps afterwards. Nothing without a packet or a stream.
  ///
  /// Times are the packet's own, moved by the item's `get_pkt_offset_time` (microseconds). Decoding
  /// times of video are made to rise by at least 1; an audio packet from before the last one is
  /// dropped, as is one without a decoding time. A copied video starts at time 0. Packets without a
  /// presentation time get one, derived from the order of decoding, on their way into containers
  /// that need it.
  void writeRawPacket(const std::shared_ptr<LMFFImage>& packet, AVStream* stream);

  /// How many packets of copied streams were too damaged to be rewritten for the container, and are
  /// not in the file. Where that befell all of a stream, `lastError` says so at `stopOutput`.
  int64_t refusedPackets() const;

  /// How many pictures of copied streams were encoded anew. Pictures that the input decodes and
  /// does not show, as an edit list says, stay hidden: they are left out where no other needs them,
  /// and lie before time 0 where they come first and the container has edit lists. The pictures
  /// that need other ones are encoded anew without them, up to the next key picture.
  int64_t picturesEncodedToHide() const;

  // The way into the file.

  /// Encodes one frame, which stays the caller's, stamped in the encoder's time base (sound is
  /// moved by the encoder's `delay`, in place), and writes every packet that is ready. Null ends
  /// the pictures or the sound and writes the next packet that the encoder still holds: call until
  /// it returns false, as `stopOutput` does. A frame without data writes a packet that is ready and
  /// gives the encoder nothing. One of another size, format, rate or number of channels than the
  /// encoder's is refused. Returns true if a packet was written.
  bool writeFrame(AVFrame* frame, AVStream* stream);

  /// Hands a packet, stamped in the stream's time base, to the muxer as a packet of `stream`. The
  /// caller keeps it.
  void writePacket(AVPacket* packet, AVStream* stream);

  /// Drains the encoders, completes the file and closes it. `lastError` says whether all of it is
  /// in the file. Also safe when nothing was started, or to be called twice.
  void stopOutput();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
