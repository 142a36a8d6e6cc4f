#pragma once

#include <string>
#include <string_view>
#include <vector>

/// What a key asks the player for.
enum class PlayKey {
  kPause,
  kBack,        ///< 5 seconds
  kForward,     ///< 5 seconds
  kFarBack,     ///< a minute
  kFarForward,  ///< a minute
  kToStart,
  kSlower,  ///< a tenth
  kFaster,  ///< a tenth
  kHalfAsFast,
  kTwiceAsFast,
  kUsualSpeed,
  kQuieter,
  kLouder,
  kMute,
  kSuspend,  ///< the job, as the shell's Ctrl-Z does
  kQuit,
};

/// Makes keys of what a terminal sends, in pieces of any size: over a slow line the bytes of an
/// arrow key may come apart. What means nothing is passed over.
class KeyReader {
 public:
  std::vector<PlayKey> read(std::string_view bytes);

 private:
  std::string waiting_;
};
