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

/// One demuxing unit: an input source opened once, with a stream object for each container stream.
///
/// It reads packets in file order and routes each to its stream, seeks all streams together, and
/// finds the frame, subtitle or sound that belongs to a time by reading forward just far enough.
/// Times are microseconds from the media's own start; the movie's time is that plus
/// `movie_position`. A media is used from one thread at a time; `source`, `streams` and the
/// selections may be read from others. Failures show as false, 0 or null; why reading ended is the
/// source's `lastError`.
class KESTREL_API LMFFMedia {
 public:
  using FrameBlock = std::function<void(AVFrame*)>;

  LMFFMedia();
  virtual ~LMFFMedia();
  LMFFMedia(const LMFFMedia&) = delete;
  LMFFMedia& operator=(const LMFFMedia&) = delete;

  /// An unopened media at the same place over a copy of the source, with the same selections. A
  /// subclass makes one of its own class and calls `copyTo`.
  virtual std::shared_ptr<LMFFMedia> copy() const;

  // Content access: the content is never discarded, so access always begins.
  bool beginContentAccess() const;
  void endContentAccess();
  void discardContentIfPossible();
  bool isContentDiscarded() const;

  /// Texts are shown through the streams' `subtitleString`: none here.
  std::vector<std::string> textsFromAVSubtitle(const AVSubtitle* subtitle) const;

  // Properties.

  /// This media is one of the movie's current ones.
  bool isCurrentSynced() const;
  void setIsCurrentSynced(bool synced);

  /// The movie that opened this media; not owned, null for a media on its own.
  LMFFMovie* movie() const;
  void setMovie(LMFFMovie* movie);

  std::shared_ptr<LMMediaSource> source() const;
  void setSource(std::shared_ptr<LMMediaSource> source);

  /// Where this media starts on the movie's time line, microseconds.
  int64_t movie_position() const;
  void setMovie_position(int64_t position);

  /// The time, in microseconds, of the last packet routed to an enabled stream;
  /// `AV_NOPTS_VALUE` at first and after a seek.
  int64_t last_pts() const;
  void setLast_pts(int64_t pts);

  /// One for each container stream, at its index.
  std::vector<std::shared_ptr<LMFFMediaStream>> streams() const;
  void setStreams(std::vector<std::shared_ptr<LMFFMediaStream>> streams);

  /// The container streams to open; absent: all.
  std::optional<IndexSet> selectStreams() const;
  void setSelectStreams(std::optional<IndexSet> streams);

  /// The audio tracks to enable; absent: all open ones. A track's number is its place among the
  /// open audio streams, or for a DVD the low four bits of its container id.
  std::optional<IndexSet> selectAudios() const;
  void setSelectAudios(std::optional<IndexSet> audios);

  /// The subtitle tracks to enable, numbered alike.
  std::optional<IndexSet> selectSubtitles() const;
  void setSelectSubtitles(std::optional<IndexSet> subtitles);

  // Opening and selection.

  /// Opens the source and makes its streams; called again, it adds streams that have appeared
  /// since.
  void open();
  bool isOpen() const;
  AVFormatContext* formatContext() const;  ///< the source's, valid until that is closed

  /// Applies the selections: opens, closes and enables streams.
  void updateSelectStreams();

  /// The stream at a container index, null when there is none even after another `open`.
  std::shared_ptr<LMFFMediaStream> mediaStreamForStreamIndex(uint32_t index);

  // Streams and facts. The lists hold the enabled streams of a type in container order, the single
  // ones are the last of each list.

  std::vector<std::shared_ptr<LMFFMediaStream>> audios() const;
  std::vector<std::shared_ptr<LMFFMediaStream>> videos() const;
  std::vector<std::shared_ptr<LMFFMediaStream>> subtitles() const;
  std::shared_ptr<LMFFMediaStream> audioStream() const;
  std::shared_ptr<LMFFMediaStream> videoStream() const;
  std::shared_ptr<LMFFMediaStream> subtitleStream() const;

  /// The tracks' display names: the source's, else the languages of the open streams.
  std::vector<std::string> audioNames() const;
  std::vector<std::string> subtitleNames() const;

  bool hasAudio() const;
  bool hasSubtitle() const;
  bool hasVideo() const;  ///< never while the movie's video is disabled

  LMFFVideoFormat videoFormat() const;  ///< all zero without video
  float framerate() const;
  int64_t videoBitrate() const;
  int64_t audioBitrate() const;
  int64_t fileBitrate() const;

  /// What `duration` returns for an input that neither says how long it is nor can be read twice;
  /// far enough from the type's end for sums.
  static constexpr int64_t kUnknownDuration = INT64_MAX / 4;

  /// Microseconds; 0 when not open. An input whose header does not tell is read through once, by
  /// another reader, when this or a copy is first asked.
  int64_t duration() const;

  /// The source's start time, microseconds.
  int64_t start_time() const;

  // Reading.

  /// Reads one packet and routes it. At the end of the input the decoders are drained, one picture
  /// a call; false when nothing is left, or reading failed.
  bool forwardNextPacket();

  /// Routes one packet to its stream, or drops it.
  void forwardPacket(const AVPacket* packet);

  /// Reads until `stream` has a new frame or packet, looking at most two seconds ahead; false at
  /// the end.
  bool forwardStream(const std::shared_ptr<LMFFMediaStream>& stream);

  /// The input has been read to its end, and the decoders have been drained, since the last seek.
  bool isAtEnd() const;

  /// The next undecoded packet of a stream, for stream copy; null at the end.
  std::shared_ptr<LMFFImage> readNextPacketInStream(const std::shared_ptr<LMFFMediaStream>& stream);
  std::shared_ptr<LMFFImage> readNextVideoPacket();
  std::shared_ptr<LMFFImage> readNextAudioPacket();

  // Reading by time.

  /// A decoded picture and its span: it is shown from `start` on, until before `end`; microseconds
  /// from the media's start. The frame is the stream's, valid until its next decode.
  struct Picture {
    AVFrame* frame = nullptr;
    int64_t start = 0;
    int64_t end = 0;

    /// True if there is a picture.
    explicit operator bool() const;

    /// Whether it has begun at a time, and whether it is still shown after that; times count as
    /// rounded to whole microseconds, so that of two pictures of which one follows the other the
    /// second begins exactly when the first one no longer lasts.
    bool beginsBy(int64_t time) const;
    bool lastsBeyond(int64_t time) const;
  };

  /// Exactly the picture that is shown at a time, on every machine: reads on until a picture lasts
  /// beyond that time, or the input and its decoder have no more. At a time before the picture that
  /// the media is at, that one is the answer: `seek` first to go back. Behind the last picture,
  /// that is. Times count as rounded to whole microseconds. Null without pictures, and where
  /// packets are copied undecoded.
  ///
  /// There is no other bound than the input's end, so it may take as long as decoding up to there.
  /// But sound that this media reads along is kept waiting for five minutes' worth at most; who has
  /// pictures and sound in medias of their own (`createMedias`) does not meet that.
  Picture pictureAtTime(int64_t time);

  /// The picture that the media is at, without reading.
  Picture currentPicture() const;

  /// The picture for a time, owned by the stream and valid until its next decode; the newest there
  /// is where that time could not be reached within ten steps: for who plays, and would rather see
  /// a late picture than wait. Null without video.
  AVFrame* videoFrameAtTime(int64_t time);

  /// The bitmap subtitle shown at a time, null when there is none. It never reads.
  std::shared_ptr<const Image> subtitleAtTime(int64_t time) const;

  /// The text shown at a time, absent when there is none; reads forward as far as it must.
  std::optional<std::string> subtitleStringAtTime(int64_t time);

  /// All texts shown at a time, whole and with their looks as markup: the stream's
  /// `subtitleMarkupAt`. It reads on to the first text that begins later, so the same media is not
  /// asked for `subtitleStringAtTime`, too.
  std::optional<std::string> subtitleMarkupAtTime(int64_t time);

  /// Seeks to a time and calls back with its `pictureAtTime`; without video it does not call.
  void thumbnailAtTime(int64_t time, const FrameBlock& block);

  // Sound: interleaved stereo float, in the streams' output rate.

  /// Fills `frame` frames from one stream. Where the stream has a gap, or has run dry, the buffer
  /// is left as it is and the clock moves on.
  void readAudioStream(const std::shared_ptr<LMFFMediaStream>& stream, float* data, int32_t frame);

  /// Adds `frame` frames of every enabled audio stream to the caller's buffer, without clipping.
  bool readSample(float* data, int32_t frame);

  /// Moves every stream to a time. Of subtitles it reads those that began shortly before it, too:
  /// what is shown at that time is there.
  void seek(int64_t time);

 protected:
  /// Gives another media, not yet opened, what `copy` takes over.
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
