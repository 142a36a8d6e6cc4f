#pragma once

#include <kestrel/Color.h>
#include <kestrel/Error.h>
#include <kestrel/Export.h>
#include <kestrel/Font.h>
#include <kestrel/Geometry.h>
#include <kestrel/IndexSet.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct AVFrame;

namespace kestrel {

class BitmapImage;
class Image;
class LMFFEffectVideoStream;
class LMFFImage;
class LMFFMedia;
class LMFFMovieImageProvider;
class LMOutputAudioGraph;
class OperationQueue;
struct MovieLook;

/// One opened movie: its medias, an external subtitle, the effect stream, the playback graph, and
/// the serial queue on which all its decoding runs.
///
/// A movie opens no files: an input source makes the medias, `openMedias` takes them. Its clock
/// counts the sound handed out: `readSample` and `readNextAudioPacket` advance it, `seek` sets it.
/// Times are microseconds on the movie's time line. `medias`, `subtitle` and the clock may be read
/// from any thread; the audio pump runs on one thread at a time; pictures are decoded on
/// `decodeQueue`. Without a media to take the answer from, calls return 0, false or null.
class KESTREL_API LMFFMovie {
 public:
  using MediaList = std::vector<std::shared_ptr<LMFFMedia>>;
  using MediaFilter = std::function<bool(const std::shared_ptr<LMFFMedia>&)>;
  using ImageAction = std::function<void(const std::shared_ptr<LMFFImage>&)>;

  /// Sets the media libraries up for the process, once however often and from wherever it is
  /// called: only their fatal messages are printed. Making a movie, a source or a file output
  /// calls it.
  static void initialize();

  LMFFMovie();
  ~LMFFMovie();
  LMFFMovie(const LMFFMovie&) = delete;
  LMFFMovie& operator=(const LMFFMovie&) = delete;

  // Opening.

  /// Opens each media in order, then takes the list. One that fails to open stays in it and
  /// contributes nothing.
  void openMedias(const MediaList& medias);

  /// Releases the medias, the playback graph and the subtitle.
  void close();

  /// Replaces the external subtitle by a file's; false, and none is left, where it holds none. The
  /// encoding of texts is recognised as by `textFromData`.
  bool openSubtitle(const std::string& path);

  void getMaxMediaDuration();
  void openAudioOutput();
  void configVideoEffectStream();

  /// Why something did not work: what the first of the medias says whose input did not open, or
  /// whose reading stopped early, then why there is no external subtitle. None while nothing
  /// failed.
  Error lastError() const;

  LMFFAudioFormat defaultOutputFormat() const;
  void configOutputFormat(const LMFFAudioFormat& format);  ///< accepted and not used

  // Properties.

  MediaList medias() const;
  void setMedias(MediaList medias);
  std::shared_ptr<LMFFMedia> subtitle() const;
  void setSubtitle(std::shared_ptr<LMFFMedia> subtitle);

  std::shared_ptr<LMFFEffectVideoStream> videoEffectStream() const;
  void setVideoEffectStream(std::shared_ptr<LMFFEffectVideoStream> stream);
  std::shared_ptr<LMOutputAudioGraph> audioOutputGraph() const;
  void setAudioOutputGraph(std::shared_ptr<LMOutputAudioGraph> graph);
  /// Where all decoding happens. A new queue takes over once the old one's work is done; without
  /// one, `seek` sets the clock alone and pictures are decoded by whoever asks.
  std::shared_ptr<OperationQueue> decodeQueue() const;
  void setDecodeQueue(std::shared_ptr<OperationQueue> queue);

  /// The host's receiver of pictures; not owned, null once it is gone. The movie itself never calls
  /// it: the host names a provider with each picture that it asks for.
  std::shared_ptr<LMFFMovieImageProvider> delegate() const;
  void setDelegate(const std::shared_ptr<LMFFMovieImageProvider>& delegate);

  /// The factor on every sample handed out; 1 at first.
  double volume() const;
  void setVolume(double volume);

  /// Every video stream is ignored.
  bool disableVideo() const;
  void setDisableVideo(bool disable);

  /// The movie is being written to a file: playback does not pump, and sound does not pull video.
  bool exportMovie() const;
  void setExportMovie(bool exportMovie);

  /// Packets are handed out undecoded.
  bool copy_video_stream() const;
  void setCopy_video_stream(bool copy);
  bool copy_audio_stream() const;
  void setCopy_audio_stream(bool copy);

  // Medias.

  MediaList medias(const MediaList& medias, const MediaFilter& filter) const;
  MediaList filterMedias(const MediaFilter& filter) const;
  MediaList audios() const;
  MediaList videos() const;
  std::shared_ptr<LMFFMedia> currentVideoMedia() const;
  std::shared_ptr<LMFFMedia> currentAudioMedia() const;
  std::shared_ptr<LMFFMedia> videoMediaAtTime(int64_t time) const;
  std::shared_ptr<LMFFMedia> videoMedia() const;  ///< the effect stream's

  bool hasAudio() const;
  bool hasVideo() const;
  bool hasSubtitle() const;

  /// Display names of the tracks.
  std::vector<std::string> audioStreams() const;
  std::vector<std::string> subtitleStreams() const;

  /// The track numbers chosen; absent: all.
  std::optional<IndexSet> selectAudioStreams() const;
  void setSelectAudioStreams(const std::optional<IndexSet>& streams);
  std::optional<IndexSet> selectSubtitleStreams() const;
  void setSelectSubtitleStreams(const std::optional<IndexSet>& streams);

  // Facts.

  float framerate() const;
  int64_t videoBitrate() const;
  int64_t audioBitrate() const;
  int64_t fileBitrate() const;
  int videoCodec() const;  ///< `AV_CODEC_ID_…`
  int audioCodec() const;
  int64_t duration() const;  ///< microseconds: where the last media ends

  // Clock.

  /// The last seek's time plus the sound handed out since, less what waits in the playback buffer.
  int64_t currentTime() const;
  void setCurrentTime(int64_t time);
  void forwardAudioDecodeTime(double samples);
  void update_current_time_to(int64_t time);

  /// Moves the clock to a copied packet's time, never back; without a packet, 20 ms on.
  void updateAudioPacketTime(const std::shared_ptr<LMFFImage>& packet);

  /// Where the current video media ends.
  int64_t currentVideoMediaMaxTime() const;

  /// Seeks the medias that the clock has entered to it (with `force`, all that it is in) and marks
  /// them current.
  void updateCurrentMedias(bool force);
  void updateCurrentMedias();

  /// Sets the clock at once and positions the medias on the queue; of several seeks in a row only
  /// the last one's positioning runs.
  void seek(int64_t time);

  /// Blocks until the queue is empty.
  void flushOperation();

  bool forward();  ///< true

  // Playback, from any thread. What is out of range counts as the nearest in it, no number as 1.

  void play();
  void pause();
  void stop();
  bool isPlay() const;
  void setRate(float rate);
  float rate() const;
  double playVolume() const;
  void setPlayVolume(double volume);

  // Sound.

  /// Fills `data` with the next `frame` frames of stereo float: the current medias' sound times
  /// `volume`, silence where there is none. The clock advances by `frame`.
  bool readSample(float* data, int32_t frame);

  /// The next undecoded audio packet, null at the end; the clock follows it.
  std::shared_ptr<LMFFImage> readNextAudioPacket();

  bool decodeAudioToAudioOutput();
  void decodeMoreAudioDataToAudioOutputHelper();

  /// Tops the playback buffer up on the queue when it holds less than 2048 frames. Any thread.
  void decodeMoreAudioDataToAudioOutput();

  // Pictures.

  /// Runs `work` on the queue: inline when the caller is on it already. With `wait`, blocks until
  /// it has run; an exception that leaves it arrives here, as one of the host's code does that the
  /// calls below run and wait for. Without, nobody is there to take it, and it ends with the work.
  void decodeImage(const std::function<void()>& work, bool wait);

  /// Calls `action` on the queue with the picture that is shown at a time (`decode`), or with the
  /// next undecoded video packet; with null where no current media has video. Blocks. A decoded
  /// picture is borrowed: it is the stream's until the next decode. It is exactly the one of that
  /// time (`LMFFMedia::pictureAtTime`), unless the movie plays: then it may be an earlier one, so
  /// that a slow machine shows late pictures rather than none.
  void decodeImageAtTime(int64_t time, bool decode, const ImageAction& action);

  /// Makes the picture of a time, subtitles and effects included, and hands it to `provider`, on
  /// the queue; see `LMFFMovieImageProvider`. Blocks with `wait`; without, the provider is kept
  /// until the picture is made. The images are recipes: whoever wants pixels renders them.
  void decodeImageAtTime(int64_t time, const std::shared_ptr<LMFFMovieImageProvider>& provider,
                         bool wait = true);

  /// The picture of a time after all effects, fitted into `size` (pixels) with its shape kept: the
  /// bitmap has the fitted size, rounded up, and is enlarged a hundred times at most. Null where no
  /// video media covers the time, and when there is no picture. Blocks; afterwards the media is
  /// back at the clock.
  std::shared_ptr<const BitmapImage> thumbnailAtTime(int64_t time, const Size& size);

  /// A rectangle of the shape of `rect`, as large as fits into `destination`, in its middle. `rect`
  /// is divided by its width / destination's or its height / destination's, whichever is larger in
  /// single precision, and by 0.01 at least.
  Rect scaleRect(const Rect& rect, const Rect& destination) const;

  // The look: the effect stream's settings, which may be read and written from any thread and count
  // from the next picture on. None is checked; a value without sense shows as a black picture or
  // changes nothing. Without an effect stream they are zeros. `configVideoEffectStream` sets crop
  // and output size anew.

  Size videoSize() const;  ///< the media's picture, pixels

  /// All of the following as one (<kestrel/MovieLook.h>), but for the output's size: a look that
  /// was read, changed and set again changes nothing else.
  MovieLook look() const;
  void setLook(const MovieLook& look);

  /// The display shape: 1 four by three, 2 sixteen by nine, anything else the source's.
  int64_t aspectType() const;
  void setAspectType(int64_t type);

  /// The display shape of the whole source, width / height, in place of `aspectType`; 0: that
  /// counts. For sources whose shape is neither of the two that it knows.
  double displayAspect() const;
  void setDisplayAspect(double aspect);

  /// What is kept of the source: pixels, origin at the lower left. As a text it is
  /// "{{10, 20}, {300, 200}}", origin and size; a text that is anything else makes it all zeros.
  Rect cropRect() const;
  void setCropRect(const Rect& rect);
  std::string cropRectString() const;
  void setCropRectString(const std::string& text);

  /// The size of the finished picture, in pixels: 0.1 is added and the fraction dropped. As a text
  /// it is "{640, 480}"; a text that is anything else makes it zero by zero.
  Size outputVideoSize() const;
  void setOutputVideoSize(const Size& size);
  std::string outputVideoSizeString() const;
  void setOutputVideoSizeString(const std::string& text);

  bool hflip() const;
  void setHflip(bool flip);
  bool vflip() const;
  void setVflip(bool flip);
  float rotate() const;  ///< degrees, counter-clockwise
  void setRotate(float degrees);
  float saturation() const;  ///< 0.5 changes nothing
  void setSaturation(float value);
  float brightness() const;  ///< 0.5 changes nothing
  void setBrightness(float value);
  float contrast() const;  ///< 0.25 changes nothing
  void setContrast(float value);
  float hue() const;  ///< 0.5 changes nothing
  void setHue(float value);

  /// The name of an effect of `EffectManager`; absent: none.
  std::optional<std::string> effectName() const;
  void setEffectName(const std::optional<std::string>& name);

  /// Laid over every picture as it lies in the output; null: none.
  std::shared_ptr<const Image> watermark() const;
  void setWatermark(const std::shared_ptr<const Image>& image);

  /// How the picture is fitted into the output: 1 stretched, 2 and 5 whole with bars, 3 and 4 into
  /// a 16:9 or 4:3 box, 6 as wide as the output. 5 at first.
  int32_t zoomType() const;
  void setZoomType(int32_t type);

  // Text subtitles. Each of these setters, and that of the output size, has the text drawn anew.

  Font subtitleFont() const;  ///< 80 pixels of the system's where none is set
  void setSubtitleFont(const std::optional<Font>& font);
  Color subtitleColor() const;  ///< white where none is set
  void setSubtitleColor(const std::optional<Color>& color);
  float subtitlePosition() const;  ///< the text's lower edge: 0 at the bottom, 1 at the top
  void setSubtitlePosition(float position);

  /// Subtitles are shown whole, with the line breaks, italics and bold letters that their files
  /// give them. Off at first: then only what follows the last comma of a line is shown, plainly.
  bool fullSubtitleText() const;
  void setFullSubtitleText(bool full);

  float subtitleOutline() const;  ///< black, around the letters; pixels, 0 at first
  void setSubtitleOutline(float width);
  /// What stays free of text at the left and at the right, of the output's width; 0 at first.
  float subtitleMargin() const;
  void setSubtitleMargin(float share);

  /// Has the text subtitle drawn anew.
  void updateSubtitle();

 private:
  AVFrame* frameAtTime(LMFFMedia& media, int64_t time) const;
  std::optional<std::string> subtitleTextAtTime(int64_t time) const;
  void provideImage(int64_t time, LMFFMovieImageProvider* provider);
  void keepSoundGoing();

  friend class LMFFMedia;  // keeps the sound going while it reads pictures
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
