#pragma once

#include <kestrel/Coding.h>
#include <kestrel/Export.h>

#include <cstdint>
#include <memory>
#include <string>

struct AVCodecContext;
struct AVPacket;
struct AVStream;

namespace kestrel {

class LMMediaSource;

/// A stream of an input file, placed on the time line of an `LMMovieComposition`.
///
/// The input is opened when first needed and stays open as long as the track exists. Use a track
/// from one thread at a time. An archive stores only its path, position and rate.
class KESTREL_API LMMovieCompositionTrack : public Coding {
 public:
  LMMovieCompositionTrack();
  ~LMMovieCompositionTrack() override;
  LMMovieCompositionTrack(const LMMovieCompositionTrack&) = delete;
  LMMovieCompositionTrack& operator=(const LMMovieCompositionTrack&) = delete;

  // Properties.

  /// The input; null until it or `path` is set. `joinToFile` reads tracks with the same source
  /// together.
  std::shared_ptr<LMMediaSource> source() const;
  void setSource(std::shared_ptr<LMMediaSource> source);

  /// The source's path; "" without one. Setting it creates a new source.
  std::string path() const;
  void setPath(const std::string& path);

  /// The stream's index in the input; default 0.
  int32_t track() const;
  void setTrack(int32_t index);

  /// The stream's index in the output, set by an export.
  int32_t map() const;
  void setMap(int32_t index);

  /// Where the input's first time stamp is placed on the time line, seconds.
  double position() const;
  void setPosition(double seconds);

  /// The playback rate, which is stored but not applied by an export.
  double rate() const;
  void setRate(double rate);

  /// True if the input has been read to its end.
  bool finished() const;
  void setFinished(bool finished);

  /// The decoding time of the last packet read, in seconds on the input's clock.
  double dts() const;
  void setDts(double seconds);

  /// The end of the packets read so far, in seconds after the input's start.
  double reached() const;

  /// How many of its packets came incomplete, as the container tells; known when all are read.
  int64_t incompletePackets() const;

  /// Takes that over from `reader`, which has read this track's packets to their end.
  void countIncomplete(const LMMediaSource& reader);

  // The input. Without an input or such a stream: 0, null, false.

  void open();

  /// The input's start time in seconds; 0 until it is open.
  double startTime() const;

  /// Opens the input; null if that fails or there is no stream `track`.
  AVStream* avstream();

  int32_t codecID();  ///< `AV_CODEC_ID_…`

  /// An unopened codec context with the stream's parameters, owned by the track.
  AVCodecContext* codecContext();

  /// `AVMEDIA_TYPE_…`: 0 video, 1 audio; -1 if there is no stream.
  int32_t mediaType();
  bool isVideo();
  bool isAudio();

  // Reading.

  /// Reads the input's next packet of any stream; false at the end and on errors.
  bool readSourceFrame(AVPacket* packet);

  /// Reads the next packet of this track's stream and sets `dts`. If there is none, returns false
  /// and sets `finished`.
  bool readFrame(AVPacket* packet);

  /// Updates `dts` and `reached` for a packet of this track's stream obtained from
  /// `readSourceFrame`, as `readFrame` does. Packets without a decoding time are ignored.
  void passPacket(const AVPacket& packet);

  // Archives.

  std::string codingName() const override;
  void encodeWithCoder(KeyedArchiver& archiver) const override;
  static std::shared_ptr<LMMovieCompositionTrack> initWithCoder(KeyedUnarchiver& unarchiver);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
