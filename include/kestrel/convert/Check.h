#pragma once

#include <kestrel/Export.h>
#include <kestrel/Protocols.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kestrel {

/// Which movie is checked, and for how long something must last to be told of; seconds, from 0.1.
struct CheckSettings {
  std::string input = {};         ///< a file, or a disc (a folder or an image)
  std::optional<int> title = {};  ///< of a disc: a number from 1, or `kMainTitle`
  int angle = 1;                  ///< of the title, from 1; above 1 it needs a title
  Protocols protocols = {};       ///< by which the input may be read where it is no file

  double black = 2;    ///< pictures without light
  double frozen = 2;   ///< pictures that do not change
  double silence = 2;  ///< sound below -60 dB
};

/// What is the matter with a movie, or may be.
enum class CheckKind {
  kDamage,       ///< packets that cannot be decoded, pictures that are made up in part
  kGap,          ///< times at which there is no picture or no sound, or twice as much
  kFrozen,       ///< pictures stand still
  kBlack,        ///< pictures are black
  kSilence,      ///< sound is silent
  kClipping,     ///< sound is cut off at a level that it would have gone beyond
  kDrift,        ///< sound lasts longer or shorter than its times say
  kInterlacing,  ///< marked as interlaced and not so, or the other way round
  kRange,        ///< marked as limited range and full, or the other way round
  kHdr,          ///< light of HDR without its transfer, or the other way round
  kLength,       ///< shorter or longer than promised, or than other streams
};

/// Something that was found in a span of a stream.
struct CheckFinding {
  CheckKind kind = CheckKind::kDamage;
  std::optional<uint32_t> stream = {};  ///< by its index in the container; absent: the whole
  int64_t start = 0;                    ///< microseconds from the movie's start
  int64_t end = 0;
  /// Whether something is wrong with the file. Black, silence and what stands still may be meant,
  /// and so may streams that end at different times.
  bool isFault = true;
  std::string sentence = {};  ///< for people, without times and without a full stop
};

/// What came of a check.
struct CheckResult {
  Report report = {};                       ///< its findings are the faults, with times
  std::vector<CheckFinding> findings = {};  ///< in order of time
  int64_t length = 0;                       ///< that was decoded, microseconds
  int64_t pictures = 0;                     ///< that were decoded
};

/// Reads a movie once, decodes all its pictures and sound, and tells what is the matter with it.
/// Subtitles and covers are not looked at. Throws a `Failure` for what cannot be opened or has
/// neither pictures nor sound.
KESTREL_API CheckResult check(const CheckSettings& settings, const Events& events = {});

}  // namespace kestrel
