#pragma once

#include <kestrel/Error.h>
#include <kestrel/Export.h>
#include <kestrel/LMFFFormat.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kestrel {

class LMMovieCompositionTrack;

/// Sound that a join encodes along with the pictures that it copies: the host supplies the samples
/// of each track as the pictures proceed. Times are microseconds from the file's start. All
/// functions are called on the thread of the export.
class KESTREL_API JoinedSound {
 public:
  /// Interleaved, full scale is 1: as doubles, whole numbers of 32 bits and floats keep every bit.
  using Samples = std::vector<double>;

  /// How a track is encoded. Its samples are in the format's layout and rate.
  struct Track {
    LMFFMovieFileOutputFormat format = {};            ///< only the audio parameters are used
    std::string encoder = {};                         ///< by FFmpeg's name; "": the library's first
    int32_t bits = 0;                                 ///< see `LMFFMovieFileOutput::audioBits`
    std::map<std::string, std::string> options = {};  ///< of the encoder
    std::map<std::string, std::string> tags = {};     ///< of the stream
  };

  virtual ~JoinedSound();

  virtual std::vector<Track> tracks() const = 0;

  /// An input begins: the moment `start` after its start is placed at `begin`, directly after the
  /// previous input's pictures if it `follows`.
  virtual void beginInput(size_t input, int64_t begin, int64_t start, bool follows) = 0;

  /// True if the input's sound continues for at least `time` beyond what was read; 0: at all.
  virtual bool goesOn(int64_t time) = 0;

  /// The next samples of a track, none at or after `end` and about a second of them at most. Called
  /// repeatedly until it returns nothing: no more samples before `end` are available now. A later
  /// call, with the same or a later `end`, may return more.
  virtual Samples read(size_t track, int64_t end) = 0;

  /// The last samples of a track, after all inputs: like `read`, but until the track is complete,
  /// which is at `end` at the earliest (silence if necessary). Nothing more follows an empty
  /// answer.
  virtual Samples rest(size_t track, int64_t end) = 0;
};

/// Places streams of several files on one time line and copies their packets to one file. Nothing
/// is decoded except pictures that depend on hidden ones (`picturesEncodedToHide`).
///
/// The output path's extension selects the container. An export runs on the calling thread, blocks
/// until the file is written, and holds at most a few seconds of packets. It opens the tracks'
/// inputs, which remain open and at their end: exporting the same tracks again writes nothing.
/// Nothing throws; check `lastError` after an export.
///
/// `tracks` may be read by one thread while another inserts; use the rest from one thread at a
/// time.
class KESTREL_API LMMovieComposition {
 public:
  using TrackList = std::vector<std::shared_ptr<LMMovieCompositionTrack>>;

  LMMovieComposition();
  ~LMMovieComposition();
  LMMovieComposition(const LMMovieComposition&) = delete;
  LMMovieComposition& operator=(const LMMovieComposition&) = delete;

  TrackList tracks() const;
  void setTracks(TrackList tracks);  ///< drops null pointers

  /// Appends a track for the file's first stream at a position (seconds) and returns it, so that
  /// another stream can be selected. `rate` is stored only. The file is opened by the export.
  std::shared_ptr<LMMovieCompositionTrack> insert(const std::string& path, double at, double rate);

  /// Writes each track as a stream of its own, shifted so that its input starts at the track's
  /// position. Packets are written in slices of one second per track. Tracks with the same source
  /// and position are read together. Tracks without an input or stream are left out. Each packet
  /// without a presentation time is logged.
  void exportToFile(const std::string& path);

  /// Writes inputs one after the other into the same streams. Consecutive tracks with the same
  /// source form one input. Its first track continues the first one of the previous input, its
  /// second the second, and so on; all inputs need as many tracks as the first. The caller must
  /// make sure that the streams fit (`streamDifferences`). A source is opened when its turn comes
  /// and closed afterwards, unless it was already open; its demuxer skips streams that are not
  /// used.
  ///
  /// An input starts where the previous one ends, or at the position of its first track (`kBehind`:
  /// at the end of the previous one, for the first input at 0). A position within one picture of
  /// that end counts as the end, so that rounded durations neither leave gaps nor add up. Pictures
  /// determine the timing and sound follows; what both the end of one input and the start of the
  /// next contain is written once.
  ///
  /// Subtitles move with the pictures. Parts before an input's first picture or after the start of
  /// the next input are cut off. SubStation Alpha events are renumbered if two inputs use the same
  /// numbers.
  ///
  /// The first input's tags, such as its title, become the file's. Chapters of all inputs move with
  /// their pictures and are cut like subtitles; only MPEG-4 and Matroska store them.
  ///
  /// Fails with the code `kDoesNotJoin` if an input begins before the end of the previous one, does
  /// not start with a key frame, lacks time stamps that the container needs, or leaves a gap that
  /// the container cannot represent; such inputs must be re-encoded. Fails with `kContainerRefuses`
  /// if the container does not accept the packets.
  void joinToFile(const std::string& path);
  static constexpr double kBehind = -1;
  static constexpr int kDoesNotJoin = -0x4E494F4A;
  static constexpr int kContainerRefuses = -0x46455243;

  // Settings for both, off by default.

  /// Keep the packets' durations. Otherwise the container derives them from the time stamps, and
  /// the last packet has none.
  bool keepsDurations() const;
  void setKeepsDurations(bool keeps);

  /// Makes `joinToFile` also write encoded sound, after the tracks with pictures; null: none. Use
  /// it with tracks of pictures and subtitles only. Sound that lasts longer than its pictures
  /// delays what follows.
  void setJoinedSound(std::shared_ptr<JoinedSound> sound);

  /// Polled during an export; returning true ends it soon with an error.
  void setInterrupt(std::function<bool()> interrupt);

  /// Called with the position of the export on the time line (seconds) and the number of video
  /// packets written.
  void setProgress(std::function<void(double seconds, int64_t pictures)> progress);

  /// The number of pictures re-encoded by the last export, because they depend on others that their
  /// input decodes but does not show and that the container cannot hide; it can only hide pictures
  /// at the start of a file with an edit list. Other hidden pictures that no visible one needs are
  /// left out.
  int64_t picturesEncodedToHide() const;

  /// How many packets were too damaged to be rewritten for the container, and are not in the file.
  int64_t refusedPackets() const;

  /// The same two numbers for one input.
  struct InputTally {
    int64_t picturesEncodedToHide = 0;
    int64_t refusedPackets = 0;
  };

  /// What `joinToFile` counted for each input that it has read, in the order of the inputs.
  std::vector<InputTally> inputTallies() const;

  Error lastError() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace kestrel
