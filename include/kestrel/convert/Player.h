#pragma once

#include <kestrel/Export.h>
#include <kestrel/Geometry.h>
#include <kestrel/Image.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/LookSettings.h>
#include <kestrel/convert/Report.h>
#include <kestrel/convert/TrackChoice.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kestrel {

class LMFFMovie;

/// What is to be played; `{}` beside the input means the usual sound track at the usual speed.
struct PlayerSettings {
  std::string input = {};         ///< a file, or a disc (a folder or an image)
  std::optional<int> title = {};  ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                  ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};       ///< by which the input may be read where it is no file
  TrackChoice audioTracks = {};   ///< several are mixed
  bool withPictures = false;      ///< decode pictures, too; an input without any is refused
  LookSettings look = {};         ///< of the pictures, subtitles included; `autoCrop` is refused
};

/// Plays a file's sound, and hands out the picture of the moment.
///
///     Player player({.input = "song.m4a"});
///     player.play();
///     while (!player.isAtEnd()) std::this_thread::sleep_for(50ms);
///     Report report = player.report();
///
/// Nothing here waits for decoding except the constructor and `report`. Use an object from one
/// thread at a time; sound and decoding have threads of their own. Times are microseconds from the
/// movie's start.
class KESTREL_API Player {
 public:
  /// The range of the rate.
  static constexpr double kSlowest = 0.25;
  static constexpr double kFastest = 4;

  /// Opens the input; `interrupt` is asked from then on. Throws a `Failure` for what cannot be
  /// opened or has nothing to play. No device is opened before the first `play`.
  explicit Player(const PlayerSettings& settings, const Interrupt& interrupt = {});
  ~Player();
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  void play();
  void pause();
  bool isPlaying() const;

  /// The time of what is heard at this moment.
  int64_t time() const;

  /// How long it is; nothing where that is not known.
  std::optional<int64_t> duration() const;

  /// Goes to a time, no further than the ends.
  void seek(int64_t time);

  /// The tempo, the pitch staying as it is; a rate out of range is brought into it, and what is no
  /// number changes nothing.
  void setRate(double rate);
  double rate() const;

  /// A factor on the loudness; below 0 it is 0, and what is no number changes nothing.
  void setVolume(double volume);

  /// The loudest sample of a channel (0 left, 1 right; 0 of any other) that was played since the
  /// last call; 1 is full scale.
  float takePeak(int channel);

  /// Whether it plays without being heard, since there is no device.
  bool lacksDevice() const;

  /// Whether everything there is has been heard, even if the input ends earlier than it states or
  /// states no end. The end is found out by asking: ask a few times a second.
  bool isAtEnd();

  /// How far the input was read, and whether it ended early or was damaged. Waits for what is being
  /// decoded.
  Report report();

  /// The shape of the upright pictures, width / height; 0 where `withPictures` did not ask for any.
  double displayAspect() const;

  /// Has the picture of this moment drawn in a size, whole pixels, and `draw` called with the
  /// recipe on the thread that decodes, where there is a new one. It does nothing while the last
  /// one is still being made.
  void drawPicture(Size size, std::function<void(const std::shared_ptr<const Image>& image)> draw);

  /// The movie that plays, for what is not said here.
  LMFFMovie& movie();

 private:
  class Playback;
  std::unique_ptr<Playback> playback_;
};

}  // namespace kestrel
