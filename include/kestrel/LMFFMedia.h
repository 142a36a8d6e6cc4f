#pragma once

#include <kestrel/Export.h>
#include <kestrel/IndexSet.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct AVFormatContext;
struct AVFrame;
struct AVPacket;
struct AVSubtitle;

namespace kestrel {

class Image;
class LMFFImage;
class LMFFMediaStream;
class LMFFMovie;
class LMMediaSource;
struct SubtitleCanvas;
struct TextSubtitle;

/// An open input with a stream object for each container stream.
///
/// It reads packets in file order and routes each to its stream, seeks all streams together, and
/// finds the frame, subtitle or sound for a time by reading forward as far as necessary. Times are
/// microseconds from the media's own start; movie time is that plus `movie_position`. Use a media
/// from one thread at a time; `source`, `streams` and the selections may be read from others.
/// Errors show as false, 0 or null; the source's `lastError` tells why reading ended.
class KESTREL_API LMFFMedia {
 public:
  using FrameBlock = std::function<void(AVFrame*)>;

  LMFFMedia();
  virtual ~LMFFMedia();
  LMFFMedia(const LMFFMedia&) = delete;
  LMFFMedia& operator=(const LMFFMedia&) = delete;

  /// An unopened media over a copy of the source, with the same position and selections. A subclass
  /// creates one of its own class and calls `copyTo`.
  virtual std::shared_ptr<LMFFMedia> copy() const;

  // Content access: content is never discarded, so access is always granted.
  bool beginContentAccess() const;
  void endContentAccess();
  void discardContentIfPossible();
  bool isContentDiscarded() const;

  /// Always empty: texts are available through the streams' `subtitleString`.
  std::vector<std::string> textsFromAVSubtitle(const AVSubtitle* subtitle) const;

  // Properties.

  /// True if this media is one of the movie's current ones: the clock is within it.
  bool isCurrentSynced() const;
  void setIsCurrentSynced(bool synced);

  /// The movie that opened this media, not owned; null if there is none.
  LMFFMovie* movie() const;
  void setMovie(LMFFMovie* movie);

  std::shared_ptr<LMMediaSource> source() const;
  void setSource(std::shared_ptr<LMMediaSource> source);

  /// Where this media starts on the movie's time line, microseconds.
  int64_t movie_position() const;
  void setMovie_position(int64_t position);

  /// The container time of the last packet routed to an enabled stream, microseconds;
  /// `AV_NOPTS_VALUE` initially and after a seek.
  int64_t last_pts() const;
  void setLast_pts(int64_t pts);

  /// One per container stream, in the same order.
  std::vector<std::shared_ptr<LMFFMediaStream>> streams() const;
  void setStreams(std::vector<std::shared_ptr<LMFFMediaStream>> streams);

  /// The container indexes of the streams to open; nullopt: all.
  std::optional<IndexSet> selectStreams() const;
  void setSelectStreams(std::optional<IndexSet> streams);

  /// The numbers of the audio tracks to enable; nullopt: all open ones. A track's number is its
  /// index among the open audio streams, or for a DVD the low four bits of its container id.
  std::optional<IndexSet> selectAudios() const;
  void setSelectAudios(std::optional<IndexSet> audios);

  /// The subtitle tracks to enable, numbered in the same way.
  std::optional<IndexSet> selectSubtitles() const;
  void setSelectSubtitles(std::optional<IndexSet> subtitles);

  // Opening and selection.

  /// Opens the source and creates the streams. Later calls add streams that have appeared since.
  void open();
  bool isOpen() const;
  AVFormatContext* formatContext() const;  ///< the source's, valid until the source is closed

  /// Opens, closes and enables streams according to the selections.
  void updateSelectStreams();

  /// The stream with a container index; null if there is none, even after another `open`.
  std::shared_ptr<LMFFMediaStream> mediaStreamForStreamIndex(uint32_t index);

  // Streams and facts. The lists hold the enabled streams of a type in container order, subtitles
  // only if they are not copied; the functions for a single stream return the last one.

  std::vector<std::shared_ptr<LMFFMediaStream>> audios() const;
  std::vector<std::shared_ptr<LMFFMediaStream>> videos() const;
  std::vector<std::shared_ptr<LMFFMediaStream>> subtitles() const;
  std::shared_ptr<LMFFMediaStream> audioStream() const;
  std::shared_ptr<LMFFMediaStream> videoStream() const;
  std::shared_ptr<LMFFMediaStream> subtitleStream() const;

  /// Display names of the tracks: the source's, otherwise the languages of the open streams.
  std::vector<std::string> audioNames() const;
  std::vector<std::string> subtitleNames() const;

  bool hasAudio() const;
  bool hasSubtitle() const;
  bool hasVideo() const;  ///< always false while the movie's video is disabled

  LMFFVideoFormat videoFormat() const;  ///< all zero without video
  float framerate() const;              ///< of `videoStream`; 0 without video
  int64_t videoBitrate() const;         ///< bits per second; 0 if unknown
  int64_t audioBitrate() const;         ///< bits per second; 0 if unknown
  int64_t fileBitrate() const;          ///< bits per second; 0 if unknown

  /// Returned by `duration` if the input neither states its duration nor can be read twice; small
  /// enough to be added to other times.
  static constexpr int64_t kUnknownDuration = INT64_MAX / 4;

  /// Microseconds; 0 while closed. If the input does not state it, the first call reads the whole
  /// input once through another reader, for this media and its copies.
  int64_t duration() const;

  /// The source's start time, microseconds.
  int64_t start_time() const;

  // Reading.

  /// Reads one packet and routes it. At the end of the input, drains the decoders, one picture per
  /// call. False if nothing is left or reading failed.
  bool forwardNextPacket();

  /// Routes one packet to its stream; drops it if the stream is not enabled.
  void forwardPacket(const AVPacket* packet);

  /// Reads until `stream` has a new frame or packet, at most two seconds ahead; false at the end of
  /// the input. In a media with pictures, a stream of sound or subtitles is not read for its own
  /// sake: this reads as far as the movie's current picture (nothing without a movie or while it is
  /// exported) and returns true.
  bool forwardStream(const std::shared_ptr<LMFFMediaStream>& stream);

  /// True if the input has been read to its end and the decoders have been drained since the last
  /// seek.
  bool isAtEnd() const;

  /// The next packet of a stream that is copied; null at the end.
  std::shared_ptr<LMFFImage> readNextPacketInStream(const std::shared_ptr<LMFFMediaStream>& stream);
  std::shared_ptr<LMFFImage> readNextVideoPacket();
  std::shared_ptr<LMFFImage> readNextAudioPacket();

  // Reading by time.

  /// A decoded picture, shown from `start` until just before `end`, in microseconds from the
  /// media's start. The frame belongs to the stream and is valid until its next decode.
  struct Picture {
    AVFrame* frame = nullptr;
    int64_t start = 0;
    int64_t end = 0;

    /// True if there is a picture.
    explicit operator bool() const;

    /// True if it begins at or before a time, or lasts beyond it. Times are compared as rounded to
    /// microseconds: a picture has begun exactly when the previous one no longer lasts.
    bool beginsBy(int64_t time) const;
    bool lastsBeyond(int64_t time) const;
  };

  /// The picture shown at a time, exactly and on every machine: reads until a picture lasts beyond
  /// that time or the input ends. For a time before the current picture, returns that: call `seek`
  /// to go back. After the last picture, returns the last one. Times are compared as rounded to
  /// microseconds. Empty without pictures and while packets are copied undecoded.
  ///
  /// May take as long as decoding to the end of the input. Sound read along is queued for at most
  /// five minutes, after which reading stops; with separate medias for pictures and sound
  /// (`createMedias`) that does not happen.
  Picture pictureAtTime(int64_t time);

  /// The picture that follows the current one in order of display, whatever their times, or the
  /// first; empty after the last one. Otherwise like `pictureAtTime`.
  Picture nextPicture();

  /// The current picture; reads nothing.
  Picture currentPicture() const;

  /// The picture for a time, owned by the stream and valid until its next decode; the latest one if
  /// that time is not reached within ten steps. For playback, where a late picture is better than a
  /// wait. Null without video.
  AVFrame* videoFrameAtTime(int64_t time);

  /// The bitmap subtitle shown at a time; null if there is none. Reads nothing.
  std::shared_ptr<const Image> subtitleAtTime(int64_t time) const;

  /// The text shown at a time; nullopt if there is none. Reads forward as far as necessary.
  std::optional<std::string> subtitleStringAtTime(int64_t time);

  /// All texts shown at a time, complete and with markup, see `LMFFMediaStream::subtitleMarkupAt`.
  /// Reads up to the first text that begins later, so do not combine it with `subtitleStringAtTime`
  /// on the same media.
  std::optional<std::string> subtitleMarkupAtTime(int64_t time);

  /// What the track of text shows at a time, see `LMFFMediaStream::textSubtitleAt`. Reads forward
  /// like `subtitleMarkupAtTime`.
  TextSubtitle textSubtitleAtTime(int64_t time, const SubtitleCanvas& canvas);

  /// Seeks to a time and calls `block` with the frame of `pictureAtTime`; without video it is not
  /// called.
  void thumbnailAtTime(int64_t time, const FrameBlock& block);

  // Sound: interleaved stereo float at the streams' output rate.

  /// Reads `frame` frames of one stream. If the stream has a gap or runs dry, the buffer is not
  /// touched. The stream's clock advances in either case.
  void readAudioStream(const std::shared_ptr<LMFFMediaStream>& stream, float* data, int32_t frame);

  /// Adds `frame` frames of every enabled audio stream to the buffer, without clipping. Always
  /// returns true.
  bool readSample(float* data, int32_t frame);

  /// Moves all streams to a time. Also reads subtitles that began shortly before, so that those
  /// shown at that time are available.
  void seek(int64_t time);

 protected:
  /// Copies to an unopened media what `copy` takes over.
  void copyTo(LMFFMedia& other) const;

 private:
  using StreamTest = bool (LMFFMediaStream::*)() const;

  std::shared_ptr<AVFormatContext> sharedContext() const;
  std::shared_ptr<LMFFMediaStream> lastEnabled(StreamTest isWanted) const;
  bool decodesPictures() const;
  bool hasPictureFor(int64_t time) const;
  bool readPicture(LMFFMediaStream& stream);
  bool isSoundFull() const;
  bool isBeyond(int64_t limit) const;
  void keepSoundGoing() const;
  void readTexts(const std::shared_ptr<LMFFMediaStream>& stream, int64_t target,
                 const std::function<bool(const AVFrame&)>& isMoreWanted);
  void showFirstPackets();
  void readSubtitleBefore(int64_t target);
  void correctAsfSeek(int64_t target);

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
