#pragma once

#include <kestrel/Error.h>
#include <kestrel/IndexSet.h>
#include <kestrel/convert/Events.h>
#include <kestrel/convert/Report.h>

#include <cstdint>
#include <optional>
#include <string>

struct AVFormatContext;

namespace kestrel {

class LMFFMovie;
class LMMediaSource;

/// How far an input was read, and what was wrong with it.
struct InputEnd {
  int64_t reached = 0;     ///< microseconds after its start
  Error error;             ///< of reading
  int64_t refused = 0;     ///< packets that could not be decoded
  int64_t mended = 0;      ///< pictures of which the decoder made parts up
  int64_t incomplete = 0;  ///< packets of which parts were lost on the way, as the container tells

  /// Takes in what another reader of the same input found.
  void add(const InputEnd& other);
};

/// What a movie's medias found wrong while they were read.
InputEnd faultsOf(const LMFFMovie& movie);

/// How far some streams of an input promise to go, microseconds after its start.
struct PromisedLength {
  int64_t time = 0;  ///< 0: nothing is promised, or only estimated
  /// It is told of the input alone, and others of its streams may be what is that long.
  bool isOfOthers = false;
};

/// How far an input promises to go by itself; 0 where it does not tell or only estimates.
int64_t promisedLength(const AVFormatContext& input);

/// The same of some of its streams.
PromisedLength promisedLength(const AVFormatContext& input, const IndexSet& streams);

/// Finds in a report what an input lacks of a length that it promised (0: any), and whether it was
/// damaged.
void judgeInput(Report& report, const std::string& path, int64_t promised, const InputEnd& end);

/// What was read of an input.
struct InputPart {
  const LMMediaSource& source;    ///< may be closed
  const AVFormatContext& facts;   ///< what the source told when it was open
  const IndexSet& streams;        ///< those that were read
  std::optional<int64_t> wanted;  ///< nobody wanted more than up to there; none: all of it
};

/// The same by what those streams promise. It also tells how far they were read, and how far they
/// promised to go. Where it may be another stream that is so long, the input is looked at once
/// more.
void judgeInput(Report& report, const std::string& path, const InputPart& part,
                const InputEnd& end);

/// Adds to a report, where it is not 0, how many packets of `name` could not be copied.
void judgePackets(Report& report, const std::string& name, int64_t refused);

/// Tells the report and the host, where it is not 0, how many pictures of a file whose packets were
/// copied had to be encoded anew, because they need others that the input hides.
void tellOfEncoded(Report& report, const Events& events, int64_t pictures, const std::string& path);

}  // namespace kestrel
