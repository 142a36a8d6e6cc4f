#pragma once

#include <kestrel/Error.h>
#include <kestrel/Export.h>
#include <kestrel/Fragment.h>
#include <kestrel/LMFFFormat.h>
#include <kestrel/LMFFVideoColor.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
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

/// Encodes and muxes a movie file: one video stream and any number of audio streams, each either
/// encoded from pictures or sound, or copied packet by packet; subtitles, covers and attachments,
/// copied.
///
/// A stream is known by its `AVStream`: what opens or copies one returns it or makes it the current
/// `videoStream` or `audioStream`, and it can be named in `writeSample`, `finishAudio`,
/// `writeRawPacket` and `writeFrame`. Each has its own encoder, resampler, queue and clock.
///
/// Usage:
/// 1. Set `path`, `movieFormat`, `audioInputFormat` and other properties.
/// 2. For each stream call `openVideo` / `openAudio` (encode) or `copyVideoMedia` /
///    `copyAudioMedia` (copy). The first of these creates the container.
/// 3. Call `startOutput`, which opens the file and writes its header.
/// 4. Write, in any order; the muxer interleaves. Sound and pictures are stamped by counting: each
///    follows the previous one.
/// 5. Call `finishAudio` to keep the last samples, then `stopOutput`.
///
/// An object writes one file; after `stopOutput` it can only be destroyed. If destroyed before, the
/// file is closed as it is, without the trailer that most players need.
///
/// Nothing throws: on failure streams stay null, operations return false or do nothing, and
/// `lastError` keeps the first error. Settings are not validated in advance.
///
/// Use from one thread at a time, except for `path`, `audioInputFormat` and `movieFormat`, which
/// may be read while another thread sets them. Encoders are opened and closed under the
/// process-wide codec lock. To be able to explain errors, the first object replaces FFmpeg's log
/// callback (`av_log_set_callback`) by one that forwards to FFmpeg's default; a host may set its
/// own afterwards.
class KESTREL_API LMFFMovieFileOutput {
 public:
  using Entries = std::map<std::string, std::string>;

  /// Configures the context of an encoder before it is opened for a stream.
  using ConfigurationBlock = std::function<void(AVStream* stream, AVCodecContext* encoder)>;

  struct Chapter {
    int64_t start_us = 0;  ///< microseconds
    int64_t end_us = 0;    ///< microseconds
    Entries tags;          ///< such as "title"
  };

  /// Has default formats, its own resampler and converter, and no file.
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

  /// The file to write, UTF-8; an existing one is overwritten. The extension selects the container.
  std::string path() const;
  void setPath(const std::string& path);

  /// The format of the host's sound; by default the engine's own PCM.
  LMFFAudioFormat audioInputFormat() const;
  void setAudioInputFormat(const LMFFAudioFormat& format);

  /// The encoding parameters; read by `openVideo` and `openAudio`.
  LMFFMovieFileOutputFormat movieFormat() const;
  void setMovieFormat(const LMFFMovieFileOutputFormat& format);

  // Optional properties, all empty or neutral by default.

  /// The encoder that `openVideo` or `openAudio` uses, by FFmpeg's name ("libx264"), instead of the
  /// library's first for the codec of `movieFormat`. If there is no such encoder of that type, they
  /// fail. "": by codec.
  std::string videoEncoderName() const;
  void setVideoEncoderName(const std::string& name);
  std::string audioEncoderName() const;
  void setAudioEncoderName(const std::string& name);

  /// The format (`AV_PIX_FMT_…`) in which `openVideo` encodes pictures; the encoder must accept it.
  /// -1: the first in its list. `AV_PIX_FMT_PAL8`: each scene gets a palette of 255 colours of its
  /// own, and what is less than half opaque becomes transparent.
  int videoPixelFormat() const;
  void setVideoPixelFormat(int format);

  /// The tick, in seconds, in which `writeImage` with a time stamps pictures; read by `openVideo`.
  /// Unless it is above 0, that is `movieFrameDuration`.
  Rational videoTick() const;
  void setVideoTick(Rational tick);

  /// For interlaced pictures, whether the upper field is the earlier one: they are coded as such
  /// where the encoder can, and stream and pictures are marked. Absent, the default: pictures are
  /// coded as progressive ones. Read by `openVideo`.
  std::optional<bool> topFieldFirst() const;
  void setTopFieldFirst(std::optional<bool> first);

  /// Of two passes over the pictures: what the encoder told in the first, to be had after
  /// `stopOutput`; set before `openVideo` of the second. "" where the encoder keeps it in a file.
  /// Which pass it is `videoOptions` say ("flags", "+pass1" or "+pass2").
  std::string videoStatistics() const;
  void setVideoStatistics(std::string statistics);

  /// The significant bits of a sample for lossless audio encoders: `openAudio` uses the smallest
  /// integer format of the encoder that holds them. 0: the first format in its list.
  int32_t audioBits() const;
  void setAudioBits(int32_t bits);

  /// Has `openAudio` use a floating-point format, where the encoder has one, in place of integers:
  /// it knows no full scale at which sound is cut off. False by default.
  bool keepsAudioFloats() const;
  void setKeepsAudioFloats(bool keeps);

  /// The earliest decoding time of copied sound, microseconds; what is earlier is moved there. 0 by
  /// default. Sound whose first packets only hold its encoder's delay begins below 0: containers
  /// with edit lists hide that, others move all streams. Set before `startOutput`.
  int64_t copiedSoundBegin() const;
  void setCopiedSoundBegin(int64_t time);

  /// Whether a copied picture right behind the first keeps its time. False by default: then it is
  /// decoded two ticks after the first at the earliest, and those behind it follow, which is a
  /// picture's time where a tick is one, as in AVI.
  bool keepsCopiedTimes() const;
  void setKeepsCopiedTimes(bool keeps);

  /// The short name of the container ("mp4", "matroska"; "null" writes no file) if the path's
  /// extension does not tell; "": use the extension.
  std::string formatName() const;
  void setFormatName(const std::string& name);

  /// Options of the encoders and the muxer, with FFmpeg's names and syntax, applied last. An
  /// unknown name or invalid value makes `openVideo`, `openAudio` or `startOutput` fail: "unknown
  /// option 'x'".
  Entries videoOptions() const;
  void setVideoOptions(const Entries& options);
  Entries audioOptions() const;
  void setAudioOptions(const Entries& options);
  Entries muxerOptions() const;
  void setMuxerOptions(const Entries& options);

  /// The colours in which pictures are encoded and with which stream and container are tagged. Set
  /// before `openVideo`. If nothing is set, `openVideo` uses the converter's output colours,
  /// otherwise matrix and range of `lm_resolved_video_color` for the output's size and pixel
  /// format, without primaries and transfer: pictures of other colours are converted to what the
  /// file is tagged with.
  LMFFVideoColor outputColor() const;
  void setOutputColor(const LMFFVideoColor& color);

  /// Tags of the file ("title") and of the current video and audio streams ("language"), and
  /// chapters, all as of `startOutput`; tags of any stream with `setStreamTags`. A container drops
  /// what it cannot store. If there are no chapters at that time, MPEG-4 and Matroska store those
  /// set before `stopOutput`.
  Entries metadata() const;
  void setMetadata(const Entries& metadata);
  Entries videoMetadata() const;
  void setVideoMetadata(const Entries& metadata);
  Entries audioMetadata() const;
  void setAudioMetadata(const Entries& metadata);
  std::vector<Chapter> chapters() const;
  void setChapters(std::vector<Chapter> chapters);

  /// Polled while the file is opened, written or completed; returning true makes that fail soon,
  /// including a long rewrite of the file in `stopOutput`. Set before the container is created.
  /// Empty: never interrupt.
  std::function<bool()> interrupt() const;
  void setInterrupt(std::function<bool()> interrupt);

  /// Hands the file out in fragments, on the thread that writes, in place of writing it to `path`:
  /// for MPEG-4 with one stream. A fragment begins with the picture or packet of sound that lies
  /// nearest to each multiple of `length` (microseconds, above 0): a picture that is encoded
  /// becomes a key picture there, of copied ones the next key picture is taken. Outputs with one
  /// `length` whose pictures have the same times so get fragments with the same times. (Encoders
  /// that take no orders put key pictures where their options, such as "g", say.) Set before
  /// `startOutput`.
  void setFragments(int64_t length, FragmentTaker take);

  /// Is handed a packet, on the thread that writes.
  using MadePacketTaker = std::function<void(const AVPacket& packet, const AVStream& stream)>;

  /// Hands out what encoders make, for the container that is named, in place of writing it: no file
  /// is made, and times count in the encoders' ticks. Set before `startOutput`.
  void setPacketTaker(MadePacketTaker take);

  // State.

  /// True once the container has been created, also after `stopOutput`.
  bool isMovieOpen() const;
  bool isAudioOpen() const;  ///< `audioStream` is not null
  bool isVideoOpen() const;  ///< `videoStream` is not null

  /// The output context, owned by this object; null until the container is created.
  AVFormatContext* formatContext() const;

  /// The streams being written, owned by the container; null if there are none and after
  /// `stopOutput`.
  AVStream* audioStream() const;
  AVStream* videoStream() const;

  /// The encoder of a stream; null for a copied stream and after `stopOutput`.
  AVCodecContext* codecContext(const AVStream* stream) const;

  bool copy_video_stream() const;  ///< the video stream is copied, not encoded
  bool copy_audio_stream() const;  ///< the audio stream is copied, not encoded

  /// Number of samples passed to the audio encoder; for a copied stream the last time stamp
  /// written, in the stream's time base.
  int64_t audio_pts() const;

  /// Start time of the next picture in the video encoder's time base; for a copied stream the last
  /// decoding time stamp written, in the stream's time base.
  int64_t video_pts() const;

  /// How far any stream of this output has been written: as `audio_pts` and `video_pts` count, of
  /// that stream; 0 for others and after `stopOutput`.
  int64_t streamTime(const AVStream* stream) const;

  int64_t audio_output_time() const;  ///< `audio_pts` in microseconds; 0 without a stream
  int64_t video_output_time() const;  ///< `video_pts` in microseconds; 0 without a stream

  /// Sample format, layout and rate of the audio stream; all zero without one.
  LMFFAudioFormat outputAudioFormat() const;

  /// Pixel format and size of the video stream; all zero without one.
  LMFFVideoFormat outputVideoFormat() const;

  /// Duration of a picture in seconds: `frameTime` / `framerate` of `movieFormat`.
  Rational movieFrameDuration() const;

  /// The first error of any kind since this object was created: of the container, an encoder, an
  /// option, or of reading or writing the file.
  Error lastError() const;

  // Setting up.

  /// Creates the container for `formatName` or the extension of `path`, unless it exists. "m4r"
  /// counts as "m4a", in any letter case.
  void createMovieOutput();

  /// Adds a stream with the encoder for `codec` (`AV_CODEC_ID_…`); `block` configures the encoder
  /// before it is opened. Null if there is no container or no such encoder, if the output has
  /// started, or if the encoder cannot be opened; its stream then stays in the container.
  AVStream* openOutputStream(int codec, const ConfigurationBlock& block);

  /// Adds an encoded stream with the parameters of `movieFormat` and makes it the one to be
  /// written. A second call adds another stream and abandons the first; for sound, that can still
  /// be written by naming it in `writeSample`.
  ///
  /// If the record names no codec, the container's default is used. The pixel and sample formats
  /// are the first in the encoder's list. There is a key frame at least every 12 pictures (on a DVD
  /// about every half second, at a constant bit rate).
  void openAudio();
  void openVideo();

  /// Adds a stream with the parameters of `stream` to copy its packets to; an audio or video stream
  /// becomes the one to be written. A cover or an attachment is complete with that. Returns the new
  /// stream, owned by the container; null for null, and if it cannot be added.
  ///
  /// Packets are rewritten if the container stores the same bits in another form (H.264 and HEVC
  /// with start codes, MPEG-4 without packed B-frames). Packets that are too damaged for that are
  /// dropped and counted by `refusedPackets`.
  AVStream* copyOutputStream(const AVStream* stream);
  void copyVideoMedia(const std::shared_ptr<LMFFMedia>& media);  ///< copies its `videoStream`
  void copyAudioMedia(const std::shared_ptr<LMFFMedia>& media);  ///< copies its `audioStream`

  /// Adds a stream of packets that an encoder has made for a container of this kind, with its
  /// parameters, rate and ticks; they go to `writePacket`. Returns the new stream, owned by the
  /// container; null if it cannot be added.
  AVStream* addMadeStream(const AVStream& made);

  /// Adds a stream of text subtitles with the encoder for `codec`, for the texts of `stream`, which
  /// are in another form: their packets go to `writeRawPacket`. Returns the new stream, owned by
  /// the container; null for null and if there is no decoder or encoder.
  AVStream* convertSubtitleStream(const AVStream* stream, int codec);

  /// Adds tags ("language", "title") to a stream of this output, and sets how players treat it: a
  /// combination of `AV_DISPOSITION_…` (default, forced). Before `startOutput`; null does nothing.
  void setStreamTags(AVStream* stream, const Entries& tags);
  void setStreamDisposition(AVStream* stream, int disposition);

  /// Sets up resampler and converter, opens the file and writes the header; true if packets can be
  /// written. False for containers that do not write a single file (such as image sequences).
  bool startOutput();

  // Sound. Without an encoded audio stream these do nothing. For lossy codecs, samples are clamped
  // to ±32 (30 dB above full scale), and NaN becomes silence.

  /// Writes interleaved PCM in `audioInputFormat`; an incomplete sample at the end is dropped.
  void writeAudioData(std::span<const uint8_t> data);

  /// Writes `frame` samples (per channel) in `audioInputFormat`. Samples that do not fill a frame
  /// of the encoder (1024 samples if it takes any number) wait for the next call.
  void writeSample(const void* data, int32_t frame);

  /// The same for any audio stream added by `openAudio`, in the `audioInputFormat` of that time.
  void writeSample(const void* data, int32_t frame, AVStream* stream);

  /// Moves `nb_samples` converted samples to `frame`, which must have the encoder's format and room
  /// for them; if fewer are queued, moves none and returns false.
  bool readAudioFrameFromBuffer(AVFrame* frame);

  /// Signals the end of the sound: encodes what is queued. The last frame is shortened if the
  /// encoder allows that, otherwise padded with silence. Without this call, samples that do not
  /// fill a frame are lost.
  void finishAudio();
  void finishAudio(AVStream* stream);  ///< any audio stream added by `openAudio`

  // Pictures. Without an encoded video stream these do nothing.

  /// Converts and encodes a decoded frame for `movieFrameDuration`. The caller keeps the frame.
  void writeVideoFrame(const AVFrame* frame);

  /// Writes a frame item's frame or a packet item's packet to the video stream; nothing if the item
  /// is null or empty.
  void writeImage(const std::shared_ptr<LMFFImage>& image);

  /// Writes a frame item's frame, shown from `time` for `duration`, both in ticks of the video
  /// encoder's time base. Times rise; other pictures follow the last one's end.
  void writeImage(const std::shared_ptr<LMFFImage>& image, int64_t time, int64_t duration);

  /// Converts an image, stretched over the whole picture, like the converter's `convertImage`, and
  /// encodes it for `movieFrameDuration`. Null does nothing.
  void writeImage(const std::shared_ptr<const Image>& image);
  void writeImage(const std::shared_ptr<const BitmapImage>& image);
  void writeImage(std::nullptr_t /*image*/) {}

  /// Converts a bitmap like the converter's `convertContext` and encodes it for
  /// `movieFrameDuration` or for `duration` units of 1 / `framerate` seconds.
  void writeCGContext(const BitmapContext* context);
  void writeCGContext(const BitmapContext* context, int32_t duration);

  /// A bitmap of the output's size to draw into; null until the size is known.
  std::unique_ptr<BitmapContext> createCGContext() const;

  /// Draws an image over a whole bitmap, like the converter's `drawImage`.
  void drawImage(const std::shared_ptr<const Image>& image, BitmapContext* context) const;
  void drawImage(const std::shared_ptr<const BitmapImage>& image, BitmapContext* context) const;

  /// Encodes the converter's current picture for `duration` seconds. May be called repeatedly for
  /// the same picture; the pixels are not copied.
  void writeVideoFrameDuration(Rational duration);

  // Copied streams.

  /// Same as `writeRawPacket` for the audio or video stream.
  void writeAudioPacket(const std::shared_ptr<LMFFImage>& packet);
  void writeVideoPacket(const std::shared_ptr<LMFFImage>& packet);

  /// Stamps an item's packet for `stream` and writes it; the item's own packet gets the new time
  /// stamps. Does nothing without a packet or stream.
  ///
  /// The packet's times are shifted by the item's `get_pkt_offset_time` (microseconds). Decoding
  /// times of video are raised to increase by at least 1; audio packets that precede the last one
  /// or have no decoding time are dropped. A copied video starts at time 0. Subtitles keep their
  /// times; what of one lies before time 0 is cut off. Packets without a
  /// presentation time get one, derived from decoding order, for containers that need it.
  void writeRawPacket(const std::shared_ptr<LMFFImage>& packet, AVStream* stream);

  /// The number of packets of copied streams and converted subtitles that are missing in the file
  /// because they were too damaged to be rewritten. If that affected all packets of a stream,
  /// `stopOutput` sets `lastError`.
  int64_t refusedPackets() const;

  /// The number of pictures of copied streams that were re-encoded. Pictures that the input decodes
  /// but does not show, because of an edit list, stay hidden. They are left out if no other picture
  /// needs them, and placed before time 0 if they come first and the container has edit lists.
  /// Otherwise, the pictures that need them are re-encoded up to the next key frame.
  int64_t picturesEncodedToHide() const;

  // Low-level writing.

  /// Encodes one frame, stamped in the encoder's time base, and writes all packets that are ready.
  /// The caller keeps the frame; for sound, its `pts` is increased by the encoder's `delay`. A null
  /// frame ends the stream and writes the next packet held by the encoder: call until it returns
  /// false, like `stopOutput`. A frame without data only writes a packet that is ready. Frames
  /// whose size, format, rate or channel count differ from the encoder's are refused. Returns true
  /// if a packet was written.
  bool writeFrame(AVFrame* frame, AVStream* stream);

  /// Passes a packet, stamped in the stream's time base, to the muxer as a packet of `stream`. The
  /// caller keeps the packet.
  void writePacket(AVPacket* packet, AVStream* stream);

  /// Drains the encoders, completes the file and closes it. Check `lastError` for whether the file
  /// is complete. Safe to call twice, or if nothing was started.
  void stopOutput();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
