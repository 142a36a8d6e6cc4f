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

/// An opened movie: its medias, an external subtitle, the effect stream, the playback graph, and
/// the serial queue on which it decodes.
///
/// A movie opens no files: a source creates the medias, `openMedias` takes them. The clock counts
/// the sound handed out: `readSample` and `readNextAudioPacket` advance it, `seek` sets it. Times
/// are microseconds on the movie's time line. `medias`, `subtitle` and the clock may be read from
/// any thread; sound is read on one thread at a time; pictures are decoded on `decodeQueue`.
/// Without a suitable media, functions return 0, false or null.
class KESTREL_API LMFFMovie {
 public:
  using MediaList = std::vector<std::shared_ptr<LMFFMedia>>;
  using MediaFilter = std::function<bool(const std::shared_ptr<LMFFMedia>&)>;
  using ImageAction = std::function<void(const std::shared_ptr<LMFFImage>&)>;

  /// Initialises FFmpeg for the process: only fatal messages are printed. Further calls do nothing.
  /// Creating a movie, a source or a file output calls it.
  static void initialize();

  LMFFMovie();
  ~LMFFMovie();
  LMFFMovie(const LMFFMovie&) = delete;
  LMFFMovie& operator=(const LMFFMovie&) = delete;

  // Opening.

  /// Opens each media in order and takes the list. A media that fails to open stays in it without
  /// effect. Then calls `getMaxMediaDuration`, `openAudioOutput` and `configVideoEffectStream`.
  void openMedias(const MediaList& medias);

  /// Pauses, waits for the queue, and releases the medias, the playback graph and the subtitle.
  void close();

  /// Replaces the external subtitle by that in a file. On failure returns false and leaves none.
  /// The text encoding is detected like in `textFromData`.
  bool openSubtitle(const std::string& path);

  /// Update `duration`; create the playback graph if there is none; connect the effect stream to
  /// the first media with pictures, with that media's size as output size and crop.
  void getMaxMediaDuration();
  void openAudioOutput();
  void configVideoEffectStream();

  /// The first error of a media whose input did not open or stopped early, otherwise the error of
  /// `openSubtitle`; none if nothing failed.
  Error lastError() const;

  LMFFAudioFormat defaultOutputFormat() const;             ///< `lm_get_default_audio_format`
  void configOutputFormat(const LMFFAudioFormat& format);  ///< has no effect

  // Properties.

  MediaList medias() const;
  void setMedias(MediaList medias);
  std::shared_ptr<LMFFMedia> subtitle() const;
  void setSubtitle(std::shared_ptr<LMFFMedia> subtitle);

  std::shared_ptr<LMFFEffectVideoStream> videoEffectStream() const;
  void setVideoEffectStream(std::shared_ptr<LMFFEffectVideoStream> stream);
  std::shared_ptr<LMOutputAudioGraph> audioOutputGraph() const;
  void setAudioOutputGraph(std::shared_ptr<LMOutputAudioGraph> graph);
  /// The serial queue on which everything is decoded. Setting it waits for the old queue's work.
  /// Without a queue, `seek` only sets the clock, and pictures are decoded on the calling thread.
  std::shared_ptr<OperationQueue> decodeQueue() const;
  void setDecodeQueue(std::shared_ptr<OperationQueue> queue);

  /// The host's receiver of pictures, not owned; null once it is destroyed. The movie never calls
  /// it: the host passes a provider with each request for a picture.
  std::shared_ptr<LMFFMovieImageProvider> delegate() const;
  void setDelegate(const std::shared_ptr<LMFFMovieImageProvider>& delegate);

  /// Gain factor of the sound handed out; default 1.
  double volume() const;
  void setVolume(double volume);

  /// If true, all video streams are ignored.
  bool disableVideo() const;
  void setDisableVideo(bool disable);

  /// If true, the movie is being written to a file: playback stops decoding, and reading sound does
  /// not decode pictures.
  bool exportMovie() const;
  void setExportMovie(bool exportMovie);

  /// If true, packets are handed out undecoded.
  bool copy_video_stream() const;
  void setCopy_video_stream(bool copy);
  bool copy_audio_stream() const;
  void setCopy_audio_stream(bool copy);

  // Medias. `audios` and `videos` are those with sound and with pictures; the current ones are
  // those that the clock is in. Functions for a single media return the first match.

  MediaList medias(const MediaList& medias, const MediaFilter& filter) const;
  MediaList filterMedias(const MediaFilter& filter) const;
  MediaList audios() const;
  MediaList videos() const;
  std::shared_ptr<LMFFMedia> currentVideoMedia() const;
  std::shared_ptr<LMFFMedia> currentAudioMedia() const;
  std::shared_ptr<LMFFMedia> videoMediaAtTime(int64_t time) const;
  std::shared_ptr<LMFFMedia> videoMedia() const;  ///< of the effect stream

  bool hasAudio() const;
  bool hasVideo() const;
  bool hasSubtitle() const;

  /// Display names of the tracks of the first media; for sound, of the first that has any.
  std::vector<std::string> audioStreams() const;
  std::vector<std::string> subtitleStreams() const;

  /// The numbers of the selected tracks; nullopt: all. Setting them applies to all medias.
  std::optional<IndexSet> selectAudioStreams() const;
  void setSelectAudioStreams(const std::optional<IndexSet>& streams);
  std::optional<IndexSet> selectSubtitleStreams() const;
  void setSelectSubtitleStreams(const std::optional<IndexSet>& streams);

  // Facts. Bit rates are in bits per second; 0 if unknown.

  float framerate() const;
  int64_t videoBitrate() const;
  int64_t audioBitrate() const;
  int64_t fileBitrate() const;
  int videoCodec() const;    ///< `AV_CODEC_ID_…` of the last media with pictures
  int audioCodec() const;    ///< `AV_CODEC_ID_…` of the last media with sound
  int64_t duration() const;  ///< microseconds: the end of the media that ends last

  // Clock.

  /// The time of the last seek plus the sound handed out since, less what waits in the playback
  /// buffer.
  int64_t currentTime() const;
  /// Same as `seek`.
  void setCurrentTime(int64_t time);
  /// Advance the clock by frames of 44100 Hz, or set it without positioning the medias.
  void forwardAudioDecodeTime(double samples);
  void update_current_time_to(int64_t time);

  /// Moves the clock forward to a copied packet's time, never back; by 20 ms if the packet is null.
  void updateAudioPacketTime(const std::shared_ptr<LMFFImage>& packet);

  /// The end of the current video media.
  int64_t currentVideoMediaMaxTime() const;

  /// Seeks the medias that the clock has just entered (with `force`, all that it is in) to the
  /// clock's time and marks them as current.
  void updateCurrentMedias(bool force);
  void updateCurrentMedias();

  /// Sets the clock at once and positions the medias on the queue. Of several seeks in a row, only
  /// the last one positions them.
  void seek(int64_t time);

  /// Blocks until the queue is empty.
  void flushOperation();

  bool forward();  ///< always true

  // Playback, from any thread. Values out of range are clamped; NaN counts as 1.

  /// Plays from the clock's time on, silently if there is no device. Does nothing without a
  /// playback graph.
  void play();
  /// Both stop the sound at once and keep the position.
  void pause();
  void stop();
  bool isPlay() const;
  void setRate(float rate);
  float rate() const;
  double playVolume() const;
  void setPlayVolume(double volume);

  // Sound.

  /// Fills `data` with the next `frame` frames of interleaved stereo float: the sound of the
  /// current medias times `volume`, silence if there is none. The clock advances by `frame`. Always
  /// returns true.
  bool readSample(float* data, int32_t frame);

  /// The next undecoded audio packet; null at the end. The clock follows it.
  std::shared_ptr<LMFFImage> readNextAudioPacket();

  /// Decode the next 2048 frames into the playback buffer; the second only if it holds fewer. They
  /// do nothing while `exportMovie` is set. Call them on the queue.
  bool decodeAudioToAudioOutput();
  void decodeMoreAudioDataToAudioOutputHelper();

  /// Tops up the playback buffer by 2048 frames on the queue if it holds fewer; does not wait. Any
  /// thread.
  void decodeMoreAudioDataToAudioOutput();

  // Pictures.

  /// Runs `work` on the queue, immediately if the caller is on it. With `wait`, blocks until it has
  /// run and rethrows its exception, as do the calls below that wait. Without, an exception is
  /// discarded.
  void decodeImage(const std::function<void()>& work, bool wait);

  /// Calls `action` on the queue with the picture shown at a time (`decode`) or with the next
  /// undecoded video packet; with null if no current media has video. Blocks. A decoded picture is
  /// borrowed from the stream until the next decode. It is the exact picture for that time
  /// (`LMFFMedia::pictureAtTime`); during playback it may be an earlier one, so that a slow machine
  /// shows late pictures rather than none.
  void decodeImageAtTime(int64_t time, bool decode, const ImageAction& action);

  /// Makes the picture of a time with subtitles and effects and passes it to `provider` on the
  /// queue, see `LMFFMovieImageProvider`. Blocks if `wait`; otherwise the provider is kept alive
  /// until then. The images are recipes; render them to get pixels.
  void decodeImageAtTime(int64_t time, const std::shared_ptr<LMFFMovieImageProvider>& provider,
                         bool wait = true);

  /// The picture of a time after all effects, fitted into `size` (pixels) without distortion. The
  /// bitmap has the fitted size, rounded up; the picture is enlarged at most 100 times. Null if no
  /// media with video covers the time or there is no picture. Blocks; afterwards the media is
  /// positioned at the clock again.
  std::shared_ptr<const BitmapImage> thumbnailAtTime(int64_t time, const Size& size);

  /// The largest rectangle of the shape of `rect`, centred in `destination`. The size of `rect` is
  /// divided by max(its width / destination's, its height / destination's) in single precision, but
  /// at least by 0.01.
  Rect scaleRect(const Rect& rect, const Rect& destination) const;

  // The look: the effect stream's settings. They may be accessed from any thread and take effect
  // with the next picture. Values are not checked; invalid ones give a black picture or have no
  // effect. Without an effect stream each reads as 0, and `look` as the default record.
  // `configVideoEffectStream` resets crop and output size.

  Size videoSize() const;  ///< size of the media's picture, pixels

  /// All settings of the look at once (<kestrel/MovieLook.h>): the following ones except for the
  /// output size, and some that only the record has.
  MovieLook look() const;
  void setLook(const MovieLook& look);

  /// Display aspect: 1 is 4:3, 2 is 16:9, anything else the source's.
  int64_t aspectType() const;
  void setAspectType(int64_t type);

  /// Display aspect of the whole source, width / height, for sources that are neither 4:3 nor 16:9.
  /// Overrides `aspectType` if above 0.
  double displayAspect() const;
  void setDisplayAspect(double aspect);

  /// The part of the source that is kept: pixels, origin at the lower left. As a text:
  /// "{{10, 20}, {300, 200}}", origin and size; an invalid text sets all zeros.
  Rect cropRect() const;
  void setCropRect(const Rect& rect);
  std::string cropRectString() const;
  void setCropRectString(const std::string& text);

  /// The size of the finished picture, in pixels: 0.1 is added and the fraction dropped. As a text:
  /// "{640, 480}"; an invalid text sets zero by zero.
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

  /// Name of an effect of `EffectManager`; nullopt: none.
  std::optional<std::string> effectName() const;
  void setEffectName(const std::optional<std::string>& name);

  /// Drawn over every picture at its position in the output; null: none.
  std::shared_ptr<const Image> watermark() const;
  void setWatermark(const std::shared_ptr<const Image>& image);

  /// How the picture is fitted into the output: 1 stretched, 2 and 5 whole, with bars, 3 and 4
  /// stretched to a 16:9 or 4:3 box, 6 to the output's width. Default 5.
  int32_t zoomType() const;
  void setZoomType(int32_t type);

  // Text subtitles. Each of these setters, and those of the output size, make the text be drawn
  // again.

  Font subtitleFont() const;  ///< the system's font at 80 pixels unless set
  void setSubtitleFont(const std::optional<Font>& font);
  Color subtitleColor() const;  ///< white unless set
  void setSubtitleColor(const std::optional<Color>& color);
  float subtitlePosition() const;  ///< the text's lower edge: 0 at the bottom, 1 at the top
  void setSubtitlePosition(float position);

  /// Show subtitles complete, with the line breaks, italics and bold of their files. Off by
  /// default: only what follows the last comma of a line is shown, as plain text.
  bool fullSubtitleText() const;
  void setFullSubtitleText(bool full);

  /// Makes the next picture draw the text subtitle again.
  void updateSubtitle();

 private:
  AVFrame* frameAtTime(LMFFMedia& media, int64_t time) const;
  void provideImage(int64_t time, LMFFMovieImageProvider* provider);
  void keepSoundGoing();

  friend class LMFFMedia;  // keeps the sound going while reading pictures
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
